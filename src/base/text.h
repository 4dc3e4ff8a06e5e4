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

/// A decimal number as atoi(3) reads it: leading blanks, a sign, digits; what follows is ignored. 0 when
/// there are no digits; larger numbers wrap to 32 bits as a conversion from long does.
int c_int(std::string_view text);

/// The same for hexadecimal without overflow: strtoul(3) base 16, cut to 16 bits.
unsigned c_hex16(std::string_view text);

/// A timecode "20240229T12:00:00" as sscanf(3) splits it with "%4s%2s%2sT%2s:%2s:%2s".
struct Timecode {
    std::string year, month, day, hour, minute, second;
};
std::optional<Timecode> parse_timecode(std::string_view text);

/// The timecode as a broken-down local time; the C library decides about daylight saving.
std::tm local_time(const Timecode &code);

/// True for a byte that no value and no line of a reply holds: below 0x20, or 0x7f.
inline bool is_control(char c)
{
    return (c >= 0 && c < ' ') || c == '\x7f';
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
