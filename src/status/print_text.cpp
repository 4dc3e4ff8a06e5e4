#include "status/print_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace qvcd {

std::string print_text(const char *format, ...)
{
    char *text = nullptr;
    std::va_list args;
    va_start(args, format);
    const bool printed = vasprintf(&text, format, args) >= 0;
    va_end(args);
    const std::unique_ptr<char, decltype(&std::free)> owner(printed ? text : nullptr, std::free);
    return printed ? text : "";
}

} // namespace qvcd
