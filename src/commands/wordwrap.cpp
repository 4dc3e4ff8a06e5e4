#include "commands/wordwrap.h"

#include "base/reply.h"

#include <algorithm>

namespace qvcd {

namespace {

std::string_view without_leading_blanks(std::string_view line)
{
    return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

void write_line(std::FILE *out, std::string_view prefix, std::string_view line)
{
    reply_text(out, prefix);
    reply_text(out, line);
    if (!line.ends_with('\n'))
        reply_text(out, "\n");
}

} // namespace

void wordwrap(std::FILE *out, std::string_view prefix, std::size_t width, std::string_view text)
{
    if (text.size() < width) {
        reply_text(out, prefix);
        reply_text(out, text);
        reply_text(out, "\n");
        return;
    }
    std::size_t start = 0;
    for (std::size_t end = 1; end <= text.size(); ++end) {
        const char last = text[end - 1];
        if (last != '\n' && (last != ' ' || end - start <= width))
            continue;
        write_line(out, prefix, without_leading_blanks(text.substr(start, end - start)));
        start = end;
    }
    if (start < text.size())
        write_line(out, prefix, text.substr(start));
}

} // namespace qvcd
