// Types of addresses that are more than IPv4, and of what holds addresses: lists, networks, URLs.

#include "funcs/check_functions.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <algorithm>
#include <arpa/inet.h>

namespace qvcd {

namespace {

constexpr char kInvalidIp6Address[] = "##Invalid IPv6 address format#";
constexpr char kInvalidPrefix[] = "##Invalid network prefix#";
constexpr char kInvalidList[] = "##Invalid list#";
constexpr char kInvalidUrl[] = "##Invalid URL#";

bool is_ip4(std::string_view text)
{
    return !check_ipaddress({}, {}, text);
}

bool is_ip6(std::string_view text)
{
    in6_addr address{};
    const bool is_text = text.find('\0') == std::string_view::npos;
    return is_text && inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

// An IPv4 address is a domain name too.
bool is_host(std::string_view text)
{
    return !check_domainname({}, {}, text) || is_ip6(text);
}

bool is_number(std::string_view text, std::int64_t most)
{
    const bool digits = !check_integer({}, {}, text);
    return digits && c_int64(text) <= most;
}

const char *check_list(CheckArgs args, std::string_view value, bool (*is_member)(std::string_view))
{
    const std::vector<std::string> members = split_words(value, " ");
    const std::size_t most = args.empty() ? members.size() : static_cast<std::size_t>(c_int64(args[0]));
    return error_unless(members.size() <= most && std::ranges::all_of(members, is_member), kInvalidList);
}

// "host", "host:port", "[IPv6 address]:port".
bool is_host_and_port(std::string_view text)
{
    const bool bracketed = text.starts_with('[');
    const std::size_t end = bracketed ? text.find(']') : text.find(':');
    const std::string_view host =
        text.substr(bracketed, end == std::string_view::npos ? end : end - bracketed);
    std::string_view port = end == std::string_view::npos ? "" : text.substr(end + bracketed);
    if (bracketed ? !is_ip6(host) : check_domainname({}, {}, host) != nullptr)
        return false;
    if (port.empty())
        return !bracketed || end != std::string_view::npos;
    constexpr std::int64_t kMaxPort = 65535;
    return port.starts_with(':') && is_number(port.substr(1), kMaxPort);
}

bool is_url_character(char c)
{
    return c > ' ' && c < '\x7f' && std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos;
}

} // namespace

const char *check_ip6address(std::string_view, CheckArgs, std::string_view value)
{
    return error_unless(is_ip6(value), kInvalidIp6Address);
}

const char *check_ip_prefix(std::string_view, CheckArgs args, std::string_view value)
{
    const std::size_t slash = std::min(value.find('/'), value.size());
    const std::string_view address = value.substr(0, slash);
    const std::string_view length = value.substr(std::min(slash + 1, value.size()));
    const auto wants = [&](const char *family) { return args.empty() || args[0] == family; };
    const bool good = (wants("4") && is_ip4(address) && is_number(length, 32)) ||
                      (wants("6") && is_ip6(address) && is_number(length, 128));
    return error_unless(good, kInvalidPrefix);
}

const char *check_address_list(std::string_view, CheckArgs args, std::string_view value)
{
    return check_list(args, value, [](std::string_view one) { return is_ip4(one) || is_ip6(one); });
}

const char *check_host_list(std::string_view, CheckArgs args, std::string_view value)
{
    return check_list(args, value, is_host);
}

// Without a user and a password: these are APIs of their own, or everybody would read them.
const char *check_url(std::string_view, CheckArgs args, std::string_view value)
{
    const std::size_t colon = std::min(value.find("://"), value.size());
    const bool known = std::ranges::find(args, value.substr(0, colon)) != args.end();
    if (!known || !std::ranges::all_of(value, is_url_character))
        return kInvalidUrl;
    const std::string_view rest = value.substr(std::min(colon + 3, value.size()));
    return error_unless(is_host_and_port(rest.substr(0, rest.find_first_of("/?#"))), kInvalidUrl);
}

} // namespace qvcd
