#pragma once

#include "base/args.h"

namespace qvcd {

// Sub-commands of "profile".

/// profile.export <profile> [<file>]: the profile as a document, to a path of the appliance (mode 0600), or
/// without one or with "-" to the reply. What the caller may not read is left out.
int profile_export(Request &request, Args &argv, std::FILE *out);

/// profile.import <profile> <file>: makes a profile, or replaces it, of such a document: a path of the
/// appliance, or "-" for the one that came over the connection (commands/document.h). Of what the caller may
/// not write, or no profile can hold, it says so and takes the rest.
int profile_import(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd
