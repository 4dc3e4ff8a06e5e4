#include "status/stream_links.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/log.h"
#include "status/bond_info.h"
#include "status/print_text.h"
#include "status/setting_port.h"
#include "status/stream_urls.h"
#include "store/database.h"

#include <arpa/inet.h>

namespace qvcd {

namespace {

struct Interface {
    std::string_view name;
    std::string_view node; // in the link tree
};

constexpr Interface kInterfaces[] = {{"eth0", "Eth0"}, {"wlan0", "Wlan0"}};

constexpr char kMark[] = "stream_link"; // the attribute of metadata that stands there for a link only

LinkFacts facts_from_settings(Request &request)
{
    LinkFacts facts;
    facts.bonded = bond_unit(request).up();
    facts.rtsp_port = setting_port("VideoStreamer.Configuration.RTSP.port", 554);
    facts.stream_name = setting_text("VideoStreamer.Settings.1.RTSP.RTP.streamname", "stream1");
    facts.serial_number = setting_text("System.Info.Product.serialnumber", "XXXX");
    facts.http_port = setting_port("Services.HTTP.port", 80);
    facts.ssl = hdfDB.get("Services.HTTP.ssl") == "enable";
    return facts;
}

// Removes a node, and the groups that hold nothing any more: an empty one would look like an API.
void remove_from(Tree &tree, std::string name)
{
    tree.remove(name);
    for (auto parent = meta_get_parent(name); parent; parent = meta_get_parent(name)) {
        const Node group = tree.find(*parent);
        if (!group || group.value() || group.first_child())
            return;
        tree.remove(*parent);
        name = *parent;
    }
}

Walk link_metadata(Node node)
{
    return node.name() == kMark && node.text() == "1" ? Walk::visit : Walk::descend;
}

// What the model says of these names stays, so that nothing that was refused becomes readable.
void withdraw(const std::string &group)
{
    for (const std::string &link : hdfutils_parent_names(metaDB.find(group), group, link_metadata))
        remove_from(metaDB, link);
    if (hdfDB.find(group))
        remove_from(hdfDB, group);
}

bool set_attribute(const std::string &name, std::string_view attribute, std::string_view value)
{
    return metaDB.set(name + "." + std::string(attribute), value);
}

// Before the link itself, so that no secret ever stands there open: who may not read the secret may not read
// the link, and a log line shows neither.
bool describe(const std::string &name, const StreamLink &link)
{
    if (!metaDB.find(name) && !(set_attribute(name, kMark, "1") && set_attribute(name, "attr", link.kind)))
        return false;
    if (!link.url.secret)
        return true;
    const std::string perm = print_text("%04x", meta_get_perm(name) & link.url.perm);
    return set_attribute(name, "perm", perm) && set_attribute(name, "secret", "true") &&
           (!link.url.is_private || set_attribute(name, "private", "true"));
}

bool publish(const std::string &group, const StreamLinks &links)
{
    bool published = false;
    for (const StreamLink &link : links) {
        const std::string &url = link.url.text;
        const std::string name = group + "." + std::string(link.kind);
        if (!link.url.valid)
            continue;
        if (url.size() <= kMaxValueBytes && is_one_line(url) && describe(name, link) && hdfDB.set(name, url))
            published = true;
        else
            qv_log_print(kLogWarning, "cannot publish the link %s\n", name.c_str());
    }
    return published;
}

std::optional<std::string> ipv4_address(const InterfaceSnapshot &network, std::string_view interface)
{
    const NetAddress *address = network.address(interface);
    in_addr ignored;
    const bool is_ipv4 =
        address && address->local && inet_pton(AF_INET, address->local->c_str(), &ignored) == 1;
    return is_ipv4 ? address->local : std::nullopt;
}

} // namespace

bool publish_stream_links(Request &request, const std::string &root, const InterfaceSnapshot &network)
{
    LinkFacts facts = facts_from_settings(request);
    const UrlText bond_server = setting_text("Bond.Configuration.Server.host", "");
    const StreamMode *mode = find_stream_mode(hdfDB.get_or("VideoStreamer.Settings.1.mode", "Disabled"));
    const bool quick_view =
        hdfDB.get_int("VideoStreamer.Settings.Quickview.enable", 0) != 0 && (!mode || mode->quick_view);
    bool published = false;
    for (const Interface &interface : kInterfaces) {
        const std::string main = root + ".1." + std::string(interface.node);
        const std::string quick = root + ".Quickview." + std::string(interface.node);
        withdraw(main);
        withdraw(quick);
        const auto address = ipv4_address(network, interface.name);
        facts.interface = interface.name;
        if (mode && network.link(interface.name) && (facts.bonded || address)) {
            facts.address = facts.bonded ? bond_server : UrlText(*address);
            published |= publish(main, mode->build(facts));
        }
        // Quick view comes from the device itself, never from the bonding unit's server.
        if (quick_view && address) {
            facts.address = *address;
            published |= publish(quick, quickview_links(facts));
        }
    }
    return published;
}

std::optional<std::string> links_rfunc(Request &request, const char *file, const char *)
{
    if (!file || !is_tree_name(file))
        return "0";
    const InterfaceSnapshot *network = interface_snapshot(request);
    return publish_stream_links(request, file, network ? *network : InterfaceSnapshot()) ? "1" : "0";
}

} // namespace qvcd
