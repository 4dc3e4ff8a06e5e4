#include "store/hdfutils.h"

#include "base/limits.h"
#include "base/reply.h"

namespace qvcd {

namespace {

// `path` is one buffer for the whole walk: a level appends its name and cuts it off again.
void walk(Node node, std::string &path, Classifier classify, const Visitor &visit)
{
    for (const Node child : node) {
        const Walk what = classify(child);
        if (what == Walk::skip)
            continue;
        if (what == Walk::visit)
            visit(child, path);
        if (!child.first_child())
            continue;
        const std::size_t size = path.size();
        if (size)
            path += '.';
        path += child.name();
        walk(child, path, classify, visit);
        path.resize(size);
    }
}

void dump(Node node, std::string &path, std::FILE *out)
{
    for (const Node child : node) {
        const std::size_t size = path.size();
        if (size)
            path += '.';
        path += child.name();
        if (const auto value = child.value())
            reply_value(out, path, *value);
        dump(child, path, out);
        path.resize(size);
    }
}

} // namespace

void hdfutils_traverse_tree(Node node, std::string_view name, Classifier classify, const Visitor &visit)
{
    std::string path(name);
    walk(node, path, classify, visit);
}

namespace {

// `path` is one buffer for the whole walk.
void visit_level(const Tree &tree, std::string &path, const LeafVisitor &visit)
{
    const std::size_t size = path.size();
    for (Node child = tree.find(path).first_child(); child;) {
        const std::string next(child.next().name());
        path.append(size ? "." : "").append(child.name());
        const std::uint64_t before = tree.marks().nodes;
        if (child.first_child())
            visit_level(tree, path, visit);
        else if (child.value())
            visit(path);
        if (tree.marks().nodes != before) {
            child = tree.find(path);
            path.resize(size);
            if (!child) {
                child = next.empty() ? Node() : tree.find(join_name(path, next));
                continue;
            }
        }
        path.resize(size);
        child = child.next();
    }
}

} // namespace

void hdfutils_visit_leaves(const Tree &tree, std::string_view name, const LeafVisitor &visit)
{
    std::string path(name);
    visit_level(tree, path, visit);
}

Walk hdfutils_check_endnode(Node node)
{
    return node.is_leaf() ? Walk::visit : Walk::descend;
}

std::vector<std::string> hdfutils_names(Node node, std::string_view name, Classifier classify)
{
    std::vector<std::string> names;
    hdfutils_traverse_tree(node, name, classify, [&](Node found, const std::string &parent) {
        names.push_back(join_name(parent, found.name()));
    });
    return names;
}

std::vector<std::string> hdfutils_parent_names(Node node, std::string_view name, Classifier classify)
{
    std::vector<std::string> names;
    hdfutils_traverse_tree(node, name, classify, [&](Node, const std::string &parent) {
        std::string name_of_parent = cut(parent, kMaxNameBytes);
        if (names.empty() || names.back() != name_of_parent) // one API may own two raised flags
            names.push_back(std::move(name_of_parent));
    });
    return names;
}

void hdfutils_dump(Node node, std::string_view prefix, std::FILE *out)
{
    std::string path(prefix);
    dump(node, path, out);
}

std::string join_name(std::string_view parent, std::string_view name)
{
    std::string joined(parent);
    if (!parent.empty() && !name.empty())
        joined += '.';
    joined += name;
    if (joined.size() > kMaxNameBytes)
        joined.resize(kMaxNameBytes);
    return joined;
}

} // namespace qvcd
