#include "status/stream_links.h"

#include "platform/bonding.h"
#include "platform/log.h"
#include "status/link_state.h"
#include "status/network_addresses.h"
#include "status/stream_urls.h"
#include "store/database.h"

#include <arpa/inet.h>
#include <optional>

namespace qvcd {

namespace {

struct Interface {
    const char *name;
    std::string_view node; // in the link tree
};

constexpr Interface kInterfaces[] = {{"eth0", "Eth0"}, {"wlan0", "Wlan0"}};

// What the kernel says during one pass.
class Network {
  public:
    explicit Network(Request &request) : request_(request) {}

    bool is_known(const Interface &interface)
    {
        return linkstate_rfunc(request_, nullptr, interface.name).value_or("unknown") != "unknown";
    }

    std::optional<std::string> ipv4_address(const Interface &interface)
    {
        const InterfaceSnapshot *snapshot = interface_snapshot(request_);
        auto address = snapshot ? interface_field(*snapshot, interface.name, "ipaddress") : std::nullopt;
        in_addr ignored;
        return address && inet_pton(AF_INET, address->c_str(), &ignored) == 1 ? address : std::nullopt;
    }

  private:
    Request &request_;
};

LinkFacts facts_from_settings()
{
    LinkFacts facts;
    facts.bonded = bonding_state() == 1;
    facts.rtsp_port = hdfDB.get_int("VideoStreamer.Configuration.RTSP.port", facts.rtsp_port);
    facts.stream_name = hdfDB.get_or("VideoStreamer.Settings.1.RTSP.RTP.streamname", facts.stream_name);
    facts.serial_number = hdfDB.get_or("System.Info.Product.serialnumber", facts.serial_number);
    facts.http_port = hdfDB.get_int("Services.HTTP.port", facts.http_port);
    facts.ssl = hdfDB.get("Services.HTTP.ssl") == "enable";
    return facts;
}

void unpublish(const std::string &name)
{
    hdfDB.remove(name);
    metaDB.remove(name);
}

// A group that lost all its links would otherwise look like an API without a value.
void drop_empty_group(const std::string &name)
{
    const Node group = hdfDB.find(name);
    if (group && !group.first_child() && !group.value())
        unpublish(name);
}

// True when there was something to publish.
bool publish(const std::string &name, const std::vector<StreamLink> &links)
{
    for (const StreamLink &link : links) {
        const std::string leaf = join_name(name, link.kind);
        if (!hdfDB.set(leaf, link.url) || !metaDB.set(join_name(leaf, "attr"), link.kind))
            qv_log_print(kLogWarning, "cannot publish the link %s\n", leaf.c_str());
    }
    return !links.empty();
}

bool publish_stream(const std::string &root, LinkFacts facts, const StreamMode *mode, Network &network)
{
    bool published = false;
    for (const Interface &interface : kInterfaces) {
        const std::string name = join_name(root + ".1", interface.node);
        unpublish(name);
        if (!network.is_known(interface))
            continue;
        const auto address = facts.bonded ? std::optional(hdfDB.get_or("Bond.Configuration.Server.host", ""))
                                          : network.ipv4_address(interface);
        if (!address || !mode)
            continue;
        facts.address = *address;
        facts.interface = interface.name;
        published |= publish(name, mode->build(facts));
    }
    return published;
}

// Quick view comes from the device itself, never from the bonding unit's server.
bool publish_quickview(const std::string &root, LinkFacts facts, Network &network)
{
    bool published = false;
    for (const Interface &interface : kInterfaces) {
        const std::string name = join_name(root + ".Quickview", interface.node);
        unpublish(name);
        const auto address = network.is_known(interface) ? network.ipv4_address(interface) : std::nullopt;
        if (!address)
            continue;
        facts.address = *address;
        facts.interface = interface.name;
        published |= publish(name, setup_quickview_links(facts));
    }
    return published;
}

bool publish_links(Request &request, const std::string &root)
{
    Network network(request);
    const LinkFacts facts = facts_from_settings();
    const StreamMode *mode = find_stream_mode(hdfDB.get_or("VideoStreamer.Settings.1.mode", "Disabled"));
    bool published = publish_stream(root, facts, mode, network);
    const bool quick_view = hdfDB.get_int("VideoStreamer.Settings.Quickview.enable", 0) != 0;
    if (quick_view && (!mode || mode->quick_view))
        published |= publish_quickview(root, facts, network);
    else
        unpublish(root + ".Quickview");
    drop_empty_group(root + ".1");
    drop_empty_group(root + ".Quickview");
    return published;
}

} // namespace

std::optional<std::string> links_rfunc(Request &request, const char *file, const char *)
{
    return file && is_tree_name(file) && publish_links(request, file) ? "1" : "0";
}

} // namespace qvcd
