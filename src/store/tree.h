#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

struct _hdf; // NOLINT: ClearSilver's node, under its own name; only tree.cpp and hdf_file.cpp know more

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

/// A node of a tree, not owned; may be no node at all. Every view it hands out points into the tree and ends
/// with a '\0'; it is good until its node is set or removed, and at the latest until the command lock is let
/// go.
class Node {
  public:
    Node() noexcept = default;
    explicit Node(_hdf *n) noexcept : n_(n) {}
    explicit operator bool() const noexcept { return n_ != nullptr; }
    bool operator==(const Node &) const = default;

    std::string_view name() const noexcept; ///< empty for a root
    std::optional<std::string_view> value() const noexcept;
    std::string_view text() const noexcept; ///< the value, or ""

    Node first_child() const noexcept;
    Node next() const noexcept; ///< next sibling, in the order in which they were added

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
    class Iterator {
      public:
        explicit Iterator(_hdf *n) : n_(n) {}
        Node operator*() const { return Node(n_); }
        Iterator &operator++()
        {
            n_ = Node(n_).next().n_;
            return *this;
        }
        bool operator!=(const Iterator &o) const { return n_ != o.n_; }

      private:
        _hdf *n_;
    };
    Iterator begin() const { return Iterator(first_child().n_); }
    static Iterator end() { return Iterator(nullptr); }

    _hdf *raw() const noexcept { return n_; } ///< for the store's own sources

    /// For the store's own sources: the library changed the tree by itself.
    void note_changes() noexcept;

  private:
    _hdf *n_ = nullptr;
};

/// When a tree changed last, in numbers that grow with each change of any tree: while a number stays, nothing
/// of its kind happened.
struct TreeMarks {
    std::uint64_t changed = 0; ///< anything: a node, another value
    std::uint64_t nodes = 0;   ///< a node was made or removed
    std::uint64_t removed = 0; ///< a node was removed
};

/// Owns a tree, or nothing: a tree that was not made yet reads as empty and cannot be set.
class Tree {
  public:
    Tree() noexcept = default;
    static Tree make();
    Tree(Tree &&other) noexcept : h_(std::exchange(other.h_, nullptr)), marks_(std::move(other.marks_)) {}
    Tree &operator=(Tree &&other) noexcept;
    ~Tree() { destroy(); }

    explicit operator bool() const noexcept { return h_ != nullptr; }
    void destroy() noexcept;
    Node root() const noexcept { return Node(h_); }

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
    _hdf *h_ = nullptr;
    std::unique_ptr<TreeMarks> marks_; // its nodes know it too
};

/// The library's URL escaping: letters, digits and !()*-._ stand, a blank becomes "+", all else %XX.
std::string url_escape(std::string_view text);

/// "+" and %XX decoded once; malformed escapes stay as they are. Nothing when the result would hold a NUL
/// byte.
std::optional<std::string> url_unescape(std::string_view text);

/// Call once, before any thread starts and before any tree is made.
void tree_library_init();

} // namespace qvcd
