#pragma once

#include "base/file_text.h"
#include "store/hdf_text.h"
#include "store/tree.h"

#include <cstdio>
#include <string>
#include <string_view>

namespace qvcd {

// Files of trees, in the text form of store/hdf_text.h. Paths are paths of this machine.

enum class HdfResult { ok, missing, error };

struct HdfRead {
    HdfResult result = HdfResult::ok;
    std::string detail; ///< what is wrong, with the line number; for the log
};

/// Reads a file of the appliance's own into `into`, merging with what is there. What stands before an error
/// is kept. The file may have any size.
HdfRead hdf_read_own_file(const std::string &path, Tree &into, HdfListener *listener = nullptr);

/// The same, but all or nothing: after an error `into` is as it was.
HdfRead hdf_read_own_file_whole(const std::string &path, Tree &into);

/// Reads a file that a client named or sent: at most 4 MiB, braces balanced, all or nothing, into a fresh
/// tree.
HdfRead hdf_read_foreign_file(const std::string &path, Tree &fresh);

/// The same of a text that came from a client.
HdfRead hdf_read_foreign_text(const std::string &text, Tree &fresh);

enum class FileKind {
    open,         ///< a new file can be read by all
    secret,       ///< mode 0600
    named,        ///< as `open`, for a name that a client gave (base/file_text.h, replace_named_file)
    named_secret, ///< as `secret`, for such a name
};

/// Writes the children of `node` to a file in one durable step (base/file_text.h). A tree whose text would
/// not read back the same (a value with a newline, or with blanks at its ends) is not written (EINVAL). The
/// reason of an error is logged at priority 3. Keeps the command lock.
FileResult hdf_write_file(const std::string &path, Node node, FileKind kind = FileKind::open);

} // namespace qvcd
