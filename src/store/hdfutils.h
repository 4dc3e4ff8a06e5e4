#pragma once

#include "store/tree.h"

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// What a classifier says of a node.
enum class Walk {
    descend = 0, ///< go on into it
    visit = 1,   ///< visit it and go on into it
    skip = 2,    ///< pass over the whole subtree
};
using Classifier = Walk (*)(Node);

/// Called with the node, the dotted name of its parent, which is good during the call only.
using Visitor = std::function<void(Node, const std::string &parent)>;

/// Walks the nodes below `node`, in tree order, a node before its children. `name` is the dotted name of
/// `node`, empty for the root. The visitor may not change the tree nor let go of the command lock: visits
/// that do take the names first (below).
void hdfutils_traverse_tree(Node node, std::string_view name, Classifier classify, const Visitor &visit);

/// Classifier of the leaves with a value: of the APIs of the settings tree. A group that lost its leaves is
/// none.
Walk hdfutils_check_endnode(Node node);

/// The full dotted names of what the classifier takes.
std::vector<std::string> hdfutils_names(Node node, std::string_view name, Classifier classify);

using LeafVisitor = std::function<void(const std::string &leaf)>;

/// Visits the leaves below the node `name` of a tree, in order, by their full names. A visit may change the
/// tree or let go of the command lock: the walk then finds its place again by name. What a visit adds behind
/// its own leaf is visited too; a group that vanishes ends where it was.
void hdfutils_visit_leaves(const Tree &tree, std::string_view name, const LeafVisitor &visit);

/// The dotted names of the parents of what the classifier takes: the APIs that own an attribute or a flag.
std::vector<std::string> hdfutils_parent_names(Node node, std::string_view name, Classifier classify);

/// Writes one "dotted.name=value" line for every node below that has a value, in tree order. A prefix and a
/// dot stand in front when a prefix is given.
void hdfutils_dump(Node node, std::string_view prefix, std::FILE *out);

/// "parent.name", or the one that is not empty; at most kMaxNameBytes.
std::string join_name(std::string_view parent, std::string_view name);

} // namespace qvcd
