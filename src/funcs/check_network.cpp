#include "funcs/check_functions.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace qvcd {

namespace {

constexpr int kMaxPort = 65535;
constexpr std::size_t kDomainNameBytes = 253;
constexpr std::size_t kHostnameBytes = 63;
constexpr std::size_t kSsidBytes = 32;
constexpr std::size_t kDomainListBytes = 4095;

// A backslash inside brackets stands for itself in POSIX expressions, so these let one pass.
constexpr char kDomainNamePattern[] =
    R"(^[a-zA-Z0-9][a-zA-Z0-9\-]{0,61}[a-zA-Z0-9]?(\.[a-zA-Z0-9][a-zA-Z0-9\-]{0,61}[a-zA-Z0-9]?)*$)";
constexpr char kHostnamePattern[] = R"(^[a-zA-Z0-9][a-zA-Z0-9\-]{0,61}[a-zA-Z0-9]?$)";
constexpr char kLocalPattern[] = ".local.?$"; // the first dot is any character: "mylocal" is refused too

// In host byte order.
std::optional<std::uint32_t> ipv4(std::string_view value)
{
    in_addr address{};
    if (inet_pton(AF_INET, std::string(value).c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

const char *check_ipaddress(std::string_view value)
{
    return ipv4(value) ? nullptr : API_E_INVALID_IP_ADDRESS_FORMAT;
}

const char *check_portnumber(std::string_view value)
{
    if (const char *error = check_integer(value))
        return error;
    const int port = c_int(value);
    return port >= 0 && port <= kMaxPort ? nullptr : API_E_INVALID_PORT_NUMBER_FORMAT;
}

const char *check_macaddress(std::string_view value)
{
    std::array<unsigned, 6> octet{};
    // NOLINTNEXTLINE(cert-err34-c): what sscanf accepts is the format; the numbers are looked at below
    const int fields = std::sscanf(std::string(value).c_str(), "%x:%x:%x:%x:%x:%x:", &octet[0], &octet[1],
                                   &octet[2], &octet[3], &octet[4], &octet[5]);
    const bool bytes = std::all_of(octet.begin(), octet.end(), [](unsigned o) { return o <= 255; });
    return fields == 6 && bytes ? nullptr : API_E_INVALID_MAC_ADDRESS_FORMAT;
}

bool is_local(std::string_view value)
{
    return check_regexp(value, kLocalPattern) == 0;
}

const char *check_domainname(std::string_view value)
{
    if (value.size() > kDomainNameBytes)
        return API_E_INVALID_DOMAIN_NAME_FORMAT;
    if (is_local(value))
        return API_E_INVALID_HOSTNAME_FORMAT;
    if (value.find("-.") != std::string_view::npos || value.ends_with('-'))
        return API_E_INVALID_DOMAIN_NAME_FORMAT;
    const bool passes = ipv4(value) || check_regexp(value, kDomainNamePattern) == 0;
    return passes ? nullptr : API_E_INVALID_DOMAIN_NAME_FORMAT;
}

const char *check_domainname_list(std::string_view value)
{
    const std::vector<std::string> names = split_words(value.substr(0, kDomainListBytes), " :");
    const bool pass = std::all_of(names.begin(), names.end(),
                                  [](const std::string &name) { return !check_domainname(name); });
    return pass ? nullptr : API_E_INVALID_DOMAIN_NAME_FORMAT;
}

const char *check_hostname(std::string_view value)
{
    if (value.size() > kHostnameBytes || check_regexp(value, kHostnamePattern) != 0)
        return API_E_INVALID_HOSTNAME_FORMAT;
    if (value.ends_with('-'))
        return API_E_INVALID_DOMAIN_NAME_FORMAT;
    return is_local(value) ? API_E_INVALID_HOSTNAME_FORMAT : nullptr;
}

const char *check_multicast_ipaddress(std::string_view value)
{
    const std::optional<std::uint32_t> address = ipv4(value);
    if (!address)
        return API_E_INVALID_IP_ADDRESS_FORMAT;
    const std::uint32_t first = *address >> 24;
    return first >= 224 && first <= 239 ? nullptr : API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT;
}

const char *check_submask(std::string_view value)
{
    const std::optional<std::uint32_t> mask = ipv4(value);
    if (!mask)
        return API_E_INVALID_IP_ADDRESS_FORMAT;
    const std::uint32_t host_bits = ~*mask; // of a netmask: ones at the low end only
    const bool contiguous = (host_bits & (host_bits + 1)) == 0;
    return *mask != 0 && contiguous ? nullptr : API_E_INVALID_SUBMASK_FORMAT;
}

const char *check_ssid(std::string_view value)
{
    if (value.empty())
        return API_E_INVALID_STRING;
    return value.size() <= kSsidBytes ? nullptr : API_E_INVALID_STRING_LENGTH_TOO_LONG;
}

} // namespace

const char *check_network_types(std::string_view, int subtype, CheckArgs, std::string_view value)
{
    switch (subtype) {
    case kIpAddress:
        return check_ipaddress(value);
    case kPortNumber:
        return check_portnumber(value);
    case kMacAddress:
        return check_macaddress(value);
    case kDomainName:
        return check_domainname(value);
    case kDomainNameList:
        return check_domainname_list(value);
    case kHostname:
        return check_hostname(value);
    case kMulticastIpAddress:
        return check_multicast_ipaddress(value);
    case kSubmask:
        return check_submask(value);
    case kSsid:
        return check_ssid(value);
    default:
        return nullptr;
    }
}

} // namespace qvcd
