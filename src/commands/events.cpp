#include "commands/events.h"

#include "auth/user.h"
#include "base/notify.h"
#include "base/reply.h"
#include "base/text.h"
#include "change/history.h"
#include "platform/api_errors.h"
#include "platform/event_queue.h"
#include "store/meta.h"

#include <chrono>

namespace qvcd {

namespace {

constexpr unsigned kAllRights = 0x7777;
constexpr std::size_t kMostPatternBytes = 1024; // of all patterns: each event is compared with them

int refuse(std::FILE *out, const char *error)
{
    reply_line(out, error);
    return 1;
}

// "-e" and an event's name, and patterns. False for what is neither.
bool read_filter(const Args &argv, EventFilter &filter)
{
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < argv.size(); ++i) {
        const bool is_event = argv[i] == "-e";
        if (is_event && ++i == argv.size())
            return false;
        bytes += argv[i].size();
        (is_event ? filter.events : filter.names).push_back(argv[i]);
    }
    return bytes <= kMostPatternBytes;
}

std::int64_t newest_entry()
{
    std::int64_t number = 0;
    history_visit({}, [&](const HistoryEntry &entry) {
        number = entry.number;
        return false;
    });
    return number;
}

// The first line says where the stream begins: who comes again can tell what he may have missed.
void print_start(std::uint64_t last, std::int64_t entry, std::FILE *out)
{
    static const std::string process =
        std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
    Notification start;
    start.identity = NOTIFY_IDENTITY;
    start.message_class = NOTIFY_PRIORITY;
    start.event = "listening";
    start.payload = start.public_payload = "daemon=" + process + " entry=" + std::to_string(entry);
    start.topic = "qvc listening";
    start.id = last;
    start.at = std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
    reply_text(out, stream_line(start, false));
}

int command_events(Request &request, Args &argv, std::FILE *out)
{
    const Caller &caller = request.caller;
    if (!caller.events)
        return refuse(out, API_E_INVALID_CMD);
    if ((request.mask & kReadBits) == 0)
        return refuse(out, API_E_INVALID_PERMISSION);
    EventFilter filter;
    filter.rights = request.mask;
    filter.sees_sessions = is_within(request.mask, kAllRights);
    filter.source = (request.mask & kLevel1Bits) != 0 ? "" : caller.source;
    if (!read_filter(argv, filter))
        return refuse(out, API_E_INVALID_CMD_ARGS);
    const std::int64_t entry = newest_entry(); // may let go of the command lock
    const auto queue = std::make_shared<EventQueue>(std::move(filter));
    const std::optional<std::uint64_t> last = qvnotify_listen(queue);
    if (!last)
        return refuse(out, "##Too many listen to events#");
    *caller.events = queue;
    print_start(*last, entry, out);
    return 0;
}

} // namespace

const CommandRecord eventsRecord = {
    .name = "events",
    .handler = command_events,
    .summary = "Tell of changes as they happen",
    .synopsis = "events [-e <event>] ... [<API or group> ...]",
    .return_values = "One line of JSON an event, the first of which says \"listening\".",
    .errors = "##Invalid permission#: the caller may not read anything.\n"
              "##Invalid command arguments#: -e without an event, or more than 1024 bytes of names.\n"
              "##Too many listen to events#: 64 do, or 32 from where the caller is.",
    .description =
        "Keeps the connection, and prints a line with each event, until the client sends another command or "
        "an empty line, or closes. With -e only these events; with names only those of these APIs and "
        "groups, "
        "where \"*\" stands for any characters but dots and \"?\" for one. Events of APIs that the caller "
        "may not see "
        "are left out, log-ins are for administrators. Who does not read is dropped.",
};

} // namespace qvcd
