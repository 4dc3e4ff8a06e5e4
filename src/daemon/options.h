#pragma once

#include "auth/trust.h"
#include "platform/line_server.h"
#include "platform/sysroot.h"
#include "platform/tls.h"

#include <optional>
#include <string>
#include <vector>

namespace qvcd {

/// What the command line says.
struct Options {
    std::string configuration_file =
        "/etc/qvcd.conf"; ///< kept for scripts that look at the options; never read
    FileName user_file = qv_device_file("/etc/user.conf");
    FileName menu_file = qv_device_file("/home/www/menu.hdf");
    FileName preload_file;            ///< -e; only with `preload`
    std::vector<FileName> meta_files; ///< slot 0 is the default one unless -f or -m replace it
    FileName pid_file = qv_device_file("/var/run/qvcd.pid");
    std::string log_file;
    bool preload = false;
    bool log_to_file = false;
    bool logging = false;
    bool timestamp = false;
    bool debug = false;
    bool to_syslog = false;
    bool foreground = false;
    bool no_watchdog = false;
    bool any_metadata = false; ///< serve also without usable metadata
    int tcp_port = 0;          ///< 0: no TCP server
    Trust trust;               ///< --trust-tcp
    TlsFiles tls;              ///< of the TCP server; no certificate: it speaks in clear
    ServerLimits limits;       ///< --connections, --waiting
};

/// Parses the command line with getopt_long(3); also sets what base/options.h holds. Nothing when the program
/// ends with `status`: 0 after -b, -h, unknown options, more than 10 -m and paths of more than 4,095 bytes,
/// which print their text to stdout; 1 after a message on stderr about arguments that are no options, values
/// that a long option does not take, or paths that lead nowhere.
std::optional<Options> parse_options(int argc, char **argv, int &status);

/// The usage text, to stdout.
void help(const char *name);

} // namespace qvcd
