#pragma once

#include <csignal>
#include <thread>
#include <utility>

namespace qvcd {

/// Starts a thread that no signal sent to the process is delivered to: the main thread sleeps and must be the
/// one that a signal wakes. Faults of the thread's own (SIGSEGV and the like) stay deliverable. Throws
/// std::system_error when there are no threads left.
template <typename Function>
std::thread start_quiet_thread(Function &&function)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        sigdelset(&all, fault);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    struct Restore {
        const sigset_t &mask;
        ~Restore() { pthread_sigmask(SIG_SETMASK, &mask, nullptr); }
    } restore{before};
    return std::thread(std::forward<Function>(function));
}

} // namespace qvcd
