#pragma once

#include "base/caller.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qvcd {

struct Peer;

/// The addresses whose first bits are those of one address.
class AddressRange {
  public:
    /// "ADDRESS/BITS" or an ADDRESS alone, numeric, IPv4 or IPv6; bits of the address behind BITS do not
    /// matter. An IPv4 address that is written as an IPv6 one ("::ffff:10.0.0.0/104") is an IPv4 address.
    static std::optional<AddressRange> parse(std::string_view text);

    /// False for an address of the other family.
    bool holds(const AddressRange &address) const;

  private:
    int family_ = 0;
    std::array<unsigned char, 16> bytes_{};
    unsigned bits_ = 0;
};

/// Whose session 0 is root.
class Trust {
  public:
    /// Local callers: root, our own user, and members of `group` when there is one. Over TCP: loopback.
    explicit Trust(std::optional<gid_t> group = std::nullopt) : group_(group) {}

    /// Who is trusted over TCP: "none", "all", or several of "loopback" and AddressRange, separated by
    /// commas. False, and nothing changes, for another text.
    bool set_tcp(std::string_view sources);
    void set_group(std::optional<gid_t> group) { group_ = group; }

    /// What a connection is that this peer opened.
    Caller caller(const Peer &peer) const;

  private:
    bool holds(const Peer &peer) const;

    std::optional<gid_t> group_;
    bool all_ = false;
    std::vector<AddressRange> ranges_ = loopback();

    static std::vector<AddressRange> loopback();
};

/// One name for the addresses that one client can be expected to have at will: the first 64 bits of an IPv6
/// address; other texts as they are.
std::string source_of_address(const std::string &address);

} // namespace qvcd
