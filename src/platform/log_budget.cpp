#include "platform/log_budget.h"

#include <algorithm>

namespace qvcd {

LogBudget::Verdict LogBudget::take(const std::string &source, int priority, Time now)
{
    auto found = windows_.find({source, priority});
    if (found == windows_.end()) {
        const bool has_room = windows_.size() < kMost;
        found =
            windows_.try_emplace({has_room ? source : "others", priority}, Window{now + kWindow, 0}).first;
    }
    Window &window = found->second;
    due_ = std::min(due_, window.end);
    const unsigned long before = window.lines++;
    if (before < kLines)
        return Verdict::log;
    return before == kLines ? Verdict::leave_out_from_now : Verdict::leave_out;
}

std::vector<LogBudget::LeftOut> LogBudget::left_out(Time now)
{
    std::vector<LeftOut> told;
    due_ = Time::max();
    for (auto it = windows_.begin(); it != windows_.end();) {
        const Window &window = it->second;
        if (window.end > now) {
            due_ = std::min(due_, window.end);
            ++it;
            continue;
        }
        if (window.lines > kLines)
            told.push_back({it->first.first, it->first.second, window.lines - kLines});
        it = windows_.erase(it);
    }
    return told;
}

} // namespace qvcd
