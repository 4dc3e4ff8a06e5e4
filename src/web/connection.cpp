// The only source that writes and reads HTTP.

#include "web/connection.h"

#include "web/digest.h"
#include "web/event_hub.h"
#include "web/http_message.h"
#include "web/pool.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <deque>

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
constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";

template <class Stream>
constexpr bool kIsTls = !std::is_same_v<Stream, beast::tcp_stream>;

// One connection. Everything happens on the thread of the loop but the handlers, which get copies.
template <class Stream>
class Connection : public Guest, public Listener, public std::enable_shared_from_this<Connection<Stream>> {
  public:
    template <class... More>
    Connection(std::shared_ptr<Around> around, std::string place, std::string client, tcp::socket socket,
               More &...more)
        : around_(std::move(around)), place_(std::move(place)), client_(std::move(client)),
          stream_(std::move(socket), more...)
    {
    }
    ~Connection() override { around_->guests.leave(place_, this); }

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
        if (!around_->site.services.sessions.find(request.token))
            return kStrangersBytes;
        const Route *route = route_of(request.method, request.path);
        return route && route->takes_document ? kDocumentBytes : kBodyBytes;
    }

    void read_body()
    {
        request_ = request_of(parser_->get(), client_);
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
        if (parser_->get()[http::field::expect] == "100-continue")
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

    void handle()
    {
        lowest().expires_never();
        request_.body = std::move(parser_->get().body());
        try {
            around_->site.gate.check(origin_of(parser_->get(), request_));
            if (is_api_path(request_.path))
                return hand_over();
            if (request_.method != "GET" && request_.method != "HEAD")
                throw Problem{.status = 405, .detail = "not with this method", .allowed = "GET, HEAD"};
            write(around_->site.files.get(request_));
        } catch (const Problem &problem) {
            write(answer_of(problem));
        }
    }

    Pool &lane()
    {
        const Route *route = route_of(request_.method, request_.path);
        const Site &site = around_->site;
        if (route && route->lane == Lane::login)
            return site.login;
        return route && route->lane == Lane::slow ? site.slow : site.quick;
    }

    void hand_over()
    {
        const bool is_login = &lane() == &around_->site.login;
        if (is_login && !around_->guests.begin_login(place_))
            throw Problem{.status = 503, .detail = "too many log-ins from there wait", .retry_after = 1};
        // The thread that works must not be the last to let go of us.
        const auto holder = std::make_shared<std::shared_ptr<Connection>>(this->shared_from_this());
        const bool is_added = lane().add([holder, is_login, &loop = around_->loop] {
            auto made =
                std::make_shared<Answer>(answer((*holder)->around_->site.services, (*holder)->request_));
            asio::post(loop, [self = std::move(*holder), made, is_login] {
                if (is_login)
                    self->around_->guests.end_login(self->place_);
                self->write(std::move(*made));
            });
        });
        if (is_added)
            return;
        if (is_login)
            around_->guests.end_login(place_);
        throw Problem{.status = 503, .detail = "too many requests wait", .retry_after = 1};
    }

    void write(Answer answer)
    {
        if (answer.is_stream && request_.method != "HEAD")
            return begin_stream(answer);
        const auto message = std::make_shared<HttpResponse>(
            response_of(std::move(answer), request_, kIsTls<Stream>, keep_alive_));
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
        error_code ignored;
        if constexpr (!kIsTls<Stream>)
            lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
        if (is_input_left_)
            return drain(kDocumentBytes * 2);
        if constexpr (kIsTls<Stream>)
            stream_.async_shutdown([self = this->shared_from_this()](error_code) {});
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
        send(std::make_shared<const std::string>(stream_header(answer, kIsTls<Stream>)));
        const auto who = around_->site.services.sessions.find(request_.token);
        if (!who || !around_->site.services.events.listen(*who, digest_of(request_.token),
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

    std::shared_ptr<Around> around_;
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

} // namespace

void begin_connection(const std::shared_ptr<Around> &around, const std::string &place, std::string client,
                      tcp::socket socket)
{
    const auto begin = [&](const auto &connection) {
        around->guests.add(place, connection);
        connection->start();
    };
    using Tls = beast::ssl_stream<beast::tcp_stream>;
    if (around->tls)
        begin(std::make_shared<Connection<Tls>>(around, place, std::move(client), std::move(socket),
                                                *around->tls));
    else
        begin(std::make_shared<Connection<beast::tcp_stream>>(around, place, std::move(client),
                                                              std::move(socket)));
}

} // namespace qvcd::web
