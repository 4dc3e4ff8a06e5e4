#include "status/bond_info.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/lookup.h"
#include "platform/bonding.h"
#include "platform/remote.h"
#include "store/database.h"

namespace qvcd {

namespace {

constexpr char kUnitAddress[] = "172.16.16.16"; // the unit's fixed address on the link between the two
constexpr char kUnitPort[] = "81";

std::string bond_mode(Request &request)
{
    const std::string mode = hdfDB.get_or("Bond.Configuration.mode", "disabled");
    return mode == "bond" && !bond_unit(request).up() ? "disabled" : mode;
}

std::string bond_state(Request &request)
{
    const BondUnit &unit = bond_unit(request);
    return unit.up() ? "up" : unit.down() ? "down" : "unknown";
}

std::string bond_status(Request &request)
{
    const int status = bond_unit(request).status;
    return status == 1 ? "running" : status == 2 ? "paused" : "stopped";
}

struct Version {
    std::string text = "n/a";
};

Version ask_version()
{
    const Unlocked unlocked;
    std::string reply;
    if (qvcd_remote_buf_send_command(kUnitAddress, kUnitPort, 0, "getv System.Info.Version.firmware", reply,
                                     kMaxValueBytes) != 0 ||
        reply.empty())
        return {};
    if (reply.ends_with('\n'))
        reply.pop_back();
    return {reply};
}

std::string bond_version(Request &request)
{
    return bond_unit(request).down() ? "n/a" : request.once<Version>(ask_version).text;
}

struct FieldRow {
    std::string_view name;
    std::string (*print)(Request &request);
};

constexpr FieldRow kFields[] = {
    {"mode", bond_mode},
    {"state", bond_state},
    {"version", bond_version},
    {"status", bond_status},
};

} // namespace

const BondUnit &bond_unit(Request &request)
{
    return request.once<BondUnit>([] { return BondUnit{bonding_state(), bonding_status()}; });
}

std::optional<std::string> bond_info_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const FieldRow *row = find_row(kFields, attr);
    return row ? row->print(request) : "";
}

} // namespace qvcd
