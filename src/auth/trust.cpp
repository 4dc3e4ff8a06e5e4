#include "auth/trust.h"

#include "base/text.h"
#include "platform/line_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <span>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr unsigned kMappedBits = 96; // in front of an IPv4 address that is written as an IPv6 one
constexpr std::array<unsigned char, 12> kMappedPrefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

std::optional<unsigned> parse_bits(std::string_view text, unsigned most)
{
    const std::optional<std::int64_t> bits = parse_int64(text);
    if (!bits || *bits < 0 || *bits > most || text.front() == '-')
        return std::nullopt;
    return static_cast<unsigned>(*bits);
}

} // namespace

std::optional<AddressRange> AddressRange::parse(std::string_view text)
{
    const std::size_t slash = text.find('/');
    const std::string address(text.substr(0, slash));
    AddressRange range;
    range.family_ = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
    if (address.find('\0') != std::string::npos ||
        ::inet_pton(range.family_, address.c_str(), range.bytes_.data()) != 1)
        return std::nullopt;
    const unsigned most = range.family_ == AF_INET ? 32 : 128;
    const std::optional<unsigned> bits =
        slash == std::string_view::npos ? most : parse_bits(text.substr(slash + 1), most);
    if (!bits)
        return std::nullopt;
    range.bits_ = *bits;
    if (range.family_ == AF_INET6 && std::ranges::equal(kMappedPrefix, std::span(range.bytes_).first<12>())) {
        if (range.bits_ < kMappedBits)
            return std::nullopt;
        range.family_ = AF_INET;
        range.bits_ -= kMappedBits;
        std::rotate(range.bytes_.begin(), range.bytes_.begin() + kMappedPrefix.size(), range.bytes_.end());
    }
    return range;
}

bool AddressRange::holds(const AddressRange &address) const
{
    if (address.family_ != family_)
        return false;
    for (unsigned bit = 0; bit < bits_; ++bit) {
        if ((bytes_[bit / 8] ^ address.bytes_[bit / 8]) & (0x80U >> bit % 8))
            return false;
    }
    return true;
}

std::vector<AddressRange> Trust::loopback()
{
    return {*AddressRange::parse("127.0.0.0/8"), *AddressRange::parse("::1")};
}

bool Trust::set_tcp(std::string_view sources)
{
    std::vector<AddressRange> ranges;
    if (sources == "none" || sources == "all") {
        all_ = sources == "all";
        ranges_.clear();
        return true;
    }
    for (;;) {
        const std::size_t comma = sources.find(',');
        const std::string_view word = sources.substr(0, comma);
        if (word == "loopback") {
            std::ranges::copy(loopback(), std::back_inserter(ranges));
        } else if (const std::optional<AddressRange> range = AddressRange::parse(word)) {
            ranges.push_back(*range);
        } else {
            return false;
        }
        if (comma == std::string_view::npos)
            break;
        sources.remove_prefix(comma + 1);
    }
    all_ = false;
    ranges_ = std::move(ranges);
    return true;
}

bool Trust::holds(const Peer &peer) const
{
    if (peer.relayed)
        return false;
    if (peer.local)
        return peer.uid == 0 || peer.uid == ::geteuid() ||
               (group_ && (peer.gid == *group_ || std::ranges::count(peer.groups, *group_) > 0));
    const std::optional<AddressRange> address = AddressRange::parse(peer.address);
    return all_ || (address && std::ranges::any_of(ranges_, [&](const AddressRange &range) {
                        return range.holds(*address);
                    }));
}

Caller Trust::caller(const Peer &peer) const
{
    Caller caller;
    caller.local = peer.local;
    caller.source = peer.source();
    caller.trusted = holds(peer);
    return caller;
}

std::string source_of_address(const std::string &address)
{
    in6_addr bytes{};
    if (::inet_pton(AF_INET6, address.c_str(), &bytes) != 1 || IN6_IS_ADDR_V4MAPPED(&bytes))
        return address;
    std::fill(std::begin(bytes.s6_addr) + 8, std::end(bytes.s6_addr), std::uint8_t{0});
    std::array<char, INET6_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET6, &bytes, text.data(), text.size());
    return std::string(text.data()) + "/64";
}

} // namespace qvcd
