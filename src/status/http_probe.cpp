#include "status/http_probe.h"

#include "platform/log.h"
#include "status/http_probe_module.h"

namespace qvcd {

bool http_reachable(const std::string &url)
{
    std::string problem;
    try {
        if (module<HttpProbeModule>().reachable(url, problem))
            return true;
        qv_log_print(kLogDebug, "probe of %s: %s\n", url.c_str(), problem.c_str());
    } catch (const ModuleError &error) {
        qv_log_print(kLogError, "cannot probe %s: %s\n", url.c_str(), error.what());
    }
    return false;
}

} // namespace qvcd
