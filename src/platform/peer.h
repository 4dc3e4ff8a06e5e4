#pragma once

#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <vector>

namespace qvcd {

/// A user and his password, as a client gave them.
struct PeerLogin {
    std::string user, password;
};

/// Who connected.
struct Peer {
    bool local = false;                 ///< over the Unix socket
    uid_t uid = static_cast<uid_t>(-1); ///< of a local one (SO_PEERCRED, unix(7))
    gid_t gid = static_cast<gid_t>(-1); ///< its effective group
    pid_t pid = 0;                      ///< and process
    std::vector<gid_t> groups;          ///< its further groups; not looked up of root and of our own user
    std::string address;                ///< of one over TCP, numeric; an IPv4 address in IPv4 form
    std::optional<std::string> certificate_user; ///< where clients show certificates: the common name in it

    /// Another program hands on what came to it (the MQTT broker): nobody is trusted, session 0 is nobody.
    /// The address is that program's name.
    bool relayed = false;
    std::optional<PeerLogin> login; ///< of one that is relayed, in place of a session

    /// Where it comes from, in a word: "user 1000", "192.0.2.7".
    std::string source() const;
};

/// As the kernel knew the other side at the connect: no look-up that could wait for a directory service.
Peer local_peer(int socket);

Peer tcp_peer(const sockaddr_storage &address);

} // namespace qvcd
