#include "platform/edit_distance.h"

#include <algorithm>
#include <vector>

namespace qvcd {

std::size_t edit_distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> now(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                now[j] = std::min(now[j], before_last[j - 2] + 1);
        }
        before_last = std::move(last);
        last = std::move(now);
    }
    return last.back();
}

} // namespace qvcd
