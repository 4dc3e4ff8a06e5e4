#include "daemon/request_server.h"

#include "auth/server_login.h"
#include "auth/session.h"
#include "base/command_lock.h"
#include "base/document.h"
#include "base/reply.h"
#include "commands/cmd_parse.h"
#include "platform/event_queue.h"
#include "platform/line_server.h"
#include "platform/log.h"
#include "store/meta.h"

#include <array>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

constexpr char kEventsLost[] = "##Events were lost: too many came, or the client did not read them#";
constexpr char kSessionChanged[] = "##The session has ended, or its rights have changed#";
constexpr std::size_t kFirstLineBytes = 255;     // what is behind them is the first command line
constexpr std::size_t kStrangerLineBytes = 8192; // of who can do little but log in, with the longest password

// What was answered goes out before a command waits: the command may end the daemon or cut the network.
class ConnectionWaits final : public WaitHooks {
  public:
    explicit ConnectionWaits(LineConnection &connection) : connection_(connection) {}
    void before_waiting() noexcept override { connection_.begin_wait(); }
    void after_waiting() noexcept override { connection_.end_wait(); }
    bool can_wait() noexcept override { return connection_.can_wait(); }
    std::size_t unsent() noexcept override { return connection_.unsent(); }

  private:
    LineConnection &connection_;
};

// One conversation: a line that identifies the caller (or asks "?" for a sign of life), command lines up to
// an empty line, then the end mark "@" and the last command's result; 1 for a connection that is ended for
// its behaviour.
class RequestHandler final : public LineHandler {
  public:
    explicit RequestHandler(Caller caller) : caller_(std::move(caller))
    {
        caller_.document = &document_;
        caller_.events = &events_;
    }
    ~RequestHandler() override { stop_listening(); }
    RequestHandler(const RequestHandler &) = delete;
    RequestHandler &operator=(const RequestHandler &) = delete;

    Next line(std::string_view line, LineConnection &connection) override
    {
        if (!identified_)
            return identify(line, connection);
        if (line == "\n")
            return close(connection, result_);
        if (caller_.stranger && line.size() == kStrangerLineBytes && line.back() != '\n') {
            qv_log_print(kLogDebug, "connection closed: the line of a stranger is too long\n");
            return close(connection, 1);
        }
        if (use_)
            use_->note();
        stop_listening();
        const LogSource source(caller_.source, is_privileged());
        ConnectionWaits waits(connection);
        result_ = cmd_parse(mask_, line, connection.out(), &waits, caller_);
        document_.drop_old();
        if (events_)
            start_listening(connection);
        return document_.is_refused() ? close(connection, 1) : Next::go_on;
    }

    std::size_t raw_bytes() const override { return document_.missing(); }
    std::size_t held() const override { return document_.held() + (events_ ? events_->held() : 0); }
    Next raw(std::string_view bytes, LineConnection &connection) override
    {
        document_.add(bytes);
        if (!document_.is_refused())
            return Next::go_on;
        reply_line(connection.out(), "##The document does not end where it should#");
        return close(connection, 1);
    }

    bool is_listening() const override { return events_ != nullptr; }
    bool has_news() const override { return events_ && events_->has_news(); }
    Next news(LineConnection &connection) override
    {
        const EventQueue::News news = events_->take();
        reply_text(connection.out(), news.lines);
        if (news.end == EventQueue::End::none)
            return Next::go_on;
        const bool is_lost = news.end == EventQueue::End::lost;
        reply_line(connection.out(), is_lost ? kEventsLost : kSessionChanged);
        return close(connection, 1);
    }

    void end(End why, LineConnection &connection) override
    {
        if (why == End::input && !identified_ && identify("", connection) == Next::close)
            return;
        close(connection, identified_ && why != End::bad ? result_ : 1);
    }

    std::size_t max_line_bytes() const override
    {
        return !identified_ ? kFirstLineBytes : caller_.stranger ? kStrangerLineBytes : kMaxLineBytes;
    }
    bool is_privileged() const override
    {
        return identified_ ? (mask_ & kLevel1Bits) != 0 : caller_.local && caller_.trusted;
    }

  private:
    static Next close(LineConnection &connection, int result)
    {
        reply_printf(connection.out(), "@\n%d\n", result);
        return Next::close;
    }

    Next identify(std::string_view line, LineConnection &connection)
    {
        const LogSource source(caller_.source, is_privileged());
        if (line.starts_with('?')) {
            reply_text(connection.out(), "!\n");
            return Next::close;
        }
        const Admission admission = admit(line, connection);
        if (!admission.admitted()) {
            if (!admission.refusal.empty())
                reply_line(connection.out(), admission.refusal);
            return close(connection, 1);
        }
        mask_ = admission.mask;
        use_ = admission.use;
        changes_ = admission.changes;
        if (use_)
            use_->note();
        caller_.stranger = admission.stranger;
        caller_.session = admission.session;
        caller_.user = admission.user;
        caller_.client = client_of(line);
        identified_ = true;
        return Next::go_on;
    }

    Admission admit(std::string_view line, LineConnection &connection)
    {
        const Peer &peer = connection.peer();
        if (!peer.relayed)
            return server_login(line, caller_, peer.certificate_user);
        ConnectionWaits waits(connection);
        return relayed_login(line, caller_, peer.login, &waits);
    }

    void start_listening(LineConnection &connection)
    {
        if (use_)
            use_->listen(1);
        events_->serve(connection.waker(),
                       [use = use_, changes = changes_] { return !use || use->changes() == changes; });
    }

    void stop_listening()
    {
        if (events_ && use_)
            use_->listen(-1);
        events_.reset();
    }

    Caller caller_;
    std::shared_ptr<EventQueue> events_;
    Document document_;
    bool identified_ = false;
    unsigned mask_ = 0;
    std::shared_ptr<SessionUse> use_;
    unsigned changes_ = 0; // of the session's rights, when the connection got them
    int result_ = 0;
};

std::unique_ptr<LineServer> the_server;

// Descriptors for all connections, where the system lets us have them.
void raise_descriptor_limit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

int socket_init(int port, Trust trust, std::shared_ptr<const TlsContext> tls, ServerLimits limits)
{
    raise_descriptor_limit();
    trust.set_group(qv_socket_group());
    std::optional<UnixListener> local = listen_unix("qvcd", SocketMode::of_all);
    if (!local)
        return -1;
    the_server = std::make_unique<LineServer>(
        [trust = std::move(trust)](const Peer &peer) {
            return std::make_unique<RequestHandler>(trust.caller(peer));
        },
        limits);
    the_server->listen(std::move(*local));
    if (Fd tcp = port != 0 ? listen_tcp("0.0.0.0", port) : Fd())
        the_server->listen(std::move(tcp), std::move(tls));
    return the_server->start() ? 0 : -1;
}

Fd socket_open(Peer peer)
{
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0)
        return {};
    Fd ours(ends[0]);
    the_server->adopt(Fd(ends[1]), std::move(peer));
    return ours;
}

bool socket_exit(std::chrono::milliseconds patience)
{
    const bool ended = !the_server || the_server->stop(patience);
    the_server.reset();
    return ended;
}

} // namespace qvcd
