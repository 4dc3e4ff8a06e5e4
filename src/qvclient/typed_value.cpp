#include "qvclient/typed_value.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

template <typename Number>
bool parse_whole(const std::string &text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

} // namespace

Json typed_value(std::string_view type, const std::string &value)
{
    const bool is_flag = type.starts_with("boolean");
    if (is_flag && (value == "0" || value == "1"))
        return value == "1";
    std::int64_t whole = 0;
    const bool is_integer =
        type.starts_with("integer") || type.starts_with("signed_integer") || type.starts_with("portnumber");
    const bool is_plain = value == "0" || !(value.starts_with('0') || value.starts_with("-0"));
    if (is_integer && is_plain && parse_whole(value, whole))
        return whole;
    double real = 0;
    if (type.starts_with("float") && parse_whole(value, real) && std::isfinite(real))
        return real;
    return value;
}

} // namespace qvcd::client
