#include "platform/remote.h"

#include "platform/fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <netdb.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kConnectTimeout{2};
constexpr std::chrono::seconds kAnswerTimeout{3};
constexpr std::size_t kMaxAnswerLine = std::size_t{1} << 20; // a longer line is no answer of a daemon of ours

// False when the time is over.
bool wait_for(const Fd &socket, short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd entry{socket.get(), events, 0};
        const int n = poll(&entry, 1, static_cast<int>(left.count()));
        if (n > 0)
            return true;
        if (n < 0 && errno != EINTR)
            return false;
    }
}

Fd connect_to(const addrinfo &target, Clock::time_point deadline)
{
    Fd socket(::socket(target.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket)
        return {};
    if (connect(socket.get(), target.ai_addr, target.ai_addrlen) == 0)
        return socket;
    if (errno != EINPROGRESS || !wait_for(socket, POLLOUT, deadline))
        return {};
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
        return {};
    return socket;
}

Fd connect_to(const std::string &address, const std::string &port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo *found = nullptr;
    if (getaddrinfo(address.c_str(), port.c_str(), &hints, &found) != 0)
        return {};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    return connect_to(*found, Clock::now() + kConnectTimeout);
}

bool send_all(const Fd &socket, std::string_view text, Clock::time_point deadline)
{
    while (!text.empty()) {
        const ssize_t n = send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
        if (n >= 0)
            text.remove_prefix(static_cast<std::size_t>(n));
        else if (errno == EAGAIN ? !wait_for(socket, POLLOUT, deadline) : errno != EINTR)
            return false;
    }
    return true;
}

// Takes an answer apart, line by line, as it comes in.
class Answer {
  public:
    explicit Answer(std::size_t limit) : limit_(limit) {}

    /// False when this cannot be an answer.
    bool add(std::string_view block)
    {
        rest_ += block;
        std::size_t start = 0;
        for (std::size_t end; !code_ && (end = rest_.find('\n', start)) != std::string::npos; start = end + 1)
            take_line(std::string_view(rest_).substr(start, end + 1 - start));
        rest_.erase(0, start);
        return rest_.size() <= kMaxAnswerLine;
    }

    std::optional<int> code() const { return code_; }
    const std::string &text() const { return text_; }

  private:
    void take_line(std::string_view line)
    {
        if (marked_)
            code_ = std::atoi(std::string(line).c_str());
        else if (line == "@\n")
            marked_ = true;
        else
            text_ += line.substr(0, limit_ - std::min(limit_, text_.size()));
    }

    std::size_t limit_;
    std::string rest_; // of a line whose end has not come yet
    std::string text_;
    bool marked_ = false; // the next line is the code
    std::optional<int> code_;
};

bool receive(const Fd &socket, Answer &answer, Clock::time_point deadline)
{
    std::array<char, 4096> block;
    while (!answer.code()) {
        if (!wait_for(socket, POLLIN, deadline))
            return false;
        const ssize_t n = recv(socket.get(), block.data(), block.size(), 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0 || !answer.add({block.data(), static_cast<std::size_t>(n)}))
            return false;
    }
    return true;
}

} // namespace

int qvcd_remote_buf_send_command(const std::string &address, const std::string &port, int flags,
                                 const std::string &command, std::string &reply, std::size_t limit)
{
    reply.clear();
    if (command.find('\n') != std::string::npos)
        return -1;
    const Fd socket = connect_to(address, port);
    if (!socket)
        return -1;
    const auto deadline = Clock::now() + kAnswerTimeout;
    const std::string request = "qvcd 0 " + std::to_string(flags) + "\n" + command + "\n\n";
    Answer answer(limit);
    if (!send_all(socket, request, deadline) || !receive(socket, answer, deadline))
        return -1;
    reply = answer.text();
    return *answer.code();
}

} // namespace qvcd
