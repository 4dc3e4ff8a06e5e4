#pragma once

#include "check/finding.h"
#include "store/hdf_text.h"
#include "store/tree.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace qvcd {

/// Metadata as it stands in files: their tree, before templates are multiplied, and where each of its nodes
/// stands. Independent of the daemon's own trees.
class Source final : private HdfListener {
  public:
    Source() = default;

    /// Reads a file over those before; findings call it `name`. A missing or broken one leaves findings; what
    /// can be read of it is taken.
    void load(const std::string &path, const std::string &name);
    void load(const std::string &path) { load(path, path); }

    /// The same for a text that came from somewhere else.
    void load_text(const std::string &name, std::string_view text);

    Node root() const { return tree_.root(); }
    const std::vector<std::string> &files() const { return files_; }
    const std::vector<Finding> &findings() const { return findings_; } ///< about the texts themselves

    /// Every file was there, and every group has its end: names are what they look like.
    bool is_whole() const { return is_whole_; }

    /// A finding about a node, without its text. A node that only follows from the names of others stands
    /// where the first of them does.
    Finding at(Kind kind, Node node, std::string api) const;

  private:
    struct Place {
        std::uint32_t file;
        std::uint32_t line;
    };

    void opened(Node group, std::size_t line) override;
    void given(Node node, std::size_t line) override;
    bool mistaken(const HdfMistake &mistake) override;
    void begin(const std::string &name);
    void add(Kind kind, std::size_t line, std::string api, std::string what);
    void name_repeated();
    const Place *place_of(Node node) const;

    Tree tree_ = Tree::make();
    std::vector<std::string> files_;
    std::unordered_map<const void *, Place> places_;        // where nodes stand last
    std::unordered_map<const void *, std::uint32_t> given_; // in this file, in which line first
    std::vector<Finding> findings_;
    std::unordered_multimap<const void *, std::size_t> repeated_; // nodes, and the numbers of findings
    bool is_whole_ = true;
};

/// Calls `visit` for each node below, a node before its children, with its dotted name.
void visit_nodes(Node below, const std::string &name,
                 const std::function<void(Node, const std::string &)> &visit);

} // namespace qvcd
