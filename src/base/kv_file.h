#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Key/value files of other programs: one "key<separators>value" a line, where the separators are any run of
// "=", blank, tab and ":". Lines are looked at in pieces of at most kMaxFileLineBytes. Paths are paths of
// this machine.

/// The value of `key` in the text: the first line that begins with the key followed by a separator; a "#" in
/// front of the key is passed over, so a commented-out line counts. An empty key gives the whole first line.
/// At most kMaxValueBytes are returned.
std::optional<std::string> kv_find(std::string_view text, std::string_view key);

/// kv_find on a file; nothing when it cannot be opened.
std::optional<std::string> kv_read(const std::string &path, std::string_view key);

/// `value` without one pair of surrounding double quotes: it is cut at its last double quote (the first byte
/// is not looked at for this), then a leading quote goes.
std::string kv_unquote(std::string value);

/// kv_read and kv_unquote.
std::optional<std::string> quoted_kv_read(const std::string &path, std::string_view key);

/// The text with the first line of `key` given the new value, its separators kept; without such a line
/// "key=value" is appended. Here a commented-out line does not count. An empty key replaces the whole text by
/// the value and a newline.
std::string kv_replace(std::string_view text, std::string_view key, std::string_view value);

} // namespace qvcd
