#include "change/failures.h"

namespace qvcd {

namespace {

constexpr std::size_t kMost = 50;

std::deque<Failure> &kept()
{
    static auto *const all = new std::deque<Failure>; // never destroyed: an action may end at shutdown
    return *all;
}

} // namespace

void failure_note(Failure failure)
{
    kept().push_back(std::move(failure));
    if (kept().size() > kMost)
        kept().pop_front();
}

const std::deque<Failure> &failures()
{
    return kept();
}

} // namespace qvcd
