#pragma once

#include "base/text.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qvcd {

// Configuration files of other programs, line by line. A line has a key and a value, with separators between
// them: any run of "=", blank, tab and ":", where a "::" behind another separator begins the value (an IPv6
// address). A line may be of any length and end with "\r\n".
//
// A key matches as a whole word. A commented-out line ("#Port 22") counts for readers where no other line has
// the key, and is never written over.

struct KeyValue {
    std::string key;
    std::string value;
};

/// The value of the first line of `key`, whole. An empty key gives the whole first line. Nothing: there is no
/// such line.
std::optional<std::string> kv_find(std::string_view text, std::string_view key);

/// kv_find() for many keys of one text, which outlives the index.
class KvIndex {
  public:
    explicit KvIndex(std::string_view text);
    std::optional<std::string> find(std::string_view key) const;

  private:
    // Lines by what stands before their first separator, in the order of the text.
    std::string_view text_;
    std::unordered_map<std::string_view, std::vector<std::string_view>> lines_;
};

/// A line of the key stands there that is not commented out.
bool kv_holds(std::string_view text, std::string_view key);

/// Why kv_replace() cannot write this value so that kv_find() gives it back; null when it can.
const char *kv_refuses(std::string_view key, std::string_view value);

/// The text with the first line of each key given its value, separators and line end kept; for a key without
/// a line "key=value" is appended. Nothing else changes. Of a key that is given twice the last value counts.
std::string kv_replace(std::string_view text, std::span<const KeyValue> values);

/// `value` without one pair of surrounding double quotes: it is cut at its last double quote (the first byte
/// is not looked at for this), then a leading quote goes. So quotes inside a quoted value stay.
std::string kv_unquote(std::string value);

/// kv_find on a file, cut to kMaxValueBytes; nothing when it cannot be read. Paths are paths of this machine.
std::optional<std::string> kv_read(const std::string &path, std::string_view key);

/// The same without quotes.
std::optional<std::string> quoted_kv_read(const std::string &path, std::string_view key);

/// One line of a text: what it says, and its end ("\n", "\r\n" or nothing at the end of the text).
struct TextLine {
    std::string_view text;
    std::string_view end;
};

/// Cuts the next line off the text, which is not empty.
TextLine next_line(std::string_view &text);

/// Appends a line, with the line ends that the text has.
void append_line(std::string &text, std::string_view line);

} // namespace qvcd
