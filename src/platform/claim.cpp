#include "platform/claim.h"

#include "platform/lock_file.h"
#include "platform/socket.h"
#include "platform/sysroot.h"

#include <cerrno>
#include <cstring>
#include <thread>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr char kClaim[] = "/var/run/qv/qvcd.lock";
constexpr mode_t kClaimMode = 0600; // whoever could open it could lock it, and keep the daemon from starting
constexpr auto kLookAgain = 20ms;

// Used by the main thread only. Never destroyed: the claim holds to the very end.
LockFile &claim()
{
    static LockFile *const file = new LockFile;
    return *file;
}

// Who finds no word takes the daemon for one that is starting, so a full disk does no harm.
void say(const char *word)
{
    if (claim().ours)
        write_lock_file(claim(), word);
}

std::string refusal(const std::string &why)
{
    return "cannot claim " + std::string(kClaim) + ": " + why;
}

} // namespace

std::string qv_claim_root(std::chrono::milliseconds patience)
{
    if (!make_endpoint_folder())
        return refusal(std::string("cannot make its folder: ") + std::strerror(errno));
    const std::string path = qv_sysroot_path(kClaim);
    for (const Deadline deadline = deadline_in(patience);; std::this_thread::sleep_for(kLookAgain)) {
        LockFile file = open_lock_file(path, kClaimMode);
        if (!file.failure.empty())
            return refusal(file.failure);
        if (file.ours) {
            claim() = std::move(file);
            say("starting\n");
            return {};
        }
        const bool running = read_lock_file(file).starts_with("running\n");
        if (running || std::chrono::steady_clock::now() >= deadline)
            return refusal(running ? "another daemon runs on this root"
                                   : "another daemon on this root starts or stops, and takes too long");
    }
}

void qv_claim_running()
{
    say("running\n");
}

void qv_claim_stopping()
{
    say("stopping\n");
}

void qv_release_root()
{
    if (claim().ours)
        remove_lock_file(claim(), qv_sysroot_path(kClaim));
    claim() = {};
}

} // namespace qvcd
