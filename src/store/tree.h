#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace qvcd {

/// Depth of a name, and of the nesting of a file.
inline constexpr int kMaxTreeDepth = 64;

/// True for what a tree can hold and a file can give back: components of letters, digits and "_" with single
/// dots between, at most kMaxTreeDepth of them. The empty name (the node itself) is not such a name.
bool is_tree_name(std::string_view name);

/// Which new names a call takes.
enum class Names {
    in_files, ///< is_tree_name()
    any,      ///< components of any bytes but '.' and NUL: for trees that are never written to a file
};

/// When a tree changed last, in numbers that grow with each change of any tree: while a number stays, nothing
/// of its kind happened.
struct TreeMarks {
    std::uint64_t changed = 0; ///< anything: a node, another value
    std::uint64_t nodes = 0;   ///< a node was made, got its first value, or was removed
    std::uint64_t removed = 0; ///< a node was removed
};

namespace detail {

struct TreeNode;

struct NodesByName {
    using is_transparent = void;
    static std::string_view name_of(const TreeNode *node);
    static std::string_view name_of(std::string_view name) { return name; }
    std::size_t operator()(const auto &node) const { return std::hash<std::string_view>()(name_of(node)); }
    bool operator()(const auto &a, const auto &b) const { return name_of(a) == name_of(b); }
};

// The children of one node: a list in the order in which they came and, when they are many, a hash.
struct Children {
    TreeNode *first = nullptr; // owned, each by the one before it
    TreeNode *last = nullptr;
    std::size_t count = 0;
    std::unique_ptr<std::unordered_set<TreeNode *, NodesByName, NodesByName>> by_name;

    Children() = default;
    ~Children();
    Children(const Children &) = delete;
    Children &operator=(const Children &) = delete;
};

struct TreeNode {
    std::string value;                  // first what a reader asks for, in one line of the cache
    std::unique_ptr<Children> children; // none for most
    bool has_value = false;
    TreeNode *next = nullptr;
    std::string name;
};

inline std::string_view NodesByName::name_of(const TreeNode *node)
{
    return node->name;
}

} // namespace detail

/// A node of a tree, not owned; may be no node at all. Every view it hands out points into the tree and ends
/// with a '\0'; it is good until its node is set or removed, and at the latest until the command lock is let
/// go.
class Node {
  public:
    Node() noexcept = default;
    explicit operator bool() const noexcept { return n_ != nullptr; }
    bool operator==(const Node &other) const noexcept { return n_ == other.n_; }

    /// Empty for a root.
    std::string_view name() const noexcept { return n_ ? std::string_view(n_->name) : std::string_view(); }
    std::optional<std::string_view> value() const noexcept
    {
        return n_ && n_->has_value ? std::optional<std::string_view>(n_->value) : std::nullopt;
    }
    std::string_view text() const noexcept ///< the value, or ""
    {
        return n_ ? std::string_view(n_->value) : std::string_view("");
    }

    /// The same for all handles of one node, as long as it is not removed.
    const void *id() const noexcept { return n_; }

    /// It has a value and nothing below it, as settings and attributes have.
    bool is_leaf() const noexcept { return n_ && n_->has_value && !first_child(); }

    Node first_child() const noexcept { return {n_ && n_->children ? n_->children->first : nullptr, marks_}; }
    Node next() const noexcept ///< next sibling, in the order in which they were added
    {
        return {n_ ? n_->next : nullptr, marks_};
    }

    Node child(std::string_view name) const; ///< the child of this name, one component

    /// The node below with this dotted name; "" is the node itself. None for a name that the tree cannot
    /// hold.
    Node find(std::string_view name) const;
    std::optional<std::string_view> get(std::string_view name) const;
    std::string get_or(std::string_view name, std::string_view fallback) const;
    /// As the C library reads numbers: "12abc" is 12; without leading digits the fallback. Numbers beyond 64
    /// bits are the nearest one.
    long long get_int(std::string_view name, long long fallback) const;

    /// Sets the value of a node below, creating what is missing. The value is copied first; it may be a view
    /// into the tree. False, and nothing changed, for a bad name or a value with a NUL byte.
    bool set(std::string_view name, std::string_view value, Names names = Names::in_files);

    /// Removes the subtree of a node below; false when there is none.
    bool remove(std::string_view name);

    /// Copies values and children of `source` into the node `name` below, over what is there; nodes of
    /// `source` without a value leave the old value. `source` may be of the same tree, but not an ancestor of
    /// the target.
    bool merge(std::string_view name, Node source);

    /// Children in order, for loops that change nothing in this node.
    class Iterator;
    Iterator begin() const;
    static Iterator end();

    /// The node below with this name of good components, made where it is missing, without a value.
    Node make(std::string_view name);

  private:
    friend class Tree;
    Node(detail::TreeNode *n, TreeMarks *marks) noexcept : n_(n), marks_(marks) {}
    void give_value(std::string_view value);

    detail::TreeNode *n_ = nullptr;
    TreeMarks *marks_ = nullptr; // of its tree
};

class Node::Iterator {
  public:
    explicit Iterator(Node node) : node_(node) {}
    Node operator*() const { return node_; }
    Iterator &operator++()
    {
        node_ = node_.next();
        return *this;
    }
    bool operator!=(const Iterator &o) const { return node_ != o.node_; }

  private:
    Node node_;
};

inline Node::Iterator Node::begin() const
{
    return Iterator(first_child());
}

inline Node::Iterator Node::end()
{
    return Iterator({});
}

/// Owns a tree, or nothing: a tree that was not made yet reads as empty and cannot be set.
class Tree {
  public:
    Tree() noexcept = default;
    static Tree make();

    explicit operator bool() const noexcept { return root_ != nullptr; }
    void destroy() noexcept;
    Node root() const noexcept { return {root_.get(), marks_.get()}; }

    Node find(std::string_view name) const { return root().find(name); }
    std::optional<std::string_view> get(std::string_view name) const { return root().get(name); }
    std::string get_or(std::string_view name, std::string_view fallback) const
    {
        return root().get_or(name, fallback);
    }
    long long get_int(std::string_view name, long long fallback) const
    {
        return root().get_int(name, fallback);
    }
    bool set(std::string_view name, std::string_view value) { return root().set(name, value); }
    bool remove(std::string_view name) { return root().remove(name); }

    const TreeMarks &marks() const noexcept;

    /// As long as it lives, changes of the tree leave no mark: for changes that mean nothing to those who
    /// look at the marks.
    class Unmarked {
      public:
        explicit Unmarked(Tree &tree) noexcept : tree_(tree), before_(tree.marks()) {}
        ~Unmarked();
        Unmarked(const Unmarked &) = delete;
        Unmarked &operator=(const Unmarked &) = delete;

      private:
        Tree &tree_;
        TreeMarks before_;
    };

  private:
    std::unique_ptr<detail::TreeNode> root_;
    std::unique_ptr<TreeMarks> marks_; // handles of nodes know it
};

/// URL escaping of values: letters, digits and !()*-._ stand, a blank becomes "+", all else %XX.
std::string url_escape(std::string_view text);

/// "+" and %XX decoded once; malformed escapes stay as they are. Nothing when the result would hold a NUL
/// byte.
std::optional<std::string> url_unescape(std::string_view text);

} // namespace qvcd
