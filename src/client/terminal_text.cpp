#include "client/terminal_text.h"

#include <array>
#include <cstdio>
#include <unistd.h>

namespace qvcd::client {

namespace {

// Later a filter may stand in between.
const bool output_is_terminal = isatty(STDOUT_FILENO) == 1;
const bool errors_are_terminal = isatty(STDERR_FILENO) == 1;

constexpr unsigned char kDelete = 0x7f;
constexpr unsigned char kLead = 0xc2; // of U+0080 to U+00BF

bool is_control(unsigned char c)
{
    return c == kDelete || c < ' ';
}

bool is_obeyed_above_ascii(unsigned char c)
{
    return c >= 0x80 && c <= 0x9f;
}

// The length of "ESC [ numbers m" at the start of the text; 0 where there is none.
std::size_t size_of_colour(std::string_view text)
{
    if (!text.starts_with("\033["))
        return 0;
    const std::size_t end = text.find_first_not_of("0123456789;", 2);
    return end != std::string_view::npos && text[end] == 'm' ? end + 1 : 0;
}

std::string written_out(unsigned char c)
{
    std::array<char, 8> out{};
    static_cast<void>(std::snprintf(out.data(), out.size(), "\\u%04x", unsigned{c}));
    return out.data();
}

// With what lays out a text, its newlines, tabs and colours, or without.
std::string without_controls(std::string_view text, bool with_layout)
{
    std::string out;
    unsigned char before = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : 0);
        const std::size_t colour = with_layout ? size_of_colour(text.substr(at)) : 0;
        const bool is_obeyed = is_control(c) && !(with_layout && (c == '\t' || c == '\n'));
        std::size_t size = 1;
        if (colour > 0)
            out += text.substr(at, size = colour);
        else if (is_obeyed || (is_obeyed_above_ascii(c) && before < 0x80)) // the latter is no UTF-8
            out += written_out(c);
        else if (c == kLead && is_obeyed_above_ascii(next))
            out += written_out(next), size = 2;
        else
            out += text[at];
        before = size == 1 ? c : 0;
        at += size;
    }
    return out;
}

} // namespace

std::string harmless(std::string_view text)
{
    return without_controls(text, true);
}

std::string one_line(std::string_view text)
{
    return without_controls(text, false);
}

std::string for_output(std::string_view text)
{
    return output_is_terminal ? harmless(text) : std::string(text);
}

std::string for_errors(std::string_view text)
{
    return errors_are_terminal ? harmless(text) : std::string(text);
}

} // namespace qvcd::client
