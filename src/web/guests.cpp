#include "web/guests.h"

#include <algorithm>

namespace qvcd::web {

namespace {

constexpr std::size_t kLoginsOfOne = 4; // at once from one address, of all that may wait

} // namespace

bool Guests::has_room(const std::string &place)
{
    const auto here = places_.find(place);
    if (here != places_.end() && here->second.guests >= limits_.of_one_address)
        return false;
    if (guests_.size() < limits_.connections)
        return true;
    const auto idle = std::ranges::find_if(guests_, [](const auto &guest) { return guest.first->is_idle(); });
    if (idle == guests_.end())
        return false;
    idle->first->close();
    return true;
}

void Guests::add(const std::string &place, const std::shared_ptr<Guest> &guest)
{
    ++places_[place].guests;
    guests_.emplace(guest.get(), guest);
}

void Guests::leave(const std::string &place, Guest *guest)
{
    guests_.erase(guest);
    if (--places_[place].guests == 0)
        places_.erase(place);
}

bool Guests::begin_login(const std::string &place)
{
    std::size_t &logins = places_[place].logins;
    return logins < kLoginsOfOne && ++logins > 0;
}

void Guests::close_all()
{
    const auto guests = guests_;
    for (const auto &[guest, weak] : guests) {
        if (const auto alive = weak.lock())
            alive->close();
    }
}

} // namespace qvcd::web
