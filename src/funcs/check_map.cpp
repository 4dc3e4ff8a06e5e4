#include "funcs/check_map.h"

#include "base/limits.h"
#include "base/text.h"
#include "funcs/check_functions.h"
#include "funcs/func_map.h"
#include "platform/log.h"
#include "platform/small_file.h"
#include "store/meta.h"
#include "store/profile_files.h"

#include <algorithm>
#include <map>

namespace qvcd {

namespace {

constexpr CheckRow cfuncCmdMap[] = {
    {"undefined", check_undefined},
    {"blank", check_blank},
    {"boolean", check_boolean, TypeArguments::none, Takes::numbers},
    {"string", check_string},
    {"string_set", check_string_set, TypeArguments::members},
    {"alpha_numeric", check_alpha_numeric},
    {"label", check_label},
    {"string_length", check_string_length, TypeArguments::lengths},
    {"filename", check_filename},
    {"base64", check_base64},
    {"string_ext", check_string_ext},
    {"password", check_password, TypeArguments::lengths},
    {"integer", check_integer, TypeArguments::none, Takes::numbers},
    {"integer_set", check_integer_set, TypeArguments::members, Takes::numbers},
    {"integer_range", check_integer_range, TypeArguments::bounds, Takes::numbers},
    {"signed_integer", check_signed_integer, TypeArguments::none, Takes::numbers},
    {"signed_integer_set", check_signed_integer_set, TypeArguments::members, Takes::numbers},
    {"signed_integer_range", check_signed_integer_range, TypeArguments::bounds, Takes::numbers},
    {"float", check_float, TypeArguments::none, Takes::numbers},
    {"float_range", check_float_range, TypeArguments::reals, Takes::numbers},
    {"hexadecimal", check_hexadecimal},
    {"ipaddress", check_ipaddress},
    {"portnumber", check_portnumber},
    {"macaddress", check_macaddress},
    {"domainname", check_domainname},
    {"domainname_list", check_domainname_list},
    {"hostname", check_hostname},
    {"multicast_ipaddress", check_multicast_ipaddress},
    {"submask", check_submask},
    {"ssid", check_ssid},
    {"timecode", check_timecode},
    {"profile", check_profile},
    {"serial_flags", check_serial_flags},
    {"profile2", check_profile2},
    {"ip6address", check_ip6address},
    {"ip_prefix", check_ip_prefix, TypeArguments::family},
    {"address_list", check_address_list, TypeArguments::limit},
    {"host_list", check_host_list, TypeArguments::limit},
    {"url", check_url, TypeArguments::words},
    {"timezone", check_timezone},
};

constexpr char kInvalidProfile[] = "##Invalid profile#";
constexpr char kInvalidTimeZone[] = "##Invalid time zone#";

std::string error_line(std::string_view error, std::string_view value)
{
    return one_line(cut(std::string(error).append(": ").append(value), kMaxErrorLineBytes));
}

} // namespace

const char *check_undefined(std::string_view api, CheckArgs, std::string_view value)
{
    if (qv_log_wants(kLogInfo))
        qv_log_print(kLogInfo, "Undefined check function: param:%s value:%s\n", std::string(api).c_str(),
                     value_for_log(api, value).c_str());
    return "Undefined check function"; // clients know it without hash marks
}

const char *check_profile(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(check_valid_profile(value) != 0, kInvalidProfile);
}

const char *check_profile2(std::string_view api, CheckArgs, std::string_view value)
{
    std::string group;
    return error_unless(profile_read_group(value, group) == 0 && group == api, kInvalidProfile);
}

// A zone of the system's database; UTC is one without any.
const char *check_timezone(std::string_view, CheckArgs, std::string_view value)
{
    constexpr std::string_view kMagic = "TZif";
    const auto is_good = [](char c) {
        return is_ascii_alnum(c) || std::string_view("_+-/").find(c) != std::string_view::npos;
    };
    if (value == "UTC")
        return nullptr;
    if (value.empty() || value.starts_with('/') || !std::ranges::all_of(value, is_good))
        return kInvalidTimeZone;
    const auto zone = read_small_file("/usr/share/zoneinfo/" + std::string(value), kMagic.size());
    return error_unless(zone == kMagic, kInvalidTimeZone);
}

std::span<const CheckRow> type_rows()
{
    return cfuncCmdMap;
}

int cmd_create_cfuncmap_hdf()
{
    return log_func_map("cfunc", cfuncCmdMap);
}

std::vector<TypeWords> parse_type(std::string_view type)
{
    std::vector<TypeWords> alternatives;
    for (const std::string &text : split_words(cut(type, kMaxValueBytes), ",")) {
        TypeWords words = split_words(text, kListSeparators);
        words.resize(std::clamp<std::size_t>(words.size(), 1, 1 + kMaxTypeArgs));
        alternatives.push_back(std::move(words));
    }
    if (alternatives.empty()) // nothing but commas: a type that no row holds
        alternatives.emplace_back(1);
    return alternatives;
}

namespace {

struct Alternative {
    TypeWords words;
    CheckFunction *check;
};

// Models have few types for many APIs. Good until the next call.
const std::vector<Alternative> &alternatives_of(std::string_view type)
{
    constexpr std::size_t kMost = 4096; // of which clients can make none
    static std::map<std::string, std::vector<Alternative>, std::less<>> known;
    if (const auto found = known.find(type); found != known.end())
        return found->second;
    if (known.size() == kMost)
        known.clear();
    std::vector<Alternative> alternatives;
    for (TypeWords &words : parse_type(type)) {
        CheckFunction *check = row_or_first(cfuncCmdMap, words.front()).check;
        alternatives.push_back({std::move(words), check});
    }
    return known.emplace(type, std::move(alternatives)).first->second;
}

std::optional<std::string> check_type(std::string_view type, std::string_view api, std::string_view value)
{
    const std::vector<Alternative> &alternatives = alternatives_of(type);
    std::string_view error;
    for (const auto &[words, check] : alternatives) {
        const char *why = check(api, std::span(words).subspan(1), value);
        if (!why)
            return std::nullopt;
        error = why;
    }
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "   %s: %s fail [%s]\n", std::string(api).c_str(),
                     alternatives.back().words.front().c_str(),
                     error_line(error, value_for_log(api, value)).c_str());
    return error_line(error, value);
}

} // namespace

std::optional<std::string> cfuncmap_check(Api &api, std::string_view value)
{
    return api.type().empty() ? std::nullopt : check_type(api.type(), api.name(), value);
}

std::optional<std::string> cfuncmap_check(std::string_view api, std::string_view value)
{
    MetaApi meta(api);
    const auto type = meta.get("type");
    return type ? check_type(*type, api, value) : std::nullopt;
}

} // namespace qvcd
