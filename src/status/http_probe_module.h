#pragma once

#include "platform/module.h"

#include <string>

namespace qvcd {

/// What takes the HTTP library.
struct HttpProbeModule {
    static constexpr char kName[] = "http_probe";

    /// http_reachable(). When it is not, `problem` may say why.
    bool (*reachable)(const std::string &url, std::string &problem);
};

} // namespace qvcd
