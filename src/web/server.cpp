#include "web/server.h"

#include "web/connection.h"
#include "web/http.h"

#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>

namespace qvcd::web {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using boost::system::error_code;

namespace {

// Who has a whole network has all its addresses.
std::string place_of(const asio::ip::address &address)
{
    if (!address.is_v6() || address.to_v6().is_v4_mapped())
        return text_of_address(address.to_string());
    const auto bytes = address.to_v6().to_bytes();
    return {bytes.begin(), bytes.begin() + 8};
}

} // namespace

// Who listens, and lets in.
class Server::State : public std::enable_shared_from_this<State> {
  public:
    State(asio::io_context &loop, const Site &site, ServerLimits limits)
        : around_(new Around{loop, site, Guests(limits)})
    {
    }

    void use(const Certificate &certificate);
    unsigned listen(const std::string &where);
    void stop();

  private:
    void accept(tcp::acceptor &acceptor);
    void take(tcp::socket socket);

    const std::shared_ptr<Around> around_;
    std::deque<tcp::acceptor> acceptors_;
    bool stopped_ = false;
};

void Server::State::use(const Certificate &certificate)
{
    auto &tls = around_->tls;
    tls = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
    tls->set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1 |
                     asio::ssl::context::default_workarounds);
    SSL_CTX_set_options(tls->native_handle(), SSL_OP_NO_RENEGOTIATION);
    tls->use_certificate_chain_file(certificate.certificate);
    tls->use_private_key_file(certificate.key, asio::ssl::context::pem);
}

unsigned Server::State::listen(const std::string &where)
{
    const auto [address, port] = split_address(where);
    const tcp::endpoint endpoint(asio::ip::make_address(address), static_cast<unsigned short>(port));
    tcp::acceptor acceptor(around_->loop);
    acceptor.open(endpoint.protocol());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    if (endpoint.address().is_v6())
        acceptor.set_option(boost::asio::ip::v6_only(true));
    acceptor.bind(endpoint);
    acceptor.listen();
    acceptors_.push_back(std::move(acceptor));
    accept(acceptors_.back());
    return acceptors_.back().local_endpoint().port();
}

void Server::State::accept(tcp::acceptor &acceptor)
{
    acceptor.async_accept([self = shared_from_this(), &acceptor](error_code error, tcp::socket socket) {
        if (self->stopped_)
            return;
        if (!error) {
            self->take(std::move(socket));
            return self->accept(acceptor);
        }
        // No descriptors: somebody may close one.
        const auto pause =
            std::make_shared<asio::steady_timer>(self->around_->loop, std::chrono::milliseconds(100));
        pause->async_wait([self, &acceptor, pause](error_code) {
            if (!self->stopped_)
                self->accept(acceptor);
        });
    });
}

void Server::State::take(tcp::socket socket)
{
    error_code error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    if (error)
        return;
    const std::string place = place_of(peer.address());
    if (!around_->guests.has_room(place))
        return;
    socket.set_option(tcp::no_delay(true), error);
    begin_connection(around_, place, text_of_address(peer.address().to_string()), std::move(socket));
}

void Server::State::stop()
{
    stopped_ = true;
    for (tcp::acceptor &acceptor : acceptors_) {
        error_code ignored;
        acceptor.close(ignored);
    }
    around_->guests.close_all();
}

Server::Server(asio::io_context &loop, Site site, ServerLimits limits, const Certificate *certificate)
    : state_(std::make_shared<State>(loop, site, limits))
{
    if (certificate)
        state_->use(*certificate);
}

Server::~Server() = default;

unsigned Server::listen(const std::string &where)
{
    return state_->listen(where);
}

void Server::stop()
{
    state_->stop();
}

} // namespace qvcd::web
