#include "status/network_addresses.h"

#include "base/kv_file.h"
#include "base/lookup.h"
#include "base/text.h"
#include "platform/sysroot.h"
#include "store/database.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>

namespace qvcd {

namespace {

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// The dotted mask with the top `prefix_length` of 32 bits set.
std::optional<std::string> submask_text(int prefix_length)
{
    if (prefix_length <= 0)
        return std::nullopt;
    const std::uint32_t mask = ~std::uint32_t{0} << (32 - std::min(prefix_length, 32));
    return inet_ntoa({htonl(mask)});
}

// Where the configuration of an address mode stands.
struct ModeRow {
    std::string_view name;
    std::string_view before, after; // the interface's name goes between
    bool upper_keys;
};

constexpr ModeRow kModes[] = {
    {"static", "/etc/network/", ".cfg", true},
    {"dhcp-server", "/etc/network/", ".cfg", true},
    {"dhcp", "/var/run/dhcp-config.", "", false},
    {"link-local", "/var/run/dhcp-config.", "", false},
};

// The settings tree writes the interfaces' names with a capital; names in capitals come first.
std::string address_mode(const std::string &interface)
{
    const auto mode = hdfDB.get("Network.Interfaces." + upper(interface) + ".ipmode");
    const std::string capitalised = upper(interface.substr(0, 1)) + lower(interface).substr(1);
    return mode ? std::string(*mode) : hdfDB.get_or("Network.Interfaces." + capitalised + ".ipmode", "");
}

std::optional<std::string> configured_field(const std::string &interface, const std::string &field)
{
    const ModeRow *row = find_row(kModes, address_mode(interface));
    if (!row)
        return std::nullopt;
    const std::string path = std::string(row->before) + lower(interface) + std::string(row->after);
    return quoted_kv_read(qv_sysroot_path(path), row->upper_keys ? upper(field) : field);
}

} // namespace

InterfaceField split_interface_field(std::string_view text, std::string_view default_interface)
{
    const std::vector<std::string> words = split_words(text, " \t\n\v\f\r");
    if (words.size() >= 2)
        return {words[0], words[1]};
    return {std::string(default_interface), words.empty() ? "" : words[0]};
}

std::optional<std::string> interface_field(const InterfaceSnapshot &snapshot, std::string_view interface,
                                           std::string_view field)
{
    const NetLink *link = snapshot.link(interface);
    const NetAddress *address = snapshot.address(interface);
    if (field == "macaddress")
        return !link ? "Not Available" : link->mac ? upper(*link->mac) : "Error getting";
    if (field == "mtu")
        return link && link->mtu > 0 ? std::optional(std::to_string(link->mtu)) : std::nullopt;
    if (!address)
        return std::nullopt;
    if (field == "submask")
        return submask_text(address->prefix_length);
    return field == "ipaddress" ? address->local : field == "broadcast" ? address->broadcast : std::nullopt;
}

std::optional<std::string> ifconfig_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const auto [interface, field] = split_interface_field(attr, "eth0");
    if (field == "gateway" || field == "nameserver" || field == "domain")
        return configured_field(interface, field);
    const InterfaceSnapshot *snapshot = interface_snapshot(request);
    return snapshot ? interface_field(*snapshot, interface, field) : std::nullopt;
}

} // namespace qvcd
