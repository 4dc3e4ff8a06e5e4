#include "store/former.h"

#include "base/text.h"
#include "store/database.h"
#include "store/hdfutils.h"
#include "store/meta.h"

namespace qvcd {

namespace {

// The APIs of now by the names that they say they had.
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

} // namespace

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

void rename_former(Tree &document)
{
    std::vector<std::string> unknown = hdfutils_names(document.root(), "", hdfutils_check_endnode);
    std::erase_if(unknown, [](const std::string &name) { return metaDB.find(name); });
    if (unknown.empty())
        return;
    const std::map<std::string, std::string> renamed = names_by_former();
    for (const std::string &name : unknown) {
        const auto now = renamed.find(name);
        const auto value = document.get(name);
        if (now == renamed.end() || !value)
            continue;
        if (!document.get(now->second))
            document.set(now->second, std::string(*value));
        document.remove(name);
    }
}

std::optional<std::string_view> get_by_any_name(Node document, const std::string &api)
{
    if (const auto value = document.get(api))
        return value;
    for (const Former &former : parse_former(MetaApi(api).own("was").value_or(""))) {
        if (const auto value = document.get(former.name))
            return value;
    }
    return std::nullopt;
}

} // namespace qvcd
