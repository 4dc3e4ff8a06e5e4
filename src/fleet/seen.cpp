#include "fleet/seen.h"

namespace qvcd {

bool Seen::holds(const std::string &caller, const std::string &id) const
{
    const auto found = callers_.find(caller);
    return found != callers_.end() && found->second.all.contains(id);
}

void Seen::note(const std::string &caller, const std::string &id)
{
    auto found = callers_.find(caller);
    if (found == callers_.end()) {
        if (callers_.size() >= kCallers) {
            callers_.erase(by_use_.front());
            by_use_.pop_front();
        }
        found = callers_.try_emplace(caller).first;
        found->second.place = by_use_.insert(by_use_.end(), caller);
    }
    Ids &ids = found->second;
    by_use_.splice(by_use_.end(), by_use_, ids.place);
    if (!ids.all.insert(id).second)
        return;
    ids.by_age.push_back(id);
    if (ids.by_age.size() > kIds) {
        ids.all.erase(ids.by_age.front());
        ids.by_age.pop_front();
    }
}

} // namespace qvcd
