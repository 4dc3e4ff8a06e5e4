#pragma once

#include "web/files.h"
#include "web/gate.h"
#include "web/guests.h"
#include "web/routes.h"

#include <memory>
#include <string>

namespace boost::asio {
class io_context;
}

namespace qvcd::web {

class Pool;

/// What every connection looks at.
struct Site {
    Services &services;
    const Gate &gate;
    const Files &files;
    Pool &quick, &slow, &login; ///< the lanes
};

/// A certificate and its key, PEM files.
struct Certificate {
    std::string certificate, key;
};

/// Speaks HTTP, and TLS where there is a certificate.
class Server {
  public:
    /// Throws std::runtime_error when the certificate is no good.
    Server(boost::asio::io_context &loop, Site site, ServerLimits limits, const Certificate *certificate);
    ~Server();

    /// Listens at ADDRESS:PORT (an IPv6 address in brackets; port 0: any). The port. Throws
    /// std::runtime_error.
    unsigned listen(const std::string &where);

    /// Takes nobody in any more, and lets go of all.
    void stop();

  private:
    class State;
    std::shared_ptr<State> state_;
};

} // namespace qvcd::web
