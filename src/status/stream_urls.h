#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// The URLs at which the stream of a streaming mode can be reached, built from the settings tree.

struct StreamLink {
    std::string_view kind; ///< the leaf's name: "rtsp", "rtppush", ...
    std::string url;
};

/// What all builders know.
struct LinkFacts {
    std::string address;                 ///< of the interface, or of the bonding unit's server
    std::string_view interface;          ///< "eth0", "wlan0"
    bool bonded = false;                 ///< the bonding unit is up
    long long rtsp_port = 554;           ///< left out of URLs when it is 554
    std::string stream_name = "stream1"; ///< path of RTSP-style links
    std::string serial_number = "XXXX";  ///< names the second push link
    long long http_port = 80;            ///< of HTTP-based links
    bool ssl = false;                    ///< https
};

using LinkBuilder = std::vector<StreamLink> (*)(const LinkFacts &);

struct StreamMode {
    std::string_view name; ///< value of VideoStreamer.Settings.1.mode
    LinkBuilder build;
    bool quick_view; ///< false: quick-view links do not go with this mode
};

/// Null for a mode that publishes nothing, such as "Disabled".
const StreamMode *find_stream_mode(std::string_view name);

std::vector<StreamLink> setup_quickview_links(const LinkFacts &facts);

} // namespace qvcd
