// The only source that knows the HTTP library.

#include "web/server.h"

#include "platform/log.h"
#include "web/digest.h"
#include "web/event_hub.h"
#include "web/http.h"
#include "web/pool.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <deque>
#include <map>
#include <sstream>
#include <stdexcept>

namespace qvcd::web {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using boost::system::error_code;
using Text = std::shared_ptr<const std::string>;

namespace {

constexpr std::chrono::seconds kHandshake{10};
constexpr std::chrono::seconds kHeader{30}; // with the pause before it
constexpr std::chrono::seconds kBody{60};
constexpr std::chrono::seconds kWriting{30};
constexpr std::chrono::seconds kFarewell{5};
constexpr std::uint32_t kHeaderBytes = 16 * 1024;
constexpr std::uint64_t kStrangersBytes = 16 * 1024;
constexpr std::uint64_t kBodyBytes = 64 * 1024;
constexpr std::uint64_t kDocumentBytes = 4 * 1024 * 1024;
constexpr std::size_t kWaitingBytes = 512 * 1024; // of events that a listener has not taken
constexpr std::size_t kLoginsOfOne = 4;           // at once from one address, of all that may wait
constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";

constexpr std::pair<const char *, const char *> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; object-src 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
};
constexpr char kStrictTransport[] = "max-age=31536000";

std::string_view view(beast::string_view text)
{
    return {text.data(), text.size()};
}

// What two readers of a message could take for two different ones.
bool is_ambiguous(const http::fields &header)
{
    const auto encodings = header.count(http::field::transfer_encoding);
    const bool is_plain =
        encodings == 0 ||
        (encodings == 1 && beast::iequals(header[http::field::transfer_encoding], "chunked"));
    return !is_plain || header.count(http::field::host) > 1;
}

// Who has a whole network has all its addresses.
std::string place_of(const asio::ip::address &address)
{
    if (!address.is_v6() || address.to_v6().is_v4_mapped())
        return text_of_address(address.to_string());
    const auto bytes = address.to_v6().to_bytes();
    return {bytes.begin(), bytes.begin() + 8};
}

} // namespace

// A connection, for who counts and ends them.
class Guest {
  public:
    virtual ~Guest() = default;
    virtual void close() = 0;
    virtual bool is_idle() const = 0; ///< between two requests
};

class Server::State : public std::enable_shared_from_this<State> {
  public:
    State(asio::io_context &l, Site s, ServerLimits limits) : loop(l), site(s), limits_(limits) {}

    void use(const Certificate &certificate);
    unsigned listen(const std::string &where);
    void stop();

    void leave(const std::string &place, Guest *guest)
    {
        guests_.erase(guest);
        if (--places_[place].guests == 0)
            places_.erase(place);
    }

    /// One address must not fill the lane of log-ins. False: it has its share already.
    bool begin_login(const std::string &place)
    {
        std::size_t &logins = places_[place].logins;
        return logins < kLoginsOfOne && ++logins > 0;
    }
    void end_login(const std::string &place) { --places_[place].logins; }

    asio::io_context &loop;
    const Site site;
    std::unique_ptr<asio::ssl::context> tls;

  private:
    void accept(tcp::acceptor &acceptor);
    void take(tcp::socket socket);
    bool make_room();

    const ServerLimits limits_;
    std::deque<tcp::acceptor> acceptors_;
    std::map<Guest *, std::weak_ptr<Guest>> guests_;
    struct Place {
        std::size_t guests = 0, logins = 0;
    };
    std::map<std::string, Place> places_;
    bool stopped_ = false;

    friend class Connections;
    void add(const std::string &place, const std::shared_ptr<Guest> &guest)
    {
        ++places_[place].guests;
        guests_.emplace(guest.get(), guest);
    }
};

namespace {

template <class Stream>
constexpr bool kIsTls = !std::is_same_v<Stream, beast::tcp_stream>;

} // namespace

