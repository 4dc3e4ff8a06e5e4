#include "qvclient/exchange.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <unistd.h>

#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

constexpr std::chrono::milliseconds kTick{250};

class Exchange {
  public:
    Exchange(Channel channel, const Caller &caller, Request request, const LineSink &sink,
             const Watcher &watcher)
        : channel_(std::move(channel)), request_(std::move(request)), sink_(sink), watcher_(watcher),
          parser_([this](std::string_view line) { take_line(line); }), waiting_(greeting(caller))
    {
        if (request_.document)
            waiting_ += "document " + std::to_string(request_.document->size()) + "\n";
        else
            waiting_ += request_.lines + "\n";
    }

    int run(Deadline deadline)
    {
        do {
            const std::size_t before = waiting_.size();
            send();
            if (watcher_.patience && before != waiting_.size())
                deadline = deadline_in(*watcher_.patience);
        } while (wait(deadline) && receive(deadline));
        return *parser_.result();
    }

  private:
    // The daemon says first that it takes the document: nothing of it goes to one that does not.
    void take_line(std::string_view line)
    {
        progress_.received += line.size() + 1;
        if (!request_.document || line.substr(0, line.find('=')) != "Document")
            return sink_(line);
        progress_.all = request_.document->size();
        waiting_ += *request_.document + "\n" + request_.lines + "\n";
        request_.document.reset();
    }

    // When the other side has closed, what it answered before can still be read.
    void send()
    {
        if (waiting_.empty())
            return;
        const ssize_t sent = channel_.write(waiting_);
        if (sent >= 0)
            waiting_.erase(0, static_cast<std::size_t>(sent));
        else if (errno == EPIPE || errno == ECONNRESET)
            waiting_.clear();
        else if (errno != EAGAIN && errno != EINTR)
            throw WireError("cannot send: " + channel_.problem());
    }

    // Until something can go on. False at the deadline, when all but the end of the connection is there.
    bool wait(Deadline deadline)
    {
        const auto sending = waiting_.empty() ? 0 : channel_.write_events();
        const auto events = static_cast<short>(channel_.read_events() | sending);
        while (milliseconds_left(deadline) > 0) {
            const bool came =
                has_come(channel_, events, watcher_.show ? std::min(deadline, deadline_in(kTick)) : deadline);
            progress_.sent = progress_.all - std::min(progress_.all, waiting_.size());
            if (watcher_.show)
                watcher_.show(progress_);
            if (came)
                return true;
        }
        if (!parser_.result())
            throw WireError("no answer within the time limit", WireError::Kind::timeout);
        return false;
    }

    // All that is there, but no longer than the deadline. False at the end of the connection.
    bool receive(Deadline deadline)
    {
        std::array<char, 65536> buffer;
        ssize_t got = 0;
        while ((got = channel_.read(buffer.data(), buffer.size())) > 0) {
            parser_.feed({buffer.data(), static_cast<std::size_t>(got)});
            if (milliseconds_left(deadline) == 0)
                return true;
        }
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            return true;
        if (parser_.result())
            return false;
        throw WireError(got == 0 ? "the daemon closed the connection before the end of its reply"
                                 : "the connection broke before the end of the reply: " + channel_.problem());
    }

    Channel channel_;
    Request request_;
    const LineSink &sink_;
    const Watcher &watcher_;
    ReplyParser parser_;
    std::string waiting_; // to be sent
    Progress progress_;
};

} // namespace

std::string greeting(const Caller &caller)
{
    return caller.name + " " + std::to_string(caller.session) + " " + std::to_string(getpid()) + "\n";
}

int exchange(Channel channel, const Caller &caller, Request request, Deadline deadline, const LineSink &sink,
             const Watcher &watcher)
{
    return Exchange(std::move(channel), caller, std::move(request), sink, watcher).run(deadline);
}

int ask(Channel channel, const Caller &caller, const std::vector<std::string> &lines, Deadline deadline,
        const LineSink &sink)
{
    Request request;
    for (const std::string &line : lines)
        request.lines += line + "\n";
    return exchange(std::move(channel), caller, std::move(request), deadline, sink);
}

} // namespace qvcd::client
