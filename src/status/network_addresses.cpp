#include "status/network_addresses.h"

#include "base/kv_file.h"
#include "base/lookup.h"
#include "base/text.h"
#include "platform/sysroot.h"
#include "status/print_text.h"
#include "store/database.h"

#include <algorithm>
#include <cstdint>

namespace qvcd {

namespace {

constexpr std::size_t kMaxAttrBytes = 255;

std::optional<std::string> unless_empty(const std::string &text)
{
    return text.empty() ? std::nullopt : std::optional(text);
}

char to_upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), to_upper);
    return text;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string capitalised(std::string text)
{
    if (!text.empty())
        text.front() = to_upper(text.front());
    return text;
}

// Fields of a running interface; `link` is null when there is no such interface, `address` when it has none.
struct LiveRow {
    std::string_view name;
    std::optional<std::string> (*print)(const NetLink *link, const NetAddress *address);
};

constexpr LiveRow kLiveFields[] = {
    {"ipaddress",
     [](const NetLink *, const NetAddress *a) { return a ? unless_empty(a->local) : std::nullopt; }},
    {"broadcast",
     [](const NetLink *, const NetAddress *a) { return a ? unless_empty(a->broadcast) : std::nullopt; }},
    {"submask",
     [](const NetLink *, const NetAddress *a) { return a ? submask_text(a->prefix_length) : std::nullopt; }},
    {"mtu",
     [](const NetLink *l, const NetAddress *) {
         return l && l->mtu > 0 ? std::optional(std::to_string(l->mtu)) : std::nullopt;
     }},
    {"macaddress",
     [](const NetLink *l, const NetAddress *) {
         return std::optional(!l ? "Not Available" : l->mac.empty() ? "Error getting" : upper(l->mac));
     }},
};

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

bool is_configured_field(std::string_view field)
{
    return field == "gateway" || field == "nameserver" || field == "domain";
}

// The settings tree writes the interfaces' names with a capital; names in capitals come first.
std::optional<std::string_view> address_mode(const std::string &interface)
{
    const auto mode = hdfDB.get("Network.Interfaces." + upper(interface) + ".ipmode");
    return mode ? mode : hdfDB.get("Network.Interfaces." + capitalised(lower(interface)) + ".ipmode");
}

std::optional<std::string> read_current_settings(const std::string &interface, const std::string &key)
{
    const auto mode = address_mode(interface);
    const ModeRow *row = mode ? find_row(kModes, *mode) : nullptr;
    if (!row)
        return std::nullopt;
    const std::string path = std::string(row->before) + lower(interface) + std::string(row->after);
    return quoted_kv_read(qv_sysroot_path(path), row->upper_keys ? upper(key) : key);
}

std::optional<std::string> running_field(Request &request, const std::string &interface,
                                         const std::string &field)
{
    const InterfaceSnapshot *snapshot = interface_snapshot(request);
    return snapshot ? interface_field(*snapshot, interface, field) : std::nullopt;
}

} // namespace

std::optional<std::string> submask_text(int prefix_length)
{
    if (prefix_length <= 0)
        return std::nullopt;
    const std::uint32_t mask = ~std::uint32_t{0} << (32 - std::min(prefix_length, 32));
    return print_text("%u.%u.%u.%u", mask >> 24, mask >> 16 & 0xffU, mask >> 8 & 0xffU, mask & 0xffU);
}

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
    const LiveRow *row = find_row(kLiveFields, field);
    return row ? row->print(snapshot.link(interface), snapshot.address(interface)) : std::nullopt;
}

std::optional<std::string> ifconfig_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const auto [interface, field] =
        split_interface_field(std::string_view(attr).substr(0, kMaxAttrBytes), "eth0");
    return is_configured_field(field) ? read_current_settings(interface, field)
                                      : running_field(request, interface, field);
}

} // namespace qvcd