// One connection. Everything happens on the thread of the loop but the handlers, which get copies.
template <class Stream, class State>
class Connection : public Guest,
                   public Listener,
                   public std::enable_shared_from_this<Connection<Stream, State>> {
  public:
    template <class... More>
    Connection(std::shared_ptr<State> state, std::string place, std::string client, tcp::socket socket,
               More &...more)
        : state_(std::move(state)), place_(std::move(place)), client_(std::move(client)),
          stream_(std::move(socket), more...)
    {
    }
    ~Connection() override { state_->leave(place_, this); }

    void start()
    {
        if constexpr (kIsTls<Stream>) {
            lowest().expires_after(kHandshake);
            stream_.async_handshake(asio::ssl::stream_base::server,
                                    [self = this->shared_from_this()](error_code error) {
                                        if (!error)
                                            self->read_header();
                                    });
        } else {
            read_header();
        }
    }

    void close() override { lowest().close(); }
    bool is_idle() const override { return is_idle_; }

    // ---- Listener ----

    void send(Text text) override
    {
        waiting_bytes_ += text->size();
        waiting_.push_back(std::move(text));
        if (waiting_bytes_ > kWaitingBytes)
            return close(); // he comes again, and hears what he missed
        if (waiting_.size() == 1)
            write_next();
    }

    void end() override
    {
        ends_ = true;
        if (waiting_.empty())
            close();
    }

  private:
    using Parser = http::request_parser<http::string_body>;

    auto &lowest() { return beast::get_lowest_layer(stream_); }

    void read_header()
    {
        parser_.emplace();
        request_ = {};
        parser_->header_limit(kHeaderBytes);
        parser_->body_limit(kDocumentBytes);
        lowest().expires_after(kHeader);
        is_idle_ = true;
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = this->shared_from_this()](error_code error, std::size_t) {
                                    self->is_idle_ = false;
                                    if (error)
                                        return self->refuse_input(error);
                                    self->read_body();
                                });
    }

    // A stranger has nothing to say but who he is.
    std::uint64_t most_body_bytes(const Request &request)
    {
        if (!state_->site.services.sessions.find(request.token))
            return kStrangersBytes;
        const Route *route = route_of(request.method, request.path);
        return route && route->takes_document ? kDocumentBytes : kBodyBytes;
    }

    void read_body()
    {
        request_ = request_in(parser_->get());
        keep_alive_ = parser_->get().keep_alive();
        if (is_ambiguous(parser_->get()))
            return refuse_input(http::error::bad_field);
        const std::uint64_t most = most_body_bytes(request_);
        const auto length = parser_->content_length();
        if (length && *length > most)
            return refuse_input(http::error::body_limit);
        parser_->body_limit(most);
        if (parser_->is_done())
            return handle();
        lowest().expires_after(kBody);
        if (view(parser_->get()[http::field::expect]) == "100-continue")
            asio::async_write(stream_, asio::buffer(kContinue, sizeof kContinue - 1),
                              [self = this->shared_from_this()](error_code error, std::size_t) {
                                  if (!error)
                                      self->read_rest();
                              });
        else
            read_rest();
    }

    void read_rest()
    {
        http::async_read(stream_, buffer_, *parser_,
                         [self = this->shared_from_this()](error_code error, std::size_t) {
                             if (error)
                                 return self->refuse_input(error);
                             self->handle();
                         });
    }

    // Of what is no HTTP, and of what is too much, nothing more is looked at.
    void refuse_input(error_code error)
    {
        keep_alive_ = false;
        is_input_left_ = true;
        if (error == http::error::header_limit)
            write(answer_of(Problem{431, "the header is too long"}));
        else if (error == http::error::body_limit)
            write(answer_of(Problem{413, "the body is too long"}));
        else if (error.category() == make_error_code(http::error::bad_method).category() &&
                 error != http::error::end_of_stream && error != http::error::partial_message)
            write(answer_of(Problem{400, "this is no HTTP that is understood here"}));
    }

    Request request_in(const http::request<http::string_body> &message) const
    {
        Request request;
        request.method = std::string(message.method_string());
        request.client = client_;
        take_target(view(message.target()), request);
        take_credentials(view(message[http::field::authorization]), view(message[http::field::cookie]),
                         request);
        request.last_event_id = std::string(message["Last-Event-ID"]);
        request.known_version = std::string(message[http::field::if_none_match]);
        return request;
    }

    Origin origin() const
    {
        const auto &message = parser_->get();
        return {.host = view(message[http::field::host]),
                .origin = view(message[http::field::origin]),
                .fetch_site = view(message["Sec-Fetch-Site"]),
                .fetch_mode = view(message["Sec-Fetch-Mode"]),
                .changes = request_.method != "GET" && request_.method != "HEAD",
                .is_page = !is_api_path(request_.path),
                .is_public = request_.path == kPublicFile,
                .has_cookie = request_.has_cookie};
    }

    void handle()
    {
        lowest().expires_never();
        request_.body = std::move(parser_->get().body());
        try {
            state_->site.gate.check(origin());
            if (is_api_path(request_.path))
                return hand_over();
            if (request_.method != "GET" && request_.method != "HEAD")
                throw Problem{.status = 405, .detail = "not with this method", .allowed = "GET, HEAD"};
            write(state_->site.files.get(request_));
        } catch (const Problem &problem) {
            write(answer_of(problem));
        }
    }

    Pool &lane()
    {
        const Route *route = route_of(request_.method, request_.path);
        const Site &site = state_->site;
        if (route && route->lane == Lane::login)
            return site.login;
        return route && route->lane == Lane::slow ? site.slow : site.quick;
    }

    void hand_over()
    {
        const bool is_login = &lane() == &state_->site.login;
        if (is_login && !state_->begin_login(place_))
            throw Problem{.status = 503, .detail = "too many log-ins from there wait", .retry_after = 1};
        // The thread that works must not be the last to let go of us.
        const auto holder = std::make_shared<std::shared_ptr<Connection>>(this->shared_from_this());
        const bool is_added = lane().add([holder, is_login, &loop = state_->loop] {
            auto made =
                std::make_shared<Answer>(answer((*holder)->state_->site.services, (*holder)->request_));
            asio::post(loop, [self = std::move(*holder), made, is_login] {
                if (is_login)
                    self->state_->end_login(self->place_);
                self->write(std::move(*made));
            });
        });
        if (is_added)
            return;
        if (is_login)
            state_->end_login(place_);
        throw Problem{.status = 503, .detail = "too many requests wait", .retry_after = 1};
    }

    template <class Message>
    void add_headers(const Answer &answer, Message &message)
    {
        message.set(http::field::server, "qvweb");
        message.set(http::field::content_type, answer.type);
        for (const auto &[name, value] : kHeaders)
            message.set(name, value);
        if constexpr (kIsTls<Stream>)
            message.set("Strict-Transport-Security", kStrictTransport);
        message.set(http::field::cache_control, "no-store");
        for (const auto &[name, value] : answer.headers)
            message.set(name, value);
    }

    void write(Answer answer)
    {
        if (answer.is_stream && request_.method != "HEAD")
            return begin_stream(answer);
        const bool has_body = answer.status != 204 && answer.status != 304;
        auto message =
            std::make_shared<http::response<http::string_body>>(static_cast<http::status>(answer.status), 11);
        add_headers(answer, *message);
        if (!has_body)
            message->erase(http::field::content_type);
        message->keep_alive(keep_alive_);
        const std::size_t size = answer.body.size();
        if (has_body && request_.method != "HEAD")
            message->body() = std::move(answer.body);
        if (has_body)
            message->content_length(size);
        lowest().expires_after(kWriting);
        http::async_write(stream_, *message,
                          [self = this->shared_from_this(), message](error_code error, std::size_t) {
                              if (error || !self->keep_alive_)
                                  return self->finish();
                              self->read_header();
                          });
    }

    // The other side gets all that was written before it sees the end, also when it is still sending.
    void finish()
    {
        lowest().expires_after(kFarewell);
        if (is_input_left_)
            return drain(kDocumentBytes * 2);
        error_code ignored;
        if constexpr (kIsTls<Stream>)
            stream_.async_shutdown([self = this->shared_from_this()](error_code) {});
        else
            lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
    }

    void drain(std::size_t left)
    {
        buffer_.clear();
        lowest().async_read_some(buffer_.prepare(std::size_t{16} * 1024),
                                 [self = this->shared_from_this(), left](error_code error, std::size_t got) {
                                     if (!error && got < left)
                                         self->drain(left - got);
                                 });
    }

    // ---- Streams of events ----

    // Without a length: it ends with the connection.
    void begin_stream(const Answer &answer)
    {
        http::response<http::empty_body> message(http::status::ok, 11);
        add_headers(answer, message);
        message.set(http::field::connection, "close");
        std::ostringstream header;
        header << message.base();
        send(std::make_shared<const std::string>(header.str()));
        const auto who = state_->site.services.sessions.find(request_.token);
        if (!who || !state_->site.services.events.listen(*who, digest_of(request_.token),
                                                         request_.last_event_id, this->shared_from_this()))
            return end();
        watch_for_end();
    }

    // A browser that goes says nothing more.
    void watch_for_end()
    {
        stream_.async_read_some(buffer_.prepare(1024),
                                [self = this->shared_from_this()](error_code error, std::size_t) {
                                    if (error)
                                        return self->close();
                                    self->watch_for_end();
                                });
    }

    void write_next()
    {
        asio::async_write(stream_, asio::buffer(*waiting_.front()),
                          [self = this->shared_from_this()](error_code error, std::size_t) {
                              if (error)
                                  return self->close();
                              self->waiting_bytes_ -= self->waiting_.front()->size();
                              self->waiting_.pop_front();
                              if (!self->waiting_.empty())
                                  self->write_next();
                              else if (self->ends_)
                                  self->close();
                          });
    }

    std::shared_ptr<State> state_;
    const std::string place_;
    const std::string client_;
    Stream stream_;
    beast::flat_buffer buffer_;
    std::optional<Parser> parser_;
    Request request_;
    bool keep_alive_ = false;
    bool is_idle_ = true;
    bool is_input_left_ = false;

    std::deque<Text> waiting_; // of a stream
    std::size_t waiting_bytes_ = 0;
    bool ends_ = false;
};

