#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvcd {

// The URLs at which the stream of a streaming mode can be reached, built from the settings tree.

/// A part of a URL, or all of it, and who may read it. What is put together of parts is as secret as they
/// are, and no URL at all when one of them is none.
struct UrlText {
    UrlText(std::string plain) : text(std::move(plain)) {} // NOLINT: a plain text is a part as it stands
    UrlText(const char *plain) : text(plain) {}            // NOLINT

    UrlText &operator+=(const UrlText &part);
    friend UrlText operator+(UrlText text, const UrlText &part) { return text += part; }

    std::string text;
    bool valid = true;       ///< false: there is no such URL, its port is none
    bool secret = false;     ///< it holds passwords or values of private APIs
    bool is_private = false; ///< one of those APIs is private
    unsigned perm = 0xffff;  ///< what the "perm" of all of those APIs allows
};

/// A setting as part of a URL; `fallback` when it is absent.
UrlText setting_text(std::string_view name, std::string_view fallback);

struct StreamLink {
    std::string_view kind; ///< the leaf's name: "rtsp", "rtppush", ...
    UrlText url;
};
using StreamLinks = std::vector<StreamLink>;

/// What all builders know. A port that is none makes no link.
struct LinkFacts {
    UrlText address = "";       ///< of the interface, or of the bonding unit's server
    std::string_view interface; ///< "eth0", "wlan0"
    bool bonded = false;        ///< the bonding unit is up
    std::optional<int> rtsp_port = 554;
    UrlText stream_name = "stream1";   ///< path of RTSP-style links
    UrlText serial_number = "XXXX";    ///< names the second push link
    std::optional<int> http_port = 80; ///< of HTTP-based links
    bool ssl = false;                  ///< https
};

struct StreamMode {
    std::string_view name; ///< value of VideoStreamer.Settings.1.mode
    StreamLinks (*build)(const LinkFacts &);
    bool quick_view; ///< false: quick-view links do not go with this mode
};

/// Null for a mode that publishes nothing, such as "Disabled".
const StreamMode *find_stream_mode(std::string_view name);

StreamLinks quickview_links(const LinkFacts &facts);

} // namespace qvcd
