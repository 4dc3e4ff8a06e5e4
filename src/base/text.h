#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// The words of `text` between runs of any of `separators` (strtok(3)).
std::vector<std::string> split_words(std::string_view text, std::string_view separators);

/// A decimal number as strtoll(3) reads it: leading blanks, a sign, digits; what follows is ignored. 0 when
/// there are no digits; the nearest number when it does not fit into 64 bits.
std::int64_t c_int64(std::string_view text);

/// The same, and the nearest number that fits into an int.
int c_int(std::string_view text);

/// The text as a number: digits with at most one "-" in front, and nothing else. Nothing for other texts and
/// for numbers that do not fit into 64 bits.
std::optional<std::int64_t> parse_int64(std::string_view text);

/// A hexadecimal number as strtoul(3) reads it, cut to 16 bits.
unsigned c_hex16(std::string_view text);

/// The fields of a timecode "20240229T12:00:00". Whether they hold numbers is not looked at.
struct Timecode {
    std::string year, month, day, hour, minute, second;
};
/// Nothing when the length or the marks between the fields are others.
std::optional<Timecode> parse_timecode(std::string_view text);

/// The timecode as a broken-down local time; the C library decides about daylight saving.
std::tm local_time(const Timecode &code);

/// True for an ASCII letter or digit, whatever the locale.
inline bool is_ascii_alnum(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// True for a byte that no value and no line of a reply holds: below 0x20, or 0x7f.
inline bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c); // char has a sign on some machines
    return byte < 0x20 || byte == 0x7f;
}

/// True when the text holds no such byte.
bool is_one_line(std::string_view text);

/// The text with a blank in place of each such byte.
std::string one_line(std::string text);

/// Keeps ASCII letters, digits and "_", turns blanks into "_", drops the rest.
std::string to_short_name(std::string_view text);

inline constexpr std::string_view kListSeparators = " ,\r\n";
inline constexpr char kHiddenPassword[] = "*******";

/// Microseconds since `start`, as the timing lines of the log print them: "1.002".
class Stopwatch {
  public:
    Stopwatch();
    unsigned long seconds() const;
    unsigned long milliseconds() const; ///< below the second

  private:
    std::uint64_t elapsed_us() const;
    std::uint64_t start_us_;
};

} // namespace qvcd