void Server::State::use(const Certificate &certificate)
{
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
    tcp::acceptor acceptor(loop);
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
        const auto pause = std::make_shared<asio::steady_timer>(self->loop, std::chrono::milliseconds(100));
        pause->async_wait([self, &acceptor, pause](error_code) {
            if (!self->stopped_)
                self->accept(acceptor);
        });
    });
}

// Who waits for nothing goes first.
bool Server::State::make_room()
{
    if (guests_.size() < limits_.connections)
        return true;
    for (const auto &[guest, weak] : guests_) {
        if (guest->is_idle()) {
            guest->close();
            return true;
        }
    }
    return false;
}

void Server::State::take(tcp::socket socket)
{
    error_code error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    if (error)
        return;
    const std::string place = place_of(peer.address());
    if (places_[place].guests >= limits_.of_one_address || !make_room()) {
        if (places_[place].guests == 0)
            places_.erase(place);
        return;
    }
    socket.set_option(tcp::no_delay(true), error);
    const std::string client = text_of_address(peer.address().to_string());
    const auto begin = [&](auto connection) {
        add(place, connection);
        connection->start();
    };
    using Tls = beast::ssl_stream<beast::tcp_stream>;
    if (tls)
        begin(std::make_shared<Connection<Tls, State>>(shared_from_this(), place, client, std::move(socket),
                                                       *tls));
    else
        begin(std::make_shared<Connection<beast::tcp_stream, State>>(shared_from_this(), place, client,
                                                                     std::move(socket)));
}

void Server::State::stop()
{
    stopped_ = true;
    for (tcp::acceptor &acceptor : acceptors_) {
        error_code ignored;
        acceptor.close(ignored);
    }
    const auto guests = guests_;
    for (const auto &[guest, weak] : guests) {
        if (const auto alive = weak.lock())
            alive->close();
    }
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
