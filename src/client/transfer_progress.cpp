#include "client/transfer_progress.h"

#include <cstdio>
#include <unistd.h>

namespace qvcd::client {

namespace {

constexpr char kClearLine[] = "\r\033[K";

std::size_t kib(std::size_t bytes)
{
    return (bytes + 1023) / 1024;
}

} // namespace

TransferProgress::TransferProgress() : wanted_(isatty(STDERR_FILENO) != 0) {}

TransferProgress::~TransferProgress()
{
    clear();
}

void TransferProgress::clear()
{
    if (shown_)
        std::fputs(kClearLine, stderr);
    shown_ = false;
}

void TransferProgress::show(std::size_t sent, std::size_t all, std::size_t received)
{
    const Clock::time_point now = Clock::now();
    if (!wanted_ || now < next_)
        return;
    next_ = now + std::chrono::milliseconds(250);
    shown_ = true;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
    std::fputs(kClearLine, stderr);
    if (sent < all)
        std::fprintf(stderr, "%zu of %zu KiB sent", kib(sent), kib(all));
    else if (received > 0)
        std::fprintf(stderr, "%zu KiB received", kib(received));
    else
        std::fprintf(stderr, "waiting for the answer");
    std::fprintf(stderr, ", %lld s", static_cast<long long>(seconds));
    std::fflush(stderr);
}

} // namespace qvcd::client
