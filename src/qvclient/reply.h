#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd::client {

/// Takes one reply line, without its newline.
using LineSink = std::function<void(std::string_view)>;

/// Finds the lines of a reply, its end mark "@" and the result code in what comes from the wire, whatever the
/// pieces that it comes in.
class ReplyParser {
  public:
    explicit ReplyParser(LineSink sink) : sink_(std::move(sink)) {}

    /// Throws WireError when the end mark is not followed by a number.
    void feed(std::string_view bytes);

    /// The result code, once the whole reply was seen.
    std::optional<int> result() const { return result_; }

  private:
    void take_line(std::string_view line);

    LineSink sink_;
    std::string partial_; // a line whose newline has not come yet
    bool marked_ = false;
    std::optional<int> result_;
};

} // namespace qvcd::client
