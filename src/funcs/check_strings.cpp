#include "funcs/check_functions.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::size_t kLabelBytes = 40;
constexpr std::size_t kFilenameBytes = 40;
constexpr std::size_t kSsidBytes = 32;
constexpr std::int64_t kDefaultMinLength = 1;
constexpr std::int64_t kDefaultMaxLength = 256;

bool is_printable(char c)
{
    return c >= ' ' && c <= '~' && c != '"';
}

// Only ASCII letters and digits, and the bytes of `others`.
bool has_only(std::string_view value, std::string_view others = {})
{
    return std::ranges::all_of(
        value, [others](char c) { return is_ascii_alnum(c) || others.find(c) != std::string_view::npos; });
}

// Bounds of a text in bytes.
const char *check_length(CheckArgs args, std::string_view value, const char *too_short, const char *too_long)
{
    const auto length = static_cast<std::int64_t>(value.size());
    if (length < (args.empty() ? kDefaultMinLength : c_int64(args[0])))
        return too_short;
    return error_unless(length <= (args.size() < 2 ? kDefaultMaxLength : c_int64(args[1])), too_long);
}

} // namespace

const char *check_blank(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(value.empty(), API_E_INVALID_OPTION);
}

const char *check_string(std::string_view, CheckArgs, std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return error_unless(std::ranges::all_of(value, is_printable), API_E_INVALID_CHARACTER);
}

const char *check_string_set(std::string_view api, CheckArgs args, std::string_view value)
{
    if (const char *error = check_string(api, args, value))
        return error;
    return error_unless(std::ranges::find(args, value) != args.end(), API_E_INVALID_STRING_FORMAT);
}

const char *check_alpha_numeric(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(has_only(value), API_E_INVALID_CHARACTER);
}

const char *check_label(std::string_view api, CheckArgs args, std::string_view value)
{
    if (const char *error = check_string(api, args, value))
        return error;
    return error_unless(value.size() <= kLabelBytes, API_E_INVALID_STRING_LENGTH_TOO_LONG);
}

const char *check_string_length(std::string_view api, CheckArgs args, std::string_view value)
{
    if (const char *error = check_string(api, args, value))
        return error;
    return check_length(args, value, API_E_INVALID_STRING_LENGTH_TOO_SHORT,
                        API_E_INVALID_STRING_LENGTH_TOO_LONG);
}

const char *check_filename(std::string_view, CheckArgs, std::string_view value)
{
    if (value.empty() || !has_only(value, "._$ -"))
        return API_E_INVALID_CHARACTER;
    return error_unless(value.size() <= kFilenameBytes, API_E_INVALID_STRING_LENGTH_TOO_LONG);
}

// Without "+": appliances rely on it.
const char *check_base64(std::string_view, CheckArgs, std::string_view value)
{
    const std::size_t last = value.find_last_not_of('='); // npos + 1 is 0
    return error_unless(has_only(value.substr(0, last + 1), " /"), API_E_INVALID_OPTION);
}

const char *check_string_ext(std::string_view, CheckArgs, std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return error_unless(value.find('"') == std::string_view::npos, API_E_INVALID_CHARACTER);
}

const char *check_password(std::string_view, CheckArgs args, std::string_view value)
{
    if (value.find_first_of("% ") != std::string_view::npos)
        return API_E_INVALID_PASSWORD_CHARACTER;
    return check_length(args, value, API_E_INVALID_PASSWORD_TOO_SHORT, API_E_INVALID_PASSWORD_TOO_LONG);
}

const char *check_serial_flags(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(has_only(value, "- "), API_E_INVALID_STRING_FORMAT);
}

const char *check_ssid(std::string_view, CheckArgs, std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return error_unless(value.size() <= kSsidBytes, API_E_INVALID_STRING_LENGTH_TOO_LONG);
}

} // namespace qvcd
