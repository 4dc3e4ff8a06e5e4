#include "base/reply.h"

#include <cstdarg>

namespace qvcd {

void reply_text(std::FILE *out, std::string_view text)
{
    if (out)
        std::fwrite(text.data(), 1, text.size(), out);
}

void reply_line(std::FILE *out, std::string_view text)
{
    if (!out)
        return;
    std::fwrite(text.data(), 1, text.size(), out);
    std::putc('\n', out);
}

void reply_value(std::FILE *out, std::string_view key, std::string_view value)
{
    if (!out)
        return;
    std::fwrite(key.data(), 1, key.size(), out);
    std::putc('=', out);
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
