#include "client/local_commands.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include "client/errors.h"
#include "client/escape.h"

namespace qvcd::client {

namespace {

enum class Format { text, json };

// SIGINT as something to poll for, even where a shell started us with the signal ignored, as it does in the
// background. At the end everything is as before.
class InterruptSignal {
  public:
    InterruptSignal()
    {
        struct sigaction by_default {};
        by_default.sa_handler = SIG_DFL;
        sigaction(SIGINT, &by_default, &action_before_);
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        sigprocmask(SIG_BLOCK, &interrupt, &mask_before_);
        fd_.reset(signalfd(-1, &interrupt, SFD_CLOEXEC));
    }
    ~InterruptSignal()
    {
        signalfd_siginfo taken{};
        if (arrived_ && read(fd_.get(), &taken, sizeof taken) < 0)
            std::perror("qvc: signalfd");
        sigaction(SIGINT, &action_before_, nullptr);
        sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    }
    InterruptSignal(const InterruptSignal &) = delete;
    InterruptSignal &operator=(const InterruptSignal &) = delete;

    // True when `socket` has something to read, false when the signal came.
    bool wait_for_input(const Fd &socket)
    {
        std::array<pollfd, 2> wanted{pollfd{socket.get(), POLLIN, 0}, pollfd{fd_.get(), POLLIN, 0}};
        while (poll(wanted.data(), wanted.size(), -1) < 0 && errno == EINTR)
            continue;
        arrived_ = (wanted[1].revents & POLLIN) != 0;
        return !arrived_;
    }

  private:
    Fd fd_;
    struct sigaction action_before_ {};
    sigset_t mask_before_{};
    bool arrived_ = false;
};

Format output_format(const Options &options, const Words &words)
{
    if (!options.endpoint.local())
        throw UsageError("watch works on the local socket only, without -H");
    if (words.size() == 1)
        return Format::text;
    if (words.size() == 2 && words[1] == "--json")
        return Format::json;
    throw UsageError("watch takes no argument but --json");
}

void print_event(const std::string &json, Format format)
{
    try {
        print_line(format == Format::json ? json : event_text(json));
    } catch (const std::exception &) {
        std::fprintf(stderr, "qvc: not an event: %s\n", url_escape(json).c_str());
    }
}

void print_whole_lines(std::string &text, Format format)
{
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        print_event(text.substr(start, end - start), format);
    text.erase(0, start);
    std::fflush(stdout);
}

} // namespace

std::string event_text(const std::string &json)
{
    const nlohmann::json event = nlohmann::json::parse(json);
    std::string text;
    for (const char c : event.at("event").get<std::string>() + " " + event.at("payload").get<std::string>()) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            text += url_escape({&c, 1});
        else
            text += c;
    }
    return text;
}

int run_watch(const Options &options, const Words &words)
{
    const Format format = output_format(options, words);
    InterruptSignal interrupt;
    const Fd socket = connect_local("notify", options.timeout);
    std::string pending;
    std::array<char, 65536> buffer;
    while (interrupt.wait_for_input(socket)) {
        const ssize_t got = recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw WireError("the daemon ended the stream of events");
        pending.append(buffer.data(), static_cast<std::size_t>(got));
        print_whole_lines(pending, format);
    }
    return 0;
}

} // namespace qvcd::client
