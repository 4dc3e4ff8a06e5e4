#include "platform/peer.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <unistd.h>

namespace qvcd {

namespace {

std::vector<gid_t> groups_of_peer(int socket)
{
    std::vector<gid_t> groups(32);
    for (;;) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
        const std::size_t count = size / sizeof(gid_t);
        if (result == 0 || errno != ERANGE || count <= groups.size()) {
            groups.resize(result == 0 ? count : 0);
            return groups;
        }
        groups.resize(count);
    }
}

} // namespace

std::string Peer::source() const
{
    return local ? "user " + std::to_string(uid) : address;
}

Peer local_peer(int socket)
{
    Peer peer;
    peer.local = true;
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) {
        peer.uid = credentials.uid;
        peer.gid = credentials.gid;
        peer.pid = credentials.pid;
        if (peer.uid != 0 && peer.uid != ::geteuid())
            peer.groups = groups_of_peer(socket);
    }
    return peer;
}

Peer tcp_peer(const sockaddr_storage &address)
{
    Peer peer;
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.ss_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        ::inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
    } else if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr))
            ::inet_ntop(AF_INET, &v6.sin6_addr.s6_addr[12], text.data(), text.size());
        else
            ::inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
    }
    peer.address = text.data();
    return peer;
}

} // namespace qvcd
