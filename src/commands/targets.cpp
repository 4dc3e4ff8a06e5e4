#include "commands/targets.h"

namespace qvcd {

int for_each_flagged(const Args &names, std::FILE *out, Classifier flag,
                     const std::function<int(Api &api)> &visit)
{
    int result = 0;
    const auto visit_below = [&](const std::string &name) {
        for (const std::string &flagged : flagged_apis(metaDB.find(name), name, flag)) {
            // Who waited for an earlier visit may find that this one was deleted meanwhile.
            if (Api *api = find_api(flagged); api && visit(*api) != 0 && flagged == name)
                result = 1;
        }
    };
    for (const std::string &name : names) {
        if (name_kind(name) == NameKind::nothing)
            result |= refuse(name, API_E_PARAM_NOT_FOUND, out);
        else
            visit_below(name);
    }
    if (names.empty())
        visit_below("");
    return result;
}

} // namespace qvcd
