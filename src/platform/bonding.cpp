#include "platform/bonding.h"

#include "platform/small_file.h"

#include <string_view>

namespace qvcd {

namespace {

struct Word {
    std::string_view text;
    int code;
};

constexpr Word kStates[] = {{"up", 1}, {"down", 2}};
constexpr Word kStatuses[] = {{"running", 1}, {"paused", 2}};

template <std::size_t N>
int code_of(const Word (&words)[N], const std::string &text)
{
    for (const Word &word : words) {
        if (word.text == text)
            return word.code;
    }
    return 0;
}

} // namespace

int bonding_state()
{
    return code_of(kStates, read_first_line("/var/run/bond/state"));
}

int bonding_status()
{
    return code_of(kStatuses, read_first_line("/var/run/bond/status"));
}

} // namespace qvcd
