#include "qvclient/reply.h"

#include <charconv>

#include "qvclient/errors.h"

namespace qvcd::client {

void ReplyParser::feed(std::string_view bytes)
{
    while (!result_) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) {
            partial_ += bytes;
            return;
        }
        if (partial_.empty()) {
            take_line(bytes.substr(0, end));
        } else {
            partial_ += bytes.substr(0, end);
            take_line(partial_);
            partial_.clear();
        }
        bytes.remove_prefix(end + 1);
    }
}

void ReplyParser::take_line(std::string_view line)
{
    if (!marked_) {
        if (line == "@")
            marked_ = true;
        else
            sink_(line);
        return;
    }
    int code = 0;
    const auto parsed = std::from_chars(line.data(), line.data() + line.size(), code);
    if (parsed.ec != std::errc() || parsed.ptr != line.data() + line.size())
        throw WireError("the reply has no result code");
    result_ = code;
}

} // namespace qvcd::client
