#include "platform/remote.h"

#include "platform/socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sys/socket.h>

namespace qvcd {

namespace {

constexpr std::chrono::seconds kConnectTimeout{2};
constexpr std::chrono::seconds kAnswerTimeout{3};
constexpr std::size_t kMaxAnswerLine = std::size_t{1} << 20; // a longer line is no answer of a daemon of ours

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
            code_ = std::max(0, static_cast<int>(std::strtol(std::string(line).c_str(), nullptr, 10)));
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

bool receive(int socket, Answer &answer, Deadline deadline)
{
    std::array<char, 4096> block;
    while (!answer.code()) {
        if (poll_until(socket, POLLIN, deadline) <= 0)
            return false;
        const ssize_t n = recv(socket, block.data(), block.size(), MSG_DONTWAIT);
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
    const Fd socket = connect_tcp(address, port, kConnectTimeout);
    if (!socket)
        return -1;
    const Deadline deadline = deadline_in(kAnswerTimeout);
    const std::string request = "qvcd 0 " + std::to_string(flags) + "\n" + command + "\n\n";
    Answer answer(limit);
    if (!send_all(socket.get(), request, kAnswerTimeout) || !receive(socket.get(), answer, deadline))
        return -1;
    reply = answer.text();
    return *answer.code();
}

} // namespace qvcd
