#include "funcs/check_functions.h"

#include "platform/api_errors.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::size_t kLabelBytes = 40;
constexpr std::size_t kFilenameBytes = 40;
constexpr int kDefaultMinLength = 1;
constexpr int kDefaultMaxLength = 256;

constexpr char kAlphaNumericPattern[] = "^[a-zA-Z0-9]*$";
constexpr char kFilenamePattern[] = "^[a-zA-Z0-9._$ -]+$";
constexpr char kBase64Pattern[] = "^[a-zA-Z0-9 /]*=*$"; // without "+": appliances rely on it
constexpr char kPasswordPattern[] = "^[^% ]*$";
constexpr char kSerialFlagsPattern[] = "^[-a-zA-Z0-9 ]*$";

bool is_printable(char c)
{
    return c >= ' ' && c <= '~' && c != '"';
}

const char *check_string(std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return std::all_of(value.begin(), value.end(), is_printable) ? nullptr : API_E_INVALID_CHARACTER;
}

const char *check_string_set(CheckArgs args, std::string_view value)
{
    if (const char *error = check_string(value))
        return error;
    return std::find(args.begin(), args.end(), value) != args.end() ? nullptr : API_E_INVALID_STRING_FORMAT;
}

const char *check_label(std::string_view value)
{
    if (const char *error = check_string(value))
        return error;
    return value.size() <= kLabelBytes ? nullptr : API_E_INVALID_STRING_LENGTH_TOO_LONG;
}

const char *check_string_length(CheckArgs args, std::string_view value, const char *too_short,
                                const char *too_long)
{
    if (const char *error = check_string(value))
        return error;
    return check_length(args, value, too_short, too_long);
}

const char *check_filename(std::string_view value)
{
    if (check_regexp(value, kFilenamePattern) != 0)
        return API_E_INVALID_CHARACTER;
    return value.size() <= kFilenameBytes ? nullptr : API_E_INVALID_STRING_LENGTH_TOO_LONG;
}

const char *check_string_ext(std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return value.find('"') == std::string_view::npos ? nullptr : API_E_INVALID_CHARACTER;
}

const char *check_pattern(std::string_view value, std::string_view pattern, const char *error)
{
    return check_regexp(value, pattern) == 0 ? nullptr : error;
}

} // namespace

const char *check_length(CheckArgs args, std::string_view value, const char *too_short, const char *too_long)
{
    const auto length = static_cast<long long>(value.size());
    if (length < int_argument(args, 0, kDefaultMinLength))
        return too_short;
    return length > int_argument(args, 1, kDefaultMaxLength) ? too_long : nullptr;
}

const char *check_string_types(std::string_view, int subtype, CheckArgs args, std::string_view value)
{
    switch (subtype) {
    case kString:
        return check_string(value);
    case kStringSet:
        return check_string_set(args, value);
    case kAlphaNumeric:
        return check_pattern(value, kAlphaNumericPattern, API_E_INVALID_CHARACTER);
    case kLabel:
        return check_label(value);
    case kStringLength:
        return check_string_length(args, value, API_E_INVALID_STRING_LENGTH_TOO_SHORT,
                                   API_E_INVALID_STRING_LENGTH_TOO_LONG);
    case kStringPassword:
        return check_string_length(args, value, API_E_INVALID_PASSWORD_TOO_SHORT,
                                   API_E_INVALID_PASSWORD_TOO_LONG);
    case kFilename:
        return check_filename(value);
    case kBase64:
        return check_pattern(value, kBase64Pattern, API_E_INVALID_OPTION);
    case kStringExt:
        return check_string_ext(value);
    case kStringAny:
    default:
        return nullptr;
    }
}

const char *check_password(std::string_view, int, CheckArgs args, std::string_view value)
{
    if (check_regexp(value, kPasswordPattern) != 0)
        return API_E_INVALID_PASSWORD_CHARACTER;
    return check_length(args, value, API_E_INVALID_PASSWORD_TOO_SHORT, API_E_INVALID_PASSWORD_TOO_LONG);
}

const char *check_serial_flags(std::string_view, int, CheckArgs, std::string_view value)
{
    return check_pattern(value, kSerialFlagsPattern, API_E_INVALID_STRING_FORMAT);
}

} // namespace qvcd
