#include "base/reply.h"

#include "base/text.h"

#include <algorithm>
#include <array>
#include <cstdarg>

namespace qvcd {

namespace {

// An empty view may have no address, which fwrite does not take. No stream is shared by threads.
void put(std::FILE *out, std::string_view text)
{
    if (!text.empty())
        ::fwrite_unlocked(text.data(), 1, text.size(), out);
}

// A line of this size goes to the stream at once: each call costs more than copying it.
constexpr std::size_t kShortLine = 256;

bool put_short(std::FILE *out, std::string_view key, std::string_view value)
{
    const std::size_t size = key.size() + 1 + value.size();
    std::array<char, kShortLine> line;
    if (size >= line.size())
        return false;
    char *end = std::ranges::copy(key, line.data()).out;
    *end++ = '=';
    std::ranges::copy(value, end);
    if (!is_one_line({line.data(), size}))
        return false;
    line[size] = '\n';
    put(out, {line.data(), size + 1});
    return true;
}

// What a name or a value holds must not look like further lines of the reply.
void put_on_line(std::FILE *out, std::string_view text)
{
    if (is_one_line(text))
        put(out, text);
    else
        put(out, one_line(std::string(text)));
}

} // namespace

void reply_text(std::FILE *out, std::string_view text)
{
    if (out)
        put(out, text);
}

void reply_line(std::FILE *out, std::string_view text)
{
    if (!out)
        return;
    put_on_line(out, text);
    ::putc_unlocked('\n', out);
}

void reply_value(std::FILE *out, std::string_view key, std::string_view value)
{
    if (!out || put_short(out, key, value))
        return;
    put_on_line(out, key);
    ::putc_unlocked('=', out);
    reply_line(out, value);
}

void reply_printf(std::FILE *out, const char *format, ...)
{
    if (!out)
        return;
    va_list args;
    va_start(args, format);
    std::vfprintf(out, format, args);
    va_end(args);
}

} // namespace qvcd
