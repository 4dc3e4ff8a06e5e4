#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd::client {

/// Takes one reply line, without its newline.
using LineSink = std::function<void(std::string_view)>;

/// The history as JSON is one line, and takes a few MiB at most.
inline constexpr std::size_t kMostReplyLineBytes = std::size_t{64} << 20;

/// Finds the lines of a reply and the result code in what comes from the wire, whatever the pieces that it
/// comes in. The end mark is the last line "@" before the daemon closes the connection: values may look like
/// one, so a line "@" and the number behind it are held back until more comes, which makes them lines as all
/// others, or the end.
class ReplyParser {
  public:
    explicit ReplyParser(LineSink sink) : sink_(std::move(sink)) {}

    /// Throws WireError when a line gets too long.
    void feed(std::string_view bytes);

    /// The result code, if what came so far is a whole reply.
    std::optional<int> result() const { return partial_.empty() ? code_ : std::nullopt; }

  private:
    void take_line(std::string_view line);
    void let_go();

    LineSink sink_;
    std::string partial_; // a line whose newline has not come yet
    bool marked_ = false; // "@" is held back
    std::string number_;  // the line behind it, if that is a number
    std::optional<int> code_;
};

/// What a reply line says. All views are parts of the line.
struct ReplyLine {
    std::string_view name;                 ///< in front of the first "="; empty: it is a text
    std::string_view value;                ///< behind it, or the text
    std::optional<std::string_view> error; ///< the error in place of the value, without its "##" and "#"
};

/// Takes a line apart. An error is what has two hash marks in front and one behind it: "NAME=##ERROR#",
/// "NAME=##ERROR#: VALUE", "##ERROR#", and "NAME=VALUE=##ERROR#" of an import.
ReplyLine parse_reply_line(std::string_view line);

/// True when a line of the reply to `command` with this result code says that something failed. Of commands
/// whose result says it already (get, set and the like), a value that only looks like an error is none, and
/// so are the errors that help tells of.
bool says_error(std::string_view command, int result, std::string_view line);

} // namespace qvcd::client
