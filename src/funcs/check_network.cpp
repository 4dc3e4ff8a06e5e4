#include "funcs/check_functions.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <optional>
#include <vector>

namespace qvcd {

namespace {

constexpr std::size_t kDomainNameBytes = 253;
constexpr std::size_t kLabelBytes = 63;

// In host byte order.
std::optional<std::uint32_t> ipv4(std::string_view value)
{
    in_addr address{};
    const bool is_text = value.find('\0') == std::string_view::npos;
    if (!is_text || inet_pton(AF_INET, std::string(value).c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

// What stands between the separators, empty parts too.
std::vector<std::string_view> parts(std::string_view text, char separator)
{
    std::vector<std::string_view> found;
    for (std::size_t at = 0; at != std::string_view::npos;) {
        at = text.find(separator);
        found.push_back(text.substr(0, at));
        text.remove_prefix(at == std::string_view::npos ? 0 : at + 1);
    }
    return found;
}

bool is_octet(std::string_view text)
{
    return !text.empty() && text.size() <= 2 && !check_hexadecimal({}, {}, text);
}

// Letters and digits, and "-" behind the first.
bool is_label(std::string_view text)
{
    return !text.empty() && text.size() <= kLabelBytes && text.front() != '-' &&
           std::ranges::all_of(text, [](char c) { return is_ascii_alnum(c) || c == '-'; });
}

// "local" at the end or one byte before it, but not at the beginning: "mylocal" is refused too.
bool is_local(std::string_view value)
{
    const auto ends = [](std::string_view text) { return text.size() > 5 && text.ends_with("local"); };
    return ends(value) || ends(value.substr(0, value.size() - 1)); // of an empty text it is all
}

} // namespace

const char *check_ipaddress(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(ipv4(value).has_value(), API_E_INVALID_IP_ADDRESS_FORMAT);
}

const char *check_macaddress(std::string_view, CheckArgs, std::string_view value)
{
    const std::vector<std::string_view> octets = parts(value, ':');
    return error_unless(octets.size() == 6 && std::ranges::all_of(octets, is_octet),
                        API_E_INVALID_MAC_ADDRESS_FORMAT);
}

const char *check_domainname(std::string_view, CheckArgs, std::string_view value)
{
    if (value.size() > kDomainNameBytes)
        return API_E_INVALID_DOMAIN_NAME_FORMAT;
    if (is_local(value))
        return API_E_INVALID_HOSTNAME_FORMAT;
    const bool good = value.find("-.") == std::string_view::npos && !value.ends_with('-') &&
                      std::ranges::all_of(parts(value, '.'), is_label);
    return error_unless(good, API_E_INVALID_DOMAIN_NAME_FORMAT); // an IPv4 address is four labels
}

const char *check_domainname_list(std::string_view api, CheckArgs args, std::string_view value)
{
    const bool good = std::ranges::all_of(split_words(value, " :"), [&](const std::string &name) {
        return !check_domainname(api, args, name);
    });
    return error_unless(good, API_E_INVALID_DOMAIN_NAME_FORMAT);
}

const char *check_hostname(std::string_view, CheckArgs, std::string_view value)
{
    if (!is_label(value))
        return API_E_INVALID_HOSTNAME_FORMAT;
    if (value.ends_with('-'))
        return API_E_INVALID_DOMAIN_NAME_FORMAT;
    return error_unless(!is_local(value), API_E_INVALID_HOSTNAME_FORMAT);
}

const char *check_multicast_ipaddress(std::string_view, CheckArgs, std::string_view value)
{
    const auto address = ipv4(value);
    if (!address)
        return API_E_INVALID_IP_ADDRESS_FORMAT;
    return error_unless(*address >> 28 == 0xe, API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT);
}

const char *check_submask(std::string_view, CheckArgs, std::string_view value)
{
    const auto mask = ipv4(value);
    if (!mask)
        return API_E_INVALID_IP_ADDRESS_FORMAT;
    const std::uint32_t host_bits = ~*mask; // of a netmask: ones at the low end only
    return error_unless(*mask != 0 && (host_bits & (host_bits + 1)) == 0, API_E_INVALID_SUBMASK_FORMAT);
}

} // namespace qvcd
