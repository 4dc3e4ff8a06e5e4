#include "client/change_painter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iomanip>
#include <optional>
#include <sstream>

namespace qvcd::client {

namespace {

constexpr char kBold[] = "\033[1m";
constexpr char kRed[] = "\033[31m";
constexpr char kGreen[] = "\033[32m";
constexpr char kYellow[] = "\033[33m";
constexpr char kCyan[] = "\033[36m";
constexpr char kPlain[] = "\033[0m";

// The lines of one side in "@@ -3,7 +3,8 @@": a count that is not there is 1.
unsigned lines_of_side(std::string_view header, char sign)
{
    const std::size_t start = header.find(sign);
    if (start == std::string_view::npos)
        return 0;
    const std::string_view range = header.substr(start, header.find(' ', start) - start);
    const std::size_t comma = range.find(',');
    unsigned count = 1;
    if (comma != std::string_view::npos)
        std::from_chars(range.data() + comma + 1, range.data() + range.size(), count);
    return count;
}

// "2026-11-23T10:42:12Z"
std::optional<std::time_t> parse_time(const std::string &text)
{
    std::tm parts{};
    const char *end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return end && *end == '\0' ? std::optional(timegm(&parts)) : std::nullopt;
}

std::string local_time(std::time_t time)
{
    std::tm parts{};
    std::array<char, 64> text{};
    localtime_r(&time, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string age(std::time_t seconds)
{
    static constexpr struct {
        std::time_t seconds;
        const char *unit;
    } kUnits[] = {{365L * 86400, " y ago"}, {86400, " d ago"}, {3600, " h ago"}, {60, " min ago"}};
    for (const auto &[size, unit] : kUnits) {
        if (seconds >= size)
            return std::to_string(seconds / size) + unit;
    }
    return seconds >= 0 ? std::to_string(seconds) + " s ago" : ""; // else the clocks differ
}

// Where ": exit status 3" or what else an action's failure is called begins.
std::size_t failure_in(std::string_view line)
{
    const std::size_t colon = std::min(line.rfind(": "), line.size());
    const std::string_view text = line.substr(colon);
    const bool is_failure =
        text.starts_with(": exit status ") || text.starts_with(": ended by signal ") || text == ": failed";
    return is_failure ? colon : line.size();
}

const char *colour_of_end(std::string_view end)
{
    if (end == "done" || end == "confirmed")
        return kGreen;
    return end == "awaits confirmation" ? kYellow : kRed;
}

} // namespace

Colours colours_for(const char *no_color, const char *term)
{
    const bool refused = no_color && *no_color;
    const bool able = term && *term && std::string_view(term) != "dumb";
    return able && !refused ? Colours::yes : Colours::no;
}

std::string ChangePainter::paint(std::string_view line)
{
    if (old_lines_left_ + new_lines_left_ > 0)
        return hunk_line(line);
    if (line.starts_with("--- ") || line.starts_with("+++ "))
        return colour(kBold, line);
    if (line.starts_with("@@ ")) {
        old_lines_left_ = lines_of_side(line, '-');
        new_lines_left_ = lines_of_side(line, '+');
        return colour(kCyan, line);
    }
    const std::size_t digits = line.find_first_not_of("0123456789");
    constexpr std::size_t kTimeSize = 20;
    if (digits != 0 && digits != std::string_view::npos && line.size() > digits + kTimeSize) {
        if (const auto time = parse_time(std::string(line.substr(digits + 1, kTimeSize))))
            return entry_header(line.substr(0, digits), *time, line.substr(digits + 1 + kTimeSize));
    }
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    return std::string(indent, ' ') + statement(line.substr(indent));
}

std::string ChangePainter::colour(const char *code, std::string_view text) const
{
    return colours_ && !text.empty() ? code + std::string(text) + kPlain : std::string(text);
}

std::string ChangePainter::hunk_line(std::string_view line)
{
    const char side = line.empty() ? ' ' : line[0];
    if (side != '+' && side != '\\' && old_lines_left_ > 0)
        --old_lines_left_;
    if (side != '-' && side != '\\' && new_lines_left_ > 0)
        --new_lines_left_;
    if (side == '-')
        return colour(kRed, line);
    return side == '+' ? colour(kGreen, line) : std::string(line);
}

std::string ChangePainter::statement(std::string_view line) const
{
    if (line.starts_with("apply: ") || line.starts_with("undo: "))
        return action(line);
    if (line.starts_with('"')) // what somebody said about a change
        return std::string(line);
    const std::size_t equals = line.find('=');
    const std::size_t value = equals == std::string_view::npos ? 0 : equals + 1;
    const std::string name(line.substr(0, value));
    if (line.substr(value).starts_with("##"))
        return name + colour(kRed, line.substr(value));
    constexpr std::string_view kArrow = " -> ";
    const std::size_t arrow = line.find(kArrow, value);
    if (value == 0 || arrow == std::string_view::npos)
        return std::string(line);
    return name + colour(kRed, line.substr(value, arrow - value)) + std::string(kArrow) +
           colour(kGreen, line.substr(arrow + kArrow.size()));
}

std::string ChangePainter::action(std::string_view line) const
{
    const std::size_t failure = failure_in(line);
    return colour(kYellow, line.substr(0, failure)) + colour(kRed, line.substr(failure));
}

// "12 2026-11-23T10:42:12Z root (user 0, qvc) commit: done"
std::string ChangePainter::entry_header(std::string_view number, std::time_t time, std::string_view rest)
{
    if (number_width_ == 0)
        number_width_ = number.size();
    constexpr int kAgeWidth = 10; // "59 min ago"
    const std::size_t blanks = number_width_ - std::min(number.size(), number_width_);
    std::ostringstream text;
    text << std::string(blanks, ' ') << colour(kBold, number) << "  " << local_time(time) << "  "
         << std::setw(kAgeWidth) << age(now_ - time) << " ";
    const std::size_t caller = std::min(rest.find(") "), rest.size());
    const std::size_t colon = rest.find(": ", caller);
    const std::size_t end = colon == std::string_view::npos ? rest.size() : colon + 2;
    text << rest.substr(0, end) << colour(colour_of_end(rest.substr(end)), rest.substr(end));
    return text.str();
}

} // namespace qvcd::client
