#include "commands/browse.h"

#include "base/reply.h"
#include "commands/targets.h"
#include "store/database.h"

namespace qvcd {

namespace {

// 1 when the caller may not read it.
int browse_api(const Request &request, const Api &api, std::FILE *out)
{
    if (!api.readable_by(request.mask))
        return 1;
    if (api.visible_to(request.mask))
        reply_value(out, api.name(), "leaf");
    return 0;
}

int command_browse(Request &request, Args &argv, std::FILE *out)
{
    return for_each_setting(argv, out, [&](const Api &api) { return browse_api(request, api, out); });
}

} // namespace

const CommandRecord browseRecord = {
    .name = "browse",
    .handler = command_browse,
    .summary = "Browse the API tree",
    .synopsis = "browse [<API or group> ...]",
    .errors =
        "<name>=##Parameter not found#: there is no such API or group. The other names are listed, and the "
        "result is 1. An API that was named and may not be read gives no line, and the result 1.",
    .description =
        "Lists the names of APIs, one \"<name>=leaf\" line each: those of a group, or all of them. "
        "APIs that the caller may not read are left out; private ones are for the maker alone.",
};

} // namespace qvcd
