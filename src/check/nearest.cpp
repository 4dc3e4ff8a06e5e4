#include "check/nearest.h"

#include "platform/edit_distance.h"

#include <algorithm>
#include <cctype>

namespace qvcd {

namespace {

constexpr std::size_t kMaxWordBytes = 64; // longer ones are near to nothing

std::string lower(std::string_view text)
{
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

} // namespace

std::string_view nearest_word(std::string_view word, const std::vector<std::string_view> &words)
{
    if (word.empty() || word.size() > kMaxWordBytes)
        return {};
    const std::string wanted = lower(word);
    std::string_view best;
    std::size_t fewest = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string_view one : words) {
        const std::size_t steps = one.size() > kMaxWordBytes ? fewest : edit_distance(wanted, lower(one));
        if (steps < fewest) {
            fewest = steps;
            best = one;
        }
    }
    if (best.empty() && word.size() > 1) {
        for (const std::string_view one : words) {
            if (one.starts_with(word) && (best.empty() || one.size() < best.size()))
                best = one;
        }
    }
    return best;
}

std::string suggestion(std::string_view word, const std::vector<std::string_view> &words)
{
    const std::string_view best = nearest_word(word, words);
    return best.empty() ? "" : "; did you mean \"" + std::string(best) + "\"?";
}

} // namespace qvcd
