#include "commands/version.h"

#include "auth/session.h"
#include "auth/user.h"
#include "base/failures.h"
#include "base/reply.h"
#include "change/report.h"
#include "commands/failures.h"
#include "model/populate.h"
#include "store/api.h"
#include "store/flags.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace qvcd {

namespace {

using std::chrono::steady_clock;

steady_clock::time_point started;

int note_start()
{
    started = steady_clock::now();
    return 0;
}

std::ptrdiff_t children(Node node)
{
    std::ptrdiff_t count = 0;
    for (Node child = node.first_child(); child; child = child.next())
        ++count;
    return count;
}

void print_number(std::FILE *out, const char *name, std::ptrdiff_t number)
{
    reply_value(out, name, std::to_string(number));
}

int command_version(Request &request, Args &, std::FILE *out)
{
    using std::chrono::seconds;
    // The clock may have been set since the start; how long that is ago stays true.
    const auto uptime = std::chrono::duration_cast<seconds>(steady_clock::now() - started);
    reply_value(out, "version", QVCD_RELEASE);
    reply_value(out, "started", time_text(std::time(nullptr) - uptime.count()));
    print_number(out, "uptime", uptime.count());
    for (const std::string &file : model_files())
        reply_value(out, "model", file);
    std::ptrdiff_t apis = 0;
    std::ptrdiff_t modified = 0;
    std::ptrdiff_t unapplied = 0;
    visit_apis("", [&](Api &api) {
        if (!api.visible_to(request.mask))
            return;
        ++apis;
        modified += api.is_raised(Api::Flag::mod) ? 1 : 0;
        unapplied += api.is_raised(Api::Flag::noapp) ? 1 : 0;
    });
    print_number(out, "settings", apis);
    print_number(out, "modified", modified);
    print_number(out, "unapplied", unapplied);
    print_number(out, "sessions", children(sessionDB.find("Session")));
    print_number(out, "users", children(userDB.find("User")));
    const auto is_seen = [&](const Failure &failure) { return may_see(request, failure); };
    print_number(out, "failures", std::ranges::count_if(failures(), is_seen));
    const auto last = std::find_if(failures().rbegin(), failures().rend(), is_seen);
    if (last != failures().rend())
        reply_value(out, "failure", line_of(*last));
    return 0;
}

} // namespace

const CommandRecord versionRecord = {
    .name = "version",
    .init = note_start,
    .handler = command_version,
    .summary = "Show the daemon's version and state",
    .synopsis = "version",
    .return_values = "<name>=<value> lines",
    .description = "version: of the daemon. started: when (UTC). uptime: seconds since then. model: a "
                   "metadata file that was "
                   "read; one line each. settings: APIs that the caller may read; modified: those of them "
                   "that are not saved; "
                   "unapplied: those whose action has not run. sessions, users: how many there are. "
                   "failures: actions that "
                   "failed since the start, of those that the caller may apply; failure: the last one, see "
                   "help.cmd failures.",
};

} // namespace qvcd
