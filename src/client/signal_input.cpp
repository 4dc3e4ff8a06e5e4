#include "client/signal_input.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace qvcd::client {

SignalInput::SignalInput(std::initializer_list<int> signals)
{
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : signals) {
        struct sigaction before {};
        sigaction(signal, &by_default, &before);
        actions_before_.emplace_back(signal, before);
        sigaddset(&blocked, signal);
    }
    sigprocmask(SIG_BLOCK, &blocked, &mask_before_);
    fd_.reset(signalfd(-1, &blocked, SFD_CLOEXEC));
}

SignalInput::~SignalInput()
{
    signalfd_siginfo taken{};
    if (arrived_ && read(fd_.get(), &taken, sizeof taken) < 0)
        std::perror("qvc: signalfd");
    for (const auto &[signal, action] : actions_before_)
        sigaction(signal, &action, nullptr);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
}

SignalInput::Came SignalInput::wait(int fd, int milliseconds)
{
    std::array<pollfd, 2> wanted{pollfd{fd, POLLIN, 0}, pollfd{fd_.get(), POLLIN, 0}};
    while (poll(wanted.data(), wanted.size(), milliseconds) < 0 && errno == EINTR)
        continue;
    arrived_ = (wanted[1].revents & POLLIN) != 0;
    if (arrived_)
        return Came::signal;
    return wanted[0].revents != 0 ? Came::input : Came::nothing;
}

} // namespace qvcd::client
