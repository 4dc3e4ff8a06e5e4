#include "model/former.h"

#include "base/text.h"
#include "store/database.h"
#include "store/hdfutils.h"

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

std::map<std::string, std::string> names_by_former()
{
    std::map<std::string, std::string> names;
    hdfutils_traverse_tree(
        metaDB.root(), "",
        [](Node node) {
            if (node.name().starts_with("__")) // its copies have names
                return Walk::skip;
            return node.name() == "was" && node.is_leaf() ? Walk::visit : Walk::descend;
        },
        [&](Node was, const std::string &api) {
            for (const Former &former : parse_former(was.text()))
                names.try_emplace(former.name, api);
        });
    return names;
}

} // namespace qvcd
