#pragma once

#include <string>
#include <vector>

namespace qvcd::client::fleet {

/// Where the broker is, and who we are there and on the appliances.
struct Settings {
    std::string host;
    int port = 0; ///< 8883, in clear 1883
    bool tls = true;
    std::string broker_user, broker_password;
    std::string cafile; ///< empty: the authorities that the system trusts
    std::string certfile, keyfile;
    std::string prefix = "qv";
    std::string user, password; ///< of the appliances
};

/// Reads "$XDG_CONFIG_HOME/qvc/fleet.conf" (~/.config), lines KEY=VALUE: broker (a URL), broker_password,
/// cafile, certfile, keyfile, prefix, user, password, insecure. Takes options off the front of the words: "-b
/// URL", "-u USER" (of the appliances) and "--ca FILE" go before the file. Passwords that are missing are
/// asked for on a terminal. Throws UsageError: no broker, a URL of another kind, passwords in clear without
/// "insecure=yes", no user of the appliances where one is needed, a file with a password that others may
/// read.
Settings take_settings(std::vector<std::string> &words, bool needs_user);

} // namespace qvcd::client::fleet
