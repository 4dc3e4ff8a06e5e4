#include "platform/connection_table.h"

#include "platform/coarse_clock.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace qvcd {

using std::chrono::milliseconds;

namespace {
constexpr milliseconds kDrainPatience{1000}; // for a client that still talks when its answer is complete
} // namespace

ConnectionTable::ConnectionTable(const ServerLimits &limits)
    : first{limits.first_line, {}}, idle{limits.idle, {}}, sending{limits.send, {}}, draining{kDrainPatience,
                                                                                              {}}
{
}

ConnectionTable::Member &ConnectionTable::add(Channel channel, Peer peer,
                                              std::unique_ptr<LineHandler> handler, std::string source)
{
    const auto place =
        first.members.emplace(first.members.end(), std::move(channel), std::move(peer), std::move(handler));
    place->place = place;
    place->stage = &first;
    place->since = coarse_now();
    place->source_ = std::move(source);
    if (!place->source_.empty())
        ++sources_[place->source_];
    ++size_;
    return *place;
}

void ConnectionTable::remove(Member &member)
{
    const auto source = sources_.find(member.source_);
    if (source != sources_.end() && --source->second == 0)
        sources_.erase(source);
    held_ -= member.counted;
    --size_;
    member.stage->members.erase(member.place);
}

void ConnectionTable::clear()
{
    for (Stage *stage : {&first, &idle, &sending, &draining, &listening, &ready, &busy})
        stage->members.clear();
}

std::size_t ConnectionTable::of_source(const std::string &source) const
{
    const auto found = sources_.find(source);
    return found == sources_.end() ? 0 : found->second;
}

void ConnectionTable::move(Member &member, Stage &stage)
{
    member.since = coarse_now();
    stage.members.splice(stage.members.end(), member.stage->members, member.place);
    member.stage = &stage;
}

milliseconds ConnectionTable::next_late() const
{
    milliseconds next = milliseconds::max();
    for (const Stage *stage : patient_) {
        if (!stage->members.empty())
            next = std::min(next, stage->members.front().since + stage->patience);
    }
    return next;
}

ConnectionTable::Member *ConnectionTable::late(milliseconds now)
{
    for (Stage *stage : patient_) {
        if (!stage->members.empty() && stage->members.front().since + stage->patience <= now)
            return &stage->members.front();
    }
    return nullptr;
}

ConnectionTable::Member *ConnectionTable::least_missed()
{
    Member *oldest = nullptr;
    for (Stage *stage : {&first, &idle, &draining}) {
        if (!stage->members.empty() && (!oldest || stage->members.front().since < oldest->since))
            oldest = &stage->members.front();
    }
    if (!oldest && !sending.members.empty())
        oldest = &sending.members.front();
    return oldest;
}

void ConnectionTable::count(Member &member)
{
    held_ -= member.counted;
    member.counted = member.held();
    held_ += member.counted;
}

ConnectionTable::Member *ConnectionTable::largest()
{
    const std::array stages = {&first, &idle, &sending, &listening, &ready};
    std::map<std::string_view, std::size_t> of_source;
    for (const Stage *stage : stages) {
        for (const Member &member : stage->members)
            of_source[member.source_] += member.counted;
    }
    Member *largest = nullptr;
    std::pair<std::size_t, std::size_t> most;
    for (Stage *stage : stages) {
        for (Member &member : stage->members) {
            const std::size_t together = member.source_.empty() ? member.counted : of_source[member.source_];
            if (const std::pair held(together, member.counted); member.counted > 0 && held > most) {
                most = held;
                largest = &member;
            }
        }
    }
    return largest;
}

} // namespace qvcd
