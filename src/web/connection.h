#pragma once

#include "web/guests.h"
#include "web/server.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

namespace qvcd::web {

/// What all connections share. For the thread of the loop, but for the services of the site.
struct Around {
    boost::asio::io_context &loop;
    const Site site;
    Guests guests;
    std::unique_ptr<boost::asio::ssl::context> tls = nullptr; ///< none: no TLS
};

/// Speaks with a client until one of both has enough, and is a guest meanwhile. `place`: where he is counted;
/// `client`: his address.
void begin_connection(const std::shared_ptr<Around> &around, const std::string &place, std::string client,
                      boost::asio::ip::tcp::socket socket);

} // namespace qvcd::web
