#pragma once

#include "platform/log.h"
#include "platform/module.h"
#include "platform/mqtt.h"

#include <memory>

namespace qvcd {

/// What takes the MQTT library.
struct MqttModule {
    static constexpr char kName[] = "mqtt";

    /// MqttClient::start() with the path of the cafile on this machine, and where to log.
    std::unique_ptr<MqttClient> (*start)(MqttConfig config, decltype(&qv_log_print) log);
};

} // namespace qvcd
