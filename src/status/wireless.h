#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// The wireless link, from the kernel's wireless extensions (linux/wireless.h). Interface names have at most
// 15 bytes. What a driver does not answer reads as zero.

/// Read function. `attr` is "<interface> <field>", or the field of "wlan0": "quality" ("40/70"), "freq" (GHz,
/// "2.437"), "channel", "mode" ("auto", "ad-hoc", "managed", "master", "unknown") or "essid". `file` is
/// not used.
std::optional<std::string> iwconfig_rfunc(Request &request, const char *file, const char *attr);

/// Read function of the pass phrase: always "********", also when none is stored.
std::optional<std::string> iwpassword_rfunc(Request &request, const char *file, const char *attr);

/// The address of the access point that the interface uses.
void read_access_point(const std::string &interface, unsigned char (&mac)[6]);

/// A frequency as the kernel gives it: mantissa * 10^exponent Hz, or a channel number when the mantissa is
/// below 1000.
struct WirelessFrequency {
    int mantissa = 0;
    int exponent = 0;
};

/// In GHz; 0 for an unknown channel.
double freq_to_double(WirelessFrequency frequency);

/// The channel; 0 for an unknown frequency.
int freq_to_channel(WirelessFrequency frequency);

} // namespace qvcd
