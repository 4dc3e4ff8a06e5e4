#pragma once

#include "fleet/relay.h"

namespace qvcd {

/// Makes the appliance one of a fleet, where notify.conf says so (platform/mqtt.h): its status is at the
/// broker, and requests that come there are answered. Between socket_init() and socket_exit(), of which
/// `open` is a part.
void fleet_start(Relay::Open open);

/// Ends that. False when a thread is left behind, in a reader that does not end.
bool fleet_stop();

} // namespace qvcd
