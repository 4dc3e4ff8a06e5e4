#include "base/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace qvcd {

std::vector<std::string> split_words(std::string_view text, std::string_view separators)
{
    std::vector<std::string> words;
    for (std::size_t at = text.find_first_not_of(separators); at != std::string_view::npos;) {
        const std::size_t end = text.find_first_of(separators, at);
        words.emplace_back(text.substr(at, end - at));
        at = end == std::string_view::npos ? end : text.find_first_not_of(separators, end);
    }
    return words;
}

int c_int(std::string_view text)
{
    return static_cast<int>(std::strtol(std::string(text).c_str(), nullptr, 10));
}

unsigned c_hex16(std::string_view text)
{
    return static_cast<unsigned>(std::strtoul(std::string(text).c_str(), nullptr, 16) & 0xffffU);
}

std::optional<Timecode> parse_timecode(std::string_view text)
{
    std::array<std::array<char, 5>, 6> f{};
    const int fields = std::sscanf(std::string(text).c_str(), "%4s%2s%2sT%2s:%2s:%2s", f[0].data(),
                                   f[1].data(), f[2].data(), f[3].data(), f[4].data(), f[5].data());
    if (fields != 6)
        return std::nullopt;
    return Timecode{f[0].data(), f[1].data(), f[2].data(), f[3].data(), f[4].data(), f[5].data()};
}

std::tm local_time(const Timecode &code)
{
    std::tm local{};
    local.tm_year = c_int(code.year) - 1900;
    local.tm_mon = c_int(code.month) - 1;
    local.tm_mday = c_int(code.day);
    local.tm_hour = c_int(code.hour);
    local.tm_min = c_int(code.minute);
    local.tm_sec = c_int(code.second);
    local.tm_isdst = -1;
    return local;
}

bool is_one_line(std::string_view text)
{
    return std::ranges::none_of(text, is_control);
}

std::string one_line(std::string text)
{
    std::ranges::replace_if(text, is_control, ' ');
    return text;
}

std::string to_short_name(std::string_view text)
{
    std::string name;
    for (const char c : text) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')
            name += c;
        else if (c == ' ')
            name += '_';
    }
    return name;
}

namespace {

std::uint64_t now_us()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000U + static_cast<std::uint64_t>(t.tv_nsec) / 1000U;
}

} // namespace

Stopwatch::Stopwatch() : start_us_(now_us()) {}

std::uint64_t Stopwatch::elapsed_us() const
{
    return now_us() - start_us_;
}

unsigned long Stopwatch::seconds() const
{
    return static_cast<unsigned long>(elapsed_us() / 1000000U);
}

unsigned long Stopwatch::milliseconds() const
{
    return static_cast<unsigned long>(elapsed_us() % 1000000U / 1000U);
}

} // namespace qvcd
