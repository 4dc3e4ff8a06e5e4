#include "client/nearest.h"

#include "platform/edit_distance.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace qvcd::client {

namespace {

constexpr std::size_t kLettersOfOneMistake = 4; // one letter of so many may be wrong
constexpr std::size_t kLongestWord = 256;       // the distance takes the product of two lengths

std::string lower(std::string_view text)
{
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

struct Found {
    std::size_t distance;
    std::string text;
    auto operator<=>(const Found &) const = default;
};

std::vector<std::string> best(const std::set<Found> &found, std::size_t most)
{
    std::vector<std::string> texts;
    for (const Found &one : found) {
        const bool is_much_farther = one.distance > found.begin()->distance + 1;
        if (texts.size() < most && !is_much_farther && std::ranges::count(texts, one.text) == 0)
            texts.push_back(one.text);
    }
    return texts;
}

std::size_t allowed(std::string_view word)
{
    if (word.size() < 2) // any letter is one mistake away from it
        return 0;
    return std::max<std::size_t>(1, word.size() / kLettersOfOneMistake);
}

// Takes the candidate when `part` of it is near to the word.
void take_near(std::set<Found> &found, const std::string &word, std::string_view part,
               const std::string &candidate, std::size_t penalty)
{
    const std::size_t limit = allowed(word);
    const std::size_t longer = std::max(word.size(), part.size());
    if (word.size() > kLongestWord || longer - std::min(word.size(), part.size()) > limit)
        return;
    const std::size_t distance = edit_distance(word, lower(part));
    if (distance <= limit)
        found.insert({distance + penalty, candidate});
}

// APIs and groups.
std::set<std::string> with_groups(const std::vector<std::string> &apis)
{
    std::set<std::string> names;
    for (const std::string &api : apis) {
        for (std::size_t dot = api.find('.'); dot != std::string::npos; dot = api.find('.', dot + 1))
            names.insert(api.substr(0, dot));
        names.insert(api);
    }
    return names;
}

// The last parts of `name`, as many as `like` has.
std::string_view tail_like(std::string_view name, std::string_view like)
{
    std::size_t start = name.size();
    for (auto dots = std::ranges::count(like, '.'); dots >= 0 && start != std::string_view::npos && start > 0;
         --dots)
        start = name.rfind('.', start - 1);
    return start == std::string_view::npos || start == 0 ? name : name.substr(start + 1);
}

} // namespace

std::vector<std::string> nearest(std::string_view word, const std::vector<std::string> &candidates,
                                 std::size_t most)
{
    const std::string wanted = lower(word);
    std::set<Found> found;
    for (const std::string &candidate : candidates)
        take_near(found, wanted, candidate, candidate, 0);
    for (const std::string &candidate : candidates) {
        if (found.empty() && !wanted.empty() && lower(candidate).starts_with(wanted))
            return best({{0, candidate}}, most);
    }
    return best(found, most);
}

std::vector<std::string> nearest_names(std::string_view name, const std::vector<std::string> &apis,
                                       std::size_t most)
{
    const std::string wanted = lower(name);
    const std::set<std::string> names = with_groups(apis);
    std::set<Found> found;
    for (const std::string &candidate : names) {
        take_near(found, wanted, candidate, candidate, 0);
        take_near(found, wanted, tail_like(candidate, wanted), candidate, 1);
    }
    if (!found.empty())
        return best(found, most);
    // The end of a long name may be right where its front is not.
    const std::string last_part(wanted.substr(wanted.rfind('.') + 1)); // npos + 1 is 0
    for (const std::string &candidate : names) {
        const std::string_view own = std::string_view(candidate).substr(candidate.rfind('.') + 1);
        if (lower(own) == last_part)
            found.insert({edit_distance(wanted.substr(0, kLongestWord), lower(candidate)), candidate});
    }
    return best(found, most);
}

std::string did_you_mean(const std::vector<std::string> &words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text.empty() ? text : " (did you mean " + text + "?)";
}

} // namespace qvcd::client
