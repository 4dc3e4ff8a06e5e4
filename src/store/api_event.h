#pragma once

#include "base/notify.h"
#include "store/api.h"

#include <optional>
#include <string_view>

namespace qvcd {

/// Publishes that an API has this value now (base/notify.h); over the line server to those who may see it.
void publish_api(std::string_view event, const Api &api, std::string_view value,
                 std::optional<std::string_view> old = std::nullopt);

/// The same for one that may be gone: then to administrators.
void publish_api(std::string_view event, std::string_view name, bool is_secret, std::string_view value,
                 std::optional<std::string_view> old);

} // namespace qvcd
