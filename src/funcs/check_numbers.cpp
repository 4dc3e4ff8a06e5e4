#include "funcs/check_functions.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>

namespace qvcd {

namespace {

constexpr std::int64_t kMaxPort = 65535;
constexpr std::chrono::year kFirstYear{1970};
constexpr std::chrono::year kLastYear{2037};

bool is_digits(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

bool is_unsigned(std::string_view value)
{
    return !value.empty() && is_digits(value);
}

// A lone "-" is good, and is 0.
bool is_signed(std::string_view value)
{
    return !value.empty() && is_digits(value.substr(value.starts_with('-') ? 1 : 0));
}

std::optional<std::int64_t> number(std::string_view value)
{
    return parse_int64(value == "-" ? "0" : value);
}

bool is_within(std::string_view value, std::int64_t min, std::int64_t max)
{
    const auto n = number(value);
    return n && *n >= min && *n <= max;
}

bool is_within_bounds(CheckArgs args, std::string_view value)
{
    return is_within(value, args.empty() ? 0 : c_int64(args[0]), args.size() < 2 ? 0 : c_int64(args[1]));
}

bool is_member(CheckArgs args, std::string_view value)
{
    const auto n = number(value);
    return n && std::ranges::any_of(args, [n](const std::string &arg) { return c_int64(arg) == *n; });
}

// An infinite number is one that does not fit.
double to_float(std::string_view text)
{
    return std::strtod(std::string(text).c_str(), nullptr);
}

bool is_time(const Timecode &code)
{
    using namespace std::chrono;
    const std::string *const fields[] = {&code.year, &code.month,  &code.day,
                                         &code.hour, &code.minute, &code.second};
    if (!std::ranges::all_of(fields, [](const std::string *field) { return is_digits(*field); }))
        return false;
    const std::tm t = local_time(code);
    const year_month_day date = year(t.tm_year + 1900) / (t.tm_mon + 1) / t.tm_mday;
    return date.ok() && date.year() >= kFirstYear && date.year() <= kLastYear && t.tm_hour <= 23 &&
           t.tm_min <= 59 && t.tm_sec <= 59;
}

} // namespace

const char *check_boolean(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(value == "0" || value == "1", API_E_INVALID_BOOLEAN_VALUE);
}

const char *check_integer(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(is_unsigned(value) && number(value), API_E_INVALID_INTEGER_FORMAT);
}

const char *check_integer_set(std::string_view, CheckArgs args, std::string_view value)
{
    return error_unless(is_unsigned(value) && is_member(args, value), API_E_INVALID_INTEGER_FORMAT);
}

const char *check_integer_range(std::string_view, CheckArgs args, std::string_view value)
{
    if (!is_unsigned(value))
        return API_E_INVALID_INTEGER_FORMAT;
    return error_unless(is_within_bounds(args, value), API_E_INVALID_INTEGER_RANGE);
}

const char *check_signed_integer(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(is_signed(value) && number(value), API_E_INVALID_SIGNED_INTEGER_FORMAT);
}

// Metadata relies on the first two members being bounds as well.
const char *check_signed_integer_set(std::string_view api, CheckArgs args, std::string_view value)
{
    if (is_signed(value) && is_member(args, value))
        return nullptr;
    return check_signed_integer_range(api, args, value);
}

const char *check_signed_integer_range(std::string_view, CheckArgs args, std::string_view value)
{
    if (!is_signed(value))
        return API_E_INVALID_SIGNED_INTEGER_FORMAT;
    return error_unless(is_within_bounds(args, value), API_E_INVALID_SIGNED_INTEGER_RANGE);
}

const char *check_float(std::string_view, CheckArgs, std::string_view value)
{
    const std::size_t point = value.find('.');
    const bool whole = is_signed(value.substr(0, point));
    const bool fraction = point == std::string_view::npos || is_unsigned(value.substr(point + 1));
    return error_unless(whole && fraction && std::isfinite(to_float(value)), API_E_INVALID_FLOAT);
}

const char *check_float_range(std::string_view api, CheckArgs args, std::string_view value)
{
    if (const char *error = check_float(api, args, value))
        return error;
    const double n = to_float(value);
    const double min = args.empty() ? 0 : to_float(args[0]);
    const double max = args.size() < 2 ? 0 : to_float(args[1]);
    return error_unless(n >= min && n <= max, API_E_INVALID_FLOAT_RANGE);
}

const char *check_hexadecimal(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(value.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos,
                        API_E_INVALID_HEXADECIMAL);
}

const char *check_portnumber(std::string_view, CheckArgs, std::string_view value)
{
    if (!is_unsigned(value))
        return API_E_INVALID_INTEGER_FORMAT;
    return error_unless(is_within(value, 0, kMaxPort), API_E_INVALID_PORT_NUMBER_FORMAT);
}

const char *check_timecode(std::string_view, CheckArgs, std::string_view value)
{
    const auto code = parse_timecode(value);
    if (!code)
        return API_E_INVALID_DATE_FORMAT;
    return error_unless(is_time(*code), API_E_INVALID_DATE_RANGE);
}

} // namespace qvcd
