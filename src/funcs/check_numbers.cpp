#include "funcs/check_functions.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>
#include <cstdlib>

namespace qvcd {

namespace {

constexpr char kHexadecimalPattern[] = "^[a-fA-F0-9]*$";
constexpr std::size_t kTimecodeBytes = 17;

bool is_digits(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool is_within(std::string_view value, int min, int max)
{
    const int number = c_int(value);
    return number >= min && number <= max;
}

bool is_within_arguments(CheckArgs args, std::string_view value)
{
    return is_within(value, int_argument(args, 0, 0), int_argument(args, 1, 0));
}

const char *check_integer_set(CheckArgs args, std::string_view value)
{
    if (const char *error = check_integer(value))
        return error;
    const int number = c_int(value);
    const bool member = std::any_of(args.begin(), args.end(),
                                    [number](const std::string &arg) { return c_int(arg) == number; });
    return member ? nullptr : API_E_INVALID_INTEGER_FORMAT;
}

const char *check_integer_range(CheckArgs args, std::string_view value)
{
    if (const char *error = check_integer(value))
        return error;
    return is_within_arguments(args, value) ? nullptr : API_E_INVALID_INTEGER_RANGE;
}

// A lone "-" passes.
const char *check_signed_integer(std::string_view value)
{
    const std::string_view digits = value.substr(value.starts_with('-') ? 1 : 0);
    return !value.empty() && is_digits(digits) ? nullptr : API_E_INVALID_SIGNED_INTEGER_FORMAT;
}

const char *check_signed_integer_range(CheckArgs args, std::string_view value)
{
    if (const char *error = check_signed_integer(value))
        return error;
    return is_within_arguments(args, value) ? nullptr : API_E_INVALID_SIGNED_INTEGER_RANGE;
}

const char *check_float(std::string_view value)
{
    const std::size_t point = value.find('.');
    const bool whole = !check_signed_integer(value.substr(0, point));
    const bool fraction = point == std::string_view::npos || !check_integer(value.substr(point + 1));
    return whole && fraction ? nullptr : API_E_INVALID_FLOAT;
}

float to_float(std::string_view text)
{
    return static_cast<float>(std::strtod(std::string(text).c_str(), nullptr));
}

const char *check_float_range(CheckArgs args, std::string_view value)
{
    if (const char *error = check_float(value))
        return error;
    const float number = to_float(value);
    const float min = args.empty() ? 0.0F : to_float(args[0]);
    const float max = args.size() < 2 ? 0.0F : to_float(args[1]);
    return number < min || number > max ? API_E_INVALID_FLOAT_RANGE : nullptr;
}

const char *check_hexadecimal(std::string_view value)
{
    return check_regexp(value, kHexadecimalPattern) == 0 ? nullptr : API_E_INVALID_HEXADECIMAL;
}

} // namespace

const char *check_integer(std::string_view value)
{
    return !value.empty() && is_digits(value) ? nullptr : API_E_INVALID_INTEGER_FORMAT;
}

int int_argument(CheckArgs args, std::size_t at, int missing)
{
    return at < args.size() ? c_int(args[at]) : missing;
}

const char *check_integer_types(std::string_view, int subtype, CheckArgs args, std::string_view value)
{
    switch (subtype) {
    case kInteger:
        return check_integer(value);
    case kIntegerSet:
        return check_integer_set(args, value);
    case kIntegerRange:
        return check_integer_range(args, value);
    case kSignedInteger:
        return check_signed_integer(value);
    case kSignedIntegerSet: // metadata relies on its members being bounds
    case kSignedIntegerRange:
        return check_signed_integer_range(args, value);
    case kFloat:
        return check_float(value);
    case kFloatRange:
        return check_float_range(args, value);
    case kHexadecimal:
        return check_hexadecimal(value);
    default:
        return nullptr;
    }
}

const char *check_boolean(std::string_view, int, CheckArgs, std::string_view value)
{
    return value == "0" || value == "1" ? nullptr : API_E_INVALID_BOOLEAN_VALUE;
}

const char *check_timecode(std::string_view, int, CheckArgs, std::string_view value)
{
    const std::optional<Timecode> code =
        value.size() == kTimecodeBytes ? parse_timecode(value) : std::nullopt;
    if (!code)
        return API_E_INVALID_DATE_FORMAT;
    // Day and month are not matched: the 31st of February passes.
    const struct {
        const std::string &field;
        int min;
        int max;
    } limits[] = {{code->year, 1970, 2037}, {code->month, 1, 12},  {code->day, 1, 31},
                  {code->hour, 0, 23},      {code->minute, 0, 59}, {code->second, 0, 59}};
    for (const auto &[field, min, max] : limits) {
        if (check_integer(field) || !is_within(field, min, max))
            return API_E_INVALID_DATE_RANGE;
    }
    return nullptr;
}

} // namespace qvcd
