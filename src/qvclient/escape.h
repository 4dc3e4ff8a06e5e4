#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

/// `text` with every byte but letters, digits and "-._~:/@" as %XX, upper-case. The daemon decodes "%XX" and
/// reads "+" as a blank.
std::string url_escape(std::string_view text);

/// The line of the wire, without its newline, that says the command `words` (at least one) with each word as
/// one word there:
///   - arguments that the daemon decodes (names and passwords of people, names of presets, names of profiles
///     that there are) are escaped,
///   - so is the text behind "-m" of commit and rollback; "-m" with an empty text, which means none, is left
///     out,
///   - of an argument name=value the value is escaped,
///   - all others go as they are; in them a comma separates names as on the wire.
/// Throws UsageError for what the wire cannot say: an empty word, a blank or a control character outside of
/// what is escaped, a line of over 1 MiB.
std::string wire_line(const std::vector<std::string> &words);

} // namespace qvcd::client
