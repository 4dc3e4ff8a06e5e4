#include "funcs/check_map.h"

#include "base/limits.h"
#include "base/text.h"
#include "funcs/check_functions.h"
#include "funcs/func_map.h"
#include "platform/log.h"
#include "store/meta.h"

#include <algorithm>
#include <vector>

namespace qvcd {

namespace {

struct CheckRow {
    std::string_view name;
    CheckFunction check;
    int subtype;
};

constexpr CheckRow cfuncCmdMap[] = {
    {"undefined", check_undefined, 0},
    {"blank", check_blank, 0},
    {"boolean", check_boolean, 0},
    {"string", check_string_types, kString},
    {"string_set", check_string_types, kStringSet},
    {"alpha_numeric", check_string_types, kAlphaNumeric},
    {"label", check_string_types, kLabel},
    {"string_length", check_string_types, kStringLength},
    {"filename", check_string_types, kFilename},
    {"base64", check_string_types, kBase64},
    {"string_ext", check_string_types, kStringExt},
    {"password", check_password, 0},
    {"integer", check_integer_types, kInteger},
    {"integer_set", check_integer_types, kIntegerSet},
    {"integer_range", check_integer_types, kIntegerRange},
    {"signed_integer", check_integer_types, kSignedInteger},
    {"signed_integer_set", check_integer_types, kSignedIntegerSet},
    {"signed_integer_range", check_integer_types, kSignedIntegerRange},
    {"float", check_integer_types, kFloat},
    {"float_range", check_integer_types, kFloatRange},
    {"hexadecimal", check_integer_types, kHexadecimal},
    {"ipaddress", check_network_types, kIpAddress},
    {"portnumber", check_network_types, kPortNumber},
    {"macaddress", check_network_types, kMacAddress},
    {"domainname", check_network_types, kDomainName},
    {"domainname_list", check_network_types, kDomainNameList},
    {"hostname", check_network_types, kHostname},
    {"multicast_ipaddress", check_network_types, kMulticastIpAddress},
    {"submask", check_network_types, kSubmask},
    {"ssid", check_network_types, kSsid},
    {"timecode", check_timecode, 0},
    {"profile", check_profile, 0},
    {"serial_flags", check_serial_flags, 0},
    {"profile2", check_profile2, 0},
};

constexpr std::size_t kMaxTypeArgs = 50; // further words of an alternative are ignored

// One alternative of a type: a type name and its arguments.
struct Alternative {
    std::string type;
    std::vector<std::string> args;
};

Alternative parse_alternative(std::string_view text)
{
    std::vector<std::string> words = split_words(text, kListSeparators);
    if (words.empty())
        return {};
    Alternative alternative{std::move(words.front()), {}};
    const std::size_t count = std::min(words.size() - 1, kMaxTypeArgs);
    alternative.args.assign(std::make_move_iterator(words.begin() + 1),
                            std::make_move_iterator(words.begin() + 1 + static_cast<std::ptrdiff_t>(count)));
    return alternative;
}

const char *check_alternative(std::string_view api, const Alternative &alternative, std::string_view value)
{
    const CheckRow &row = row_or_first(cfuncCmdMap, alternative.type);
    return row.check(api, row.subtype, alternative.args, value);
}

std::string error_line(std::string_view error, std::string_view value)
{
    return cut(std::string(error).append(": ").append(value), kMaxErrorLineBytes);
}

} // namespace

int cmd_create_cfuncmap_hdf()
{
    return log_func_map("cfunc", cfuncCmdMap);
}

std::optional<std::string> cfuncmap_check(std::string_view api, std::string_view value)
{
    const std::optional<std::string> type = meta_get(api, "type");
    if (!type)
        return std::nullopt;
    std::vector<std::string> texts = split_words(cut(*type, kMaxValueBytes), ",");
    if (texts.empty()) // nothing but commas: a type that no row holds
        texts.emplace_back();
    Alternative last;
    std::string_view error;
    for (const std::string &text : texts) {
        last = parse_alternative(text);
        const char *why = check_alternative(api, last, value);
        if (!why)
            return std::nullopt;
        error = why;
    }
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "   %s: %s fail [%s]\n", std::string(api).c_str(), last.type.c_str(),
                     error_line(error, log_value(api, value)).c_str());
    return error_line(error, value);
}

} // namespace qvcd
