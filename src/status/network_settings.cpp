#include "status/network_settings.h"

#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "platform/fd.h"
#include "platform/net_info.h"
#include "platform/sysroot.h"
#include "status/print_text.h"

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <net/if.h>
#include <strings.h>
#include <sys/ioctl.h>

namespace qvcd {

namespace {

constexpr char kBoardTool[] = "/etc/sysconfig/helpers/boardcfg";
constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::size_t kResolverPiece = 2047;

std::optional<std::string> unless_empty(std::string text)
{
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::string> host_name(const char *, const char *attr)
{
    const std::string tool = qv_sysroot_path(kBoardTool);
    if (!file_exists(tool))
        return std::nullopt;
    const auto output = shell_capture(shell_quote(tool) + " " + shell_quote(attr), kMaxValueBytes);
    const auto words = split_words(output.value_or(""), kBlanks);
    return words.empty() ? std::nullopt : std::optional(words[0]);
}

std::optional<std::string> hardware_option(const char *file, const char *attr)
{
    const auto options = file ? kv_read(qv_sysroot_path(file), attr) : std::nullopt;
    return options ? second_option(*options) : std::nullopt;
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
    return unless_empty(qv_info_get_mac_address());
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

// "%lx" of all of `word`, at most 32 bits: the columns are IPv4 addresses and masks.
std::optional<std::uint32_t> hex_number(const std::string &word)
{
    char *end = nullptr;
    const unsigned long number = std::strtoul(word.c_str(), &end, 16);
    return *end == '\0' ? std::optional(static_cast<std::uint32_t>(number)) : std::nullopt;
}

std::string address_text(std::uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    const in_addr in{address}; // the kernel prints the number as it lies in memory
    inet_ntop(AF_INET, &in, text, sizeof text);
    return text;
}

} // namespace

std::optional<std::string> second_option(std::string_view options)
{
    std::vector<std::string> words = split_words(options, kBlanks);
    if (words.size() < 2)
        return std::nullopt;
    if (words[1].ends_with('"'))
        words[1].pop_back();
    return words[1];
}

std::optional<std::string> network_rfunc(Request &, const char *file, const char *attr)
{
    if (!attr)
        return std::nullopt;
    for (const SettingRow &row : kSettings) {
        if (strcasecmp(row.name, attr) == 0)
            return row.read(file, attr);
    }
    return std::nullopt;
}

std::optional<std::string> default_gateway(std::string_view routes)
{
    constexpr std::size_t kColumns =
        11; // Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT
    if (routes.empty())
        return std::nullopt;
    for (std::size_t at = routes.find('\n'); at != std::string_view::npos; at = routes.find('\n', at + 1)) {
        const std::string_view line = routes.substr(at + 1);
        const auto columns = split_words(line.substr(0, line.find('\n')), kBlanks);
        if (columns.size() < kColumns)
            break;
        const auto destination = hex_number(columns[1]);
        const auto gateway = hex_number(columns[2]);
        if (!destination || !gateway)
            break;
        if (*destination == 0)
            return address_text(*gateway);
    }
    return "0.0.0.0";
}

std::optional<std::string> gateway_rfunc(Request &, const char *, const char *)
{
    return default_gateway(read_file(qv_sysroot_path("/proc/net/route")).value_or("")).value_or("");
}

std::optional<std::string> resolver_words(std::string_view text, std::string_view keyword)
{
    std::optional<std::string> found;
    while (!text.empty()) {
        const std::size_t line_end = std::min(text.find('\n'), text.size() - 1) + 1;
        const std::string_view piece = text.substr(0, std::min(line_end, kResolverPiece));
        text.remove_prefix(piece.size());
        if (!piece.starts_with(keyword))
            continue;
        const auto words = split_words(piece, " \n");
        found = found.value_or("") + (words.size() < 2 ? "" : words[1]);
    }
    return found ? std::optional(cut(*found, kMaxValueBytes)) : std::nullopt;
}

std::optional<std::string> resolv_rfunc(Request &, const char *file, const char *attr)
{
    const auto text = attr && file ? read_file(qv_sysroot_path(file)) : std::nullopt;
    return text ? resolver_words(*text, attr) : std::nullopt;
}

std::optional<std::string> discovery_id_rfunc(Request &, const char *, const char *)
{
    const Fd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "eth0");
    if (!socket || ioctl(socket.get(), SIOCGIFHWADDR, &request) != 0)
        return std::nullopt;
    std::array<unsigned char, 6> mac;
    std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
    std::string text;
    for (const unsigned char byte : mac)
        text += print_text("%02x", byte);
    return text;
}

} // namespace qvcd
