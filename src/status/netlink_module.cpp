#include "status/netlink_module.h"

#include <array>
#include <memory>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>

namespace qvcd {

namespace {

struct Free {
    void operator()(nl_sock *socket) const noexcept { nl_socket_free(socket); } // closes it as well
    void operator()(nl_cache *cache) const noexcept { nl_cache_free(cache); }
};
using Socket = std::unique_ptr<nl_sock, Free>;
using Cache = std::unique_ptr<nl_cache, Free>;

std::optional<std::string> address_text(nl_addr *address)
{
    if (!address || nl_addr_get_len(address) == 0)
        return std::nullopt;
    std::array<char, 128> buffer{};
    std::string text = nl_addr2str(address, buffer.data(), buffer.size());
    text.resize(std::min(text.size(), text.find('/')));
    return text;
}

NetLink link_of(nl_object *object)
{
    auto *const link = reinterpret_cast<rtnl_link *>(object);
    const char *name = rtnl_link_get_name(link);
    return {.index = rtnl_link_get_ifindex(link),
            .name = name ? name : "",
            .operational_state = rtnl_link_get_operstate(link),
            .flags = rtnl_link_get_flags(link),
            .mtu = rtnl_link_get_mtu(link),
            .mac = address_text(rtnl_link_get_addr(link))};
}

NetAddress address_of(nl_object *object)
{
    auto *const address = reinterpret_cast<rtnl_addr *>(object);
    return {.link_index = rtnl_addr_get_ifindex(address),
            .local = address_text(rtnl_addr_get_local(address)),
            .broadcast = address_text(rtnl_addr_get_broadcast(address)),
            .prefix_length = rtnl_addr_get_prefixlen(address)};
}

template <class Row>
std::vector<Row> rows_of(nl_cache *cache, Row (*row)(nl_object *))
{
    std::vector<Row> rows;
    for (nl_object *object = nl_cache_get_first(cache); object; object = nl_cache_get_next(object))
        rows.push_back(row(object));
    return rows;
}

Socket connect_to_kernel()
{
    Socket socket(nl_socket_alloc());
    if (socket && nl_connect(socket.get(), NETLINK_ROUTE) != 0)
        socket.reset();
    return socket;
}

Cache read_links(nl_sock *socket)
{
    nl_cache *links = nullptr;
    return Cache(rtnl_link_alloc_cache(socket, AF_UNSPEC, &links) == 0 ? links : nullptr);
}

Cache read_addresses(nl_sock *socket)
{
    nl_cache *addresses = nullptr;
    return Cache(rtnl_addr_alloc_cache(socket, &addresses) == 0 ? addresses : nullptr);
}

std::optional<InterfaceSnapshot> take_snapshot()
{
    const Socket socket = connect_to_kernel();
    const Cache links = socket ? read_links(socket.get()) : nullptr;
    const Cache addresses = links ? read_addresses(socket.get()) : nullptr;
    if (!addresses)
        return std::nullopt;
    return InterfaceSnapshot{rows_of(links.get(), link_of), rows_of(addresses.get(), address_of)};
}

} // namespace

QVCD_MODULE(NetlinkModule, take_snapshot)

} // namespace qvcd
