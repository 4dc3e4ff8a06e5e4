#include "status/network_settings.h"

#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "platform/net_info.h"
#include "platform/sysroot.h"
#include "status/netlink.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <strings.h>

namespace qvcd {

namespace {

constexpr char kBoardTool[] = "/etc/sysconfig/helpers/boardcfg";
constexpr std::string_view kBlanks = " \t\n\v\f\r";

std::optional<std::string> host_name(const char *, const char *attr)
{
    const std::string tool = qv_sysroot_path(kBoardTool);
    if (!file_exists(tool))
        return std::nullopt;
    const auto output = shell_capture(shell_quote(tool) + " " + shell_quote(attr), kMaxValueBytes);
    const auto words = split_words(output.value_or(""), kBlanks);
    return words.empty() ? std::nullopt : std::optional(words[0]);
}

// The second word, without a double quote at its end.
std::optional<std::string> hardware_option(const char *file, const char *attr)
{
    const auto options = file ? kv_read(qv_sysroot_path(file), attr) : std::nullopt;
    auto words = split_words(options.value_or(""), kBlanks);
    if (words.size() < 2)
        return std::nullopt;
    if (words[1].ends_with('"'))
        words[1].pop_back();
    return words[1];
}

std::optional<std::string> address_mode(const char *file, const char *attr)
{
    const auto dynamic = file ? quoted_kv_read(qv_sysroot_path(file), attr) : std::nullopt;
    if (!dynamic)
        return std::nullopt;
    return *dynamic == "y" ? "dhcp" : "static";
}

std::optional<std::string> board_address(const char *, const char *)
{
    const std::string address = qv_info_get_mac_address();
    return address.empty() ? std::nullopt : std::optional(address);
}

struct SettingRow {
    const char *name; // compared without regard to case
    std::optional<std::string> (*read)(const char *file, const char *attr);
};

constexpr SettingRow kSettings[] = {
    {"hostname", host_name},
    {"IFCONFIG_OPTS", hardware_option},
    {"CONFIG_NETWORK_IPADDR_DYNAMIC", address_mode},
    {"ethaddr", board_address},
};

// The kernel prints IPv4 addresses and masks as the number that lies in memory.
std::optional<std::uint32_t> hex_number(std::string_view word)
{
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, 16);
    return error == std::errc() && end == word.data() + word.size() ? std::optional(number) : std::nullopt;
}

std::string default_gateway(std::string_view routes)
{
    // Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT
    constexpr std::size_t kColumns = 11;
    const auto lines = split_words(routes, "\n");
    if (lines.empty())
        return "";
    for (std::size_t row = 1; row < lines.size(); ++row) {
        const auto columns = split_words(lines[row], kBlanks);
        if (columns.size() < kColumns)
            break;
        const auto destination = hex_number(columns[1]);
        const auto gateway = hex_number(columns[2]);
        const auto mask = hex_number(columns[7]);
        if (!destination || !gateway || !mask)
            break;
        if (*destination == 0 && *mask == 0) // 0.0.0.0/1 leads to one half of the world only
            return inet_ntoa({*gateway});
    }
    return "0.0.0.0";
}

} // namespace

std::optional<std::string> network_rfunc(Request &, const char *file, const char *attr)
{
    for (const SettingRow &row : kSettings) {
        if (attr && strcasecmp(row.name, attr) == 0)
            return row.read(file, attr);
    }
    return std::nullopt;
}

std::optional<std::string> gateway_rfunc(Request &, const char *, const char *)
{
    return default_gateway(read_file(qv_sysroot_path("/proc/net/route")).value_or(""));
}

std::optional<std::string> resolv_rfunc(Request &, const char *file, const char *attr)
{
    const auto text = attr && file ? read_file(qv_sysroot_path(file)) : std::nullopt;
    std::optional<std::string> found;
    for (const std::string &line : split_words(text.value_or(""), "\n")) {
        const auto words = split_words(line, kBlanks);
        if (line.starts_with(attr) && !words.empty() && words[0] == attr)
            found = found.value_or("") + (words.size() < 2 ? "" : words[1]);
    }
    return found;
}

std::optional<std::string> discovery_id_rfunc(Request &request, const char *, const char *)
{
    const InterfaceSnapshot *snapshot = interface_snapshot(request);
    const NetLink *link = snapshot ? snapshot->link("eth0") : nullptr;
    std::string digits = link ? link->mac.value_or("") : "";
    std::erase(digits, ':');
    return digits.empty() ? std::nullopt : std::optional(digits);
}

} // namespace qvcd
