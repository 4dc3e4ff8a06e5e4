#include "status/bond_info.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/lookup.h"
#include "platform/bonding.h"
#include "platform/remote.h"
#include "store/database.h"

#include <string_view>

namespace qvcd {

namespace {

constexpr int kUp = 1;
constexpr int kDown = 2;
constexpr int kRunning = 1;
constexpr int kPaused = 2;

constexpr char kUnitAddress[] = "172.16.16.16"; // the unit's fixed address on the link between the two
constexpr char kUnitPort[] = "81";

std::string bond_mode()
{
    const std::string mode = hdfDB.get_or("Bond.Configuration.mode", "disabled");
    return mode == "bond" && bonding_state() != kUp ? "disabled" : mode;
}

std::string bond_state()
{
    const int state = bonding_state();
    return state == kUp ? "up" : state == kDown ? "down" : "unknown";
}

std::string bond_version()
{
    if (bonding_state() == kDown)
        return "n/a";
    const Unlocked unlocked;
    std::string reply;
    if (qvcd_remote_buf_send_command(kUnitAddress, kUnitPort, 0, "getv System.Info.Version.firmware", reply,
                                     kMaxValueBytes) < 0 ||
        reply.empty())
        return "n/a";
    if (reply.ends_with('\n'))
        reply.pop_back();
    return reply;
}

std::string bond_status()
{
    const int status = bonding_status();
    return status == kRunning ? "running" : status == kPaused ? "paused" : "stopped";
}

struct FieldRow {
    std::string_view name;
    std::string (*print)();
};

constexpr FieldRow kFields[] = {
    {"mode", bond_mode},
    {"state", bond_state},
    {"version", bond_version},
    {"status", bond_status},
};

} // namespace

std::optional<std::string> bond_info_rfunc(Request &, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const FieldRow *row = find_row(kFields, attr);
    return row ? row->print() : "";
}

} // namespace qvcd
