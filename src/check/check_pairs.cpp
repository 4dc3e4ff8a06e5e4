#include "check/check_pairs.h"

#include "base/lookup.h"
#include "funcs/write_map.h"
#include "store/former.h"

#include <algorithm>
#include <sys/stat.h>

namespace qvcd {

namespace {

constexpr std::string_view kMark = "__";
constexpr int kMaxLinks = 8;

const WriteRow *file_writer(const ModelNode &api)
{
    const WriteRow *row = find_row(write_rows(), api.get("write").value_or(""));
    const bool writes = row && (row->kind == WriteKind::text || row->kind == WriteKind::device);
    return writes && (api.perm() & kWriteBits) ? row : nullptr;
}

} // namespace

void CheckedPairs::add(const ModelNode &api)
{
    if (file_writer(api))
        check_key(api);
    check_link(api);
    check_former_names(api);
}

void CheckedPairs::check_key(const ModelNode &api)
{
    const auto file = api.get("file");
    if (!file || !file->starts_with('/'))
        return;
    const bool is_device = file_writer(api)->kind == WriteKind::device;
    const std::string key = is_device ? "" : api.get("attr").value_or("");
    const auto [first, is_new] = keys_.try_emplace({*file, key}, First{api.name(), api.node()});
    const bool is_linked =
        api.own("link") == first->second.name || first->second.node.get("link") == api.name();
    if (!is_new && !is_linked)
        report_.add(Kind::same_key, api.node(), api.name(),
                    (is_device ? "" : quote(key) + " of ") + *file + " is written by " + first->second.name +
                        ", " + report_.place(first->second.node) + ", too");
    check_copies(api);
    if (!is_device)
        check_folder(api, *file);
}

// Each template around an API must leave its number in the key or in the file: there, where that number is
// the innermost one.
void CheckedPairs::check_copies(const ModelNode &api)
{
    for (const std::string &one : api.templates()) {
        const bool differs = std::ranges::any_of(std::array{"file", "attr"}, [&](const char *attribute) {
            const bool is_marked = api.source(attribute).text().find(kMark) != std::string_view::npos;
            const std::string from = api.source_name(attribute);
            const bool is_inside = from == one || from.starts_with(one + ".");
            return is_marked && is_inside && from.find(kMark, one.size()) == std::string::npos;
        });
        if (!differs)
            report_.add(Kind::copies_share_key, api.node(), api.name(),
                        "all copies of " + one +
                            " write the same key of the same file: \"__d\" stands for the number");
    }
}

void CheckedPairs::check_folder(const ModelNode &api, const std::string &file)
{
    const auto &root = report_.options().root;
    if (!root || !folders_.insert(file).second)
        return;
    struct stat status {};
    if (stat((*root + file).c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        report_.add(Kind::no_folder, api.source("file"), api.source_name("file"), file + " is a folder");
    else if (stat((*root + file.substr(0, file.rfind('/') + 1)).c_str(), &status) != 0 ||
             !S_ISDIR(status.st_mode))
        report_.add(Kind::no_folder, api.source("file"), api.source_name("file"),
                    "the folder of " + file + " does not exist");
}

void CheckedPairs::check_link(const ModelNode &api)
{
    const auto link = api.own("link");
    if (!link)
        return;
    const Node node = api.node().child("link");
    Node to = find_in_model(report_.root(), *link);
    if (!to || !to.child("attr")) {
        report_.add(Kind::bad_link, node, api.name(), "it links to " + quote(*link) + ", which is no API");
        return;
    }
    for (int links = 0; to && to != api.node() && links < kMaxLinks; ++links) {
        const auto next = to.get("link");
        to = next ? find_in_model(report_.root(), *next) : Node();
    }
    if (to)
        report_.add(Kind::bad_link, node, api.name(), "its link leads back to itself");
}

void CheckedPairs::check_former_names(const ModelNode &api)
{
    const Node node = api.node().child("was");
    for (const auto &[name, attr, file] : parse_former(api.own("was").value_or(""))) {
        const auto add = [&](const std::string &what) {
            report_.add(Kind::bad_former_name, node, api.name(), what);
        };
        if (!file.empty() && !file.starts_with('/'))
            add("the file " + quote(file) + " is no absolute path");
        if (!is_tree_name(name))
            add(quote(name) + " is no name that an API could have had");
        else if (name == api.name() && !attr.empty()) // only its place was another
            continue;
        else if (find_in_model(report_.root(), name).child("attr"))
            add("there is still an API " + name);
        else if (const auto [first, is_new] = former_.try_emplace(name, First{api.name(), node}); !is_new)
            add(name + " is claimed by " + first->second.name + ", " + report_.place(first->second.node) +
                ", too");
    }
}

} // namespace qvcd
