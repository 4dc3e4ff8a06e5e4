#include "status/print_text.h"

#include <cstdarg>
#include <cstdio>

namespace qvcd {

std::string print_text(const char *format, ...)
{
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(args);
    return text;
}

} // namespace qvcd
