#include "model/former.h"

#include "base/text.h"

namespace qvcd {

std::vector<Former> parse_former(std::string_view was)
{
    std::vector<Former> all;
    for (const std::string &part : split_words(was, ",")) {
        std::vector<std::string> words = split_words(part, kListSeparators);
        if (words.empty())
            continue;
        words.resize(3);
        all.push_back({std::move(words[0]), std::move(words[1]), std::move(words[2])});
    }
    return all;
}

} // namespace qvcd
