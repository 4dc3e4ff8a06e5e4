#include "check/nearest.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::size_t kMaxWordBytes = 64; // longer ones are near to nothing

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Letters inserted, left out, changed, and neighbours swapped; capitals are like small ones.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            std::size_t &here = rows[i][j];
            if (i == 0 || j == 0) {
                here = i + j;
                continue;
            }
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            here = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                here = std::min(here, rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

} // namespace

std::string_view nearest_word(std::string_view word, const std::vector<std::string_view> &words)
{
    if (word.empty() || word.size() > kMaxWordBytes)
        return {};
    std::string_view best;
    std::size_t fewest = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string_view one : words) {
        const std::size_t steps = distance(word, one);
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
