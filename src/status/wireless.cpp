#include "status/wireless.h"

#include "base/lookup.h"
#include "platform/fd.h"
#include "status/network_addresses.h"
#include "status/print_text.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <linux/wireless.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

struct Channel {
    int mhz;
    int channel;
};

constexpr Channel channel_lut[] = {
    {2412, 1},   {2417, 2},   {2422, 3},   {2427, 4},   {2432, 5},   {2437, 6},   {2442, 7},   {2447, 8},
    {2452, 9},   {2457, 10},  {2462, 11},  {2467, 12},  {2472, 13},  {2484, 14},  {5170, 34},  {5180, 36},
    {5190, 38},  {5200, 40},  {5210, 42},  {5220, 44},  {5230, 46},  {5230, 46},  {5240, 48},  {5260, 52},
    {5280, 56},  {5300, 60},  {5320, 64},  {5500, 100}, {5520, 104}, {5540, 108}, {5560, 112}, {5580, 116},
    {5600, 120}, {5620, 124}, {5640, 128}, {5660, 132}, {5680, 136}, {5700, 140}, {5745, 149}, {5765, 153},
    {5785, 157}, {5805, 161}, {5825, 165},
};

constexpr int kFirstMantissaOfFrequency = 1000; // smaller ones are channel numbers
constexpr const char *kOperatingModes[] = {"auto", "ad-hoc", "managed", "master"};

// One interface and the socket to ask about it. The results of the requests are not looked at: what a driver
// does not answer stays zero.
class Wireless {
  public:
    explicit Wireless(const std::string &interface)
        : interface_(interface.substr(0, IFNAMSIZ - 1)),
          socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
    }

    iwreq ask(unsigned long request, void *buffer = nullptr, std::size_t size = 0) const
    {
        iwreq answer{};
        std::copy(interface_.begin(), interface_.end(), answer.ifr_ifrn.ifrn_name);
        answer.u.data.pointer = buffer;
        answer.u.data.length = static_cast<__u16>(size);
        if (socket_)
            ioctl(socket_.get(), request, &answer);
        return answer;
    }

    iw_range range() const
    {
        iw_range range{};
        ask(SIOCGIWRANGE, &range, sizeof range);
        return range;
    }

    WirelessFrequency frequency() const
    {
        const iwreq answer = ask(SIOCGIWFREQ);
        return {answer.u.freq.m, answer.u.freq.e};
    }

  private:
    std::string interface_;
    Fd socket_;
};

std::string quality(const Wireless &wireless)
{
    iw_statistics statistics{};
    wireless.ask(SIOCGIWSTATS, &statistics, sizeof statistics);
    return std::to_string(statistics.qual.qual) + "/" + std::to_string(wireless.range().max_qual.qual);
}

std::string operating_mode(const Wireless &wireless)
{
    const auto mode = wireless.ask(SIOCGIWMODE).u.mode;
    return mode < std::size(kOperatingModes) ? kOperatingModes[mode] : "unknown";
}

std::string network_name(const Wireless &wireless)
{
    char name[IW_ESSID_MAX_SIZE] = {}; // 32 bytes; a full name has no '\0'
    wireless.ask(SIOCGIWESSID, name, sizeof name);
    return {name, strnlen(name, sizeof name)};
}

struct FieldRow {
    std::string_view name;
    std::string (*print)(const Wireless &);
};

constexpr FieldRow kFields[] = {
    {"quality", quality},
    {"freq", [](const Wireless &w) { return print_text("%.3f", freq_to_double(w.frequency())); }},
    {"channel", [](const Wireless &w) { return std::to_string(freq_to_channel(w.frequency())); }},
    {"mode", operating_mode},
    {"essid", network_name},
};

} // namespace

double freq_to_double(WirelessFrequency frequency)
{
    if (frequency.mantissa >= kFirstMantissaOfFrequency)
        return frequency.mantissa * std::pow(10.0, frequency.exponent - 9);
    for (const Channel &row : channel_lut) {
        if (row.channel == frequency.mantissa)
            return row.mhz / 1000.0;
    }
    return 0;
}

int freq_to_channel(WirelessFrequency frequency)
{
    if (frequency.mantissa < kFirstMantissaOfFrequency)
        return frequency.mantissa;
    const double mhz = std::trunc(frequency.mantissa * std::pow(10.0, frequency.exponent) / 1000000);
    for (const Channel &row : channel_lut) {
        if (row.mhz == mhz)
            return row.channel;
    }
    return 0;
}

void read_access_point(const std::string &interface, unsigned char (&mac)[6])
{
    const iwreq answer = Wireless(interface).ask(SIOCGIWAP);
    std::memcpy(mac, answer.u.ap_addr.sa_data, sizeof mac);
}

std::optional<std::string> iwconfig_rfunc(Request &, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const auto [interface, field] = split_interface_field(attr, "wlan0");
    const FieldRow *row = find_row(kFields, field);
    return row ? std::optional(row->print(Wireless(interface))) : std::nullopt;
}

std::optional<std::string> iwpassword_rfunc(Request &, const char *, const char *)
{
    // Whether one is stored is nobody's business, so the file is not even read.
    return "********";
}

} // namespace qvcd
