#include "client/batch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <poll.h>
#include <unistd.h>

#include "client/careful.h"
#include "client/command.h"
#include "client/command_check.h"
#include "client/errors.h"
#include "client/given_values.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/typed_line.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 20; // bytes not sent yet; beyond, input is left alone

// Standard input, turned into lines of the wire.
class CommandInput {
  public:
    explicit CommandInput(const Options &options) : options_(options) {}

    bool at_end() const { return at_end_; }
    bool last_line_was_wrong() const { return wrong_; }

    // For the replies, from the end of the input on.
    std::chrono::milliseconds time_limit() const { return time_limit_; }

    // Reads what is there and appends the commands in it, and after the last one the empty line.
    void read_into(std::string &request)
    {
        std::array<char, 65536> buffer;
        const ssize_t got = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (got < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        pending_.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got <= 0 && !pending_.empty())
            pending_ += '\n';
        take_lines(request);
        if (got <= 0)
            finish(request);
    }

  private:
    void take_lines(std::string &request)
    {
        std::size_t start = 0;
        for (std::size_t end = 0; !at_end_ && (end = pending_.find('\n', start)) != std::string::npos;
             start = end + 1)
            take_line(pending_.substr(start, end - start), request);
        pending_.erase(0, start);
    }

    void take_line(const std::string &line, std::string &request)
    {
        number_++;
        try {
            Words words = split_typed_line(line);
            if (words.empty())
                return;
            wrong_ = false;
            if (words[0] == "quit" || words[0] == "exit")
                return finish(request);
            check_command(options_, words);
            if (is_client_only(words[0]))
                throw UsageError(words[0] + " cannot be used here");
            if (!is_wanted(options_, words))
                return;
            words = with_given_values(options_, std::move(words), Source::input);
            for (const std::string &wire : wire_lines(options_.json ? in_json(words) : words))
                request += wire + "\n";
            time_limit_ = std::max(time_limit_, options_.limits(words[0]).whole);
        } catch (const UsageError &error) {
            wrong_ = true;
            std::fprintf(stderr, "qvc: line %zu: %s\n", number_, error.what());
        }
    }

    void finish(std::string &request)
    {
        if (!at_end_)
            request += "\n";
        at_end_ = true;
    }

    const Options &options_;
    std::chrono::milliseconds time_limit_ = options_.limits("").whole;
    std::string pending_;
    std::size_t number_ = 0;
    bool at_end_ = false;
    bool wrong_ = false;
};

// One wait for whatever can go on: input, sending, or the reply.
void exchange(Channel &channel, CommandInput &input, std::string &request, ReplyParser &parser,
              std::optional<Deadline> deadline)
{
    const short reading = channel.read_events();
    const short sending = channel.write_events();
    const bool wants_input = !input.at_end() && request.size() < kMostWaiting;
    std::array<pollfd, 2> wanted{
        pollfd{channel.fd(), static_cast<short>(request.empty() ? reading : reading | sending), 0},
        pollfd{wants_input ? STDIN_FILENO : -1, POLLIN, 0}};
    const int ready = poll(wanted.data(), wanted.size(), deadline ? milliseconds_left(*deadline) : -1);
    if (ready == 0)
        throw WireError("no answer within the time limit");
    if (ready < 0)
        return;
    if (wanted[1].revents != 0)
        input.read_into(request);
    if (!request.empty() && (wanted[0].revents & sending) != 0)
        send_some(channel, request);
    if ((wanted[0].revents & (reading | POLLHUP | POLLERR)) != 0) {
        receive_some(channel, parser);
        std::fflush(stdout);
    }
}

} // namespace

int run_batch(const Options &options)
{
    Channel channel = connect_to(options.endpoint, options.limits("").connect);
    CommandInput input(options);
    std::string request = greeting(options.session);
    ReplyParser parser(print_line);
    std::optional<Deadline> deadline;
    while (!parser.result()) {
        if (input.at_end() && !deadline)
            deadline = deadline_in(input.time_limit());
        exchange(channel, input, request, parser, deadline);
    }
    return input.last_line_was_wrong() ? kExitUsage : exit_status(*parser.result());
}

} // namespace qvcd::client
