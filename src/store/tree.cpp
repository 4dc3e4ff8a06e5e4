#include "store/tree.h"

#include "base/text.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <util/neo_hdf.h>
#include <util/neo_str.h>

#include <cgi/cgi.h>

namespace qvcd {

namespace {

std::atomic<std::uint64_t> changes{0};

enum class Change { value, made, removed };

// Marks stand where the library keeps a context for whoever loads its files, which we do ourselves.
void mark(const HDF *node, Change what)
{
    const std::uint64_t now = changes.fetch_add(1, std::memory_order_relaxed) + 1;
    auto *marks = static_cast<TreeMarks *>(node->top->fileload_ctx);
    marks->changed = now;
    if (what != Change::value)
        marks->nodes = now;
    if (what == Change::removed)
        marks->removed = now;
}

bool ignore(NEOERR *error)
{
    const bool ok = error == nullptr;
    nerr_ignore(&error);
    return ok;
}

bool is_name_char(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

template <class GoodChar>
bool has_good_components(std::string_view name, GoodChar is_good)
{
    int depth = 1;
    char before = '.';
    for (const char c : name) {
        if (c == '.') {
            if (before == '.' || ++depth > kMaxTreeDepth)
                return false;
        } else if (!is_good(c)) {
            return false;
        }
        before = c;
    }
    return before != '.';
}

bool is_taken(std::string_view name, Names names)
{
    if (names == Names::in_files)
        return is_tree_name(name);
    return has_good_components(name, [](char c) { return c != '\0'; });
}

// As the library's own search does it, which wants the name as a C string and goes over it byte by byte. Our
// trees hold no links, which it would follow.
HDF *find_child(const HDF *node, std::string_view name)
{
    if (node->hash) {
        HDF key{};
        key.name = const_cast<char *>(name.data()); // only read
        key.name_len = static_cast<int>(name.size());
        return static_cast<HDF *>(ne_hash_lookup(node->hash, &key));
    }
    for (HDF *child = node->child; child; child = child->next) {
        if (static_cast<std::size_t>(child->name_len) == name.size() &&
            std::memcmp(child->name, name.data(), name.size()) == 0)
            return child;
    }
    return nullptr;
}

// hdf_remove_tree leaves the parent's set cache on freed memory.
void forget_set_cache(HDF *parent)
{
    parent->last_hp = nullptr;
    parent->last_hs = nullptr;
}

struct FreeDeleter {
    void operator()(char *text) const noexcept { std::free(text); }
};
using CText = std::unique_ptr<char, FreeDeleter>;

} // namespace

bool is_tree_name(std::string_view name)
{
    return has_good_components(name, is_name_char);
}

std::string_view Node::name() const noexcept
{
    return n_ && n_->name ? std::string_view(n_->name, static_cast<std::size_t>(n_->name_len))
                          : std::string_view();
}

std::optional<std::string_view> Node::value() const noexcept
{
    if (!n_ || !n_->value)
        return std::nullopt;
    return std::string_view(n_->value);
}

std::string_view Node::text() const noexcept
{
    return n_ && n_->value ? std::string_view(n_->value) : std::string_view("");
}

Node Node::first_child() const noexcept
{
    return Node(n_ ? n_->child : nullptr);
}

Node Node::next() const noexcept
{
    return Node(n_ ? n_->next : nullptr);
}

Node Node::child(std::string_view name) const
{
    return Node(n_ ? find_child(n_, name) : nullptr);
}

// A name that the tree cannot hold has a component that no node bears.
Node Node::find(std::string_view name) const
{
    if (name.empty())
        return *this;
    Node node = *this;
    for (bool last = false; node && !last;) {
        const std::size_t dot = name.find('.');
        last = dot == std::string_view::npos;
        node = node.child(name.substr(0, dot));
        name.remove_prefix(last ? name.size() : dot + 1);
    }
    return node;
}

std::optional<std::string_view> Node::get(std::string_view name) const
{
    return find(name).value();
}

std::string Node::get_or(std::string_view name, std::string_view fallback) const
{
    return std::string(get(name).value_or(fallback));
}

long long Node::get_int(std::string_view name, long long fallback) const
{
    const auto value = get(name);
    if (!value)
        return fallback;
    char *end = nullptr;
    const long long number = std::strtoll(value->data(), &end, 10);
    return end == value->data() ? fallback : number;
}

bool Node::set(std::string_view name, std::string_view value, Names names)
{
    if (!n_ || value.find('\0') != std::string_view::npos)
        return false;
    const Node there = find(name);
    if (there.value() == value)
        return true;
    if (!there && !is_taken(name, names))
        return false;
    mark(n_, there ? Change::value : Change::made);
    const std::string copy(value); // the view may point into the node's old value
    return ignore(there ? hdf_set_value(there.n_, "", copy.c_str())
                        : hdf_set_value(n_, std::string(name).c_str(), copy.c_str()));
}

bool Node::remove(std::string_view name)
{
    const Node gone = name.empty() ? Node() : find(name);
    if (!gone)
        return false;
    const std::size_t dot = name.rfind('.');
    const Node parent = dot == std::string_view::npos ? *this : find(name.substr(0, dot));
    const std::string last(dot == std::string_view::npos ? name : name.substr(dot + 1));
    mark(n_, Change::removed);
    const bool removed = ignore(hdf_remove_tree(parent.n_, last.c_str()));
    forget_set_cache(parent.n_);
    return removed;
}

bool Node::merge(std::string_view name, Node source)
{
    if (!n_ || !source || (!name.empty() && !is_tree_name(name)))
        return false;
    Node target = find(name);
    if (!target) {
        // A node without a value is what the library makes for a missing parent.
        mark(n_, Change::made);
        HDF *made = nullptr;
        if (!ignore(hdf_get_node(n_, std::string(name).c_str(), &made)))
            return false;
        target = Node(made);
    }
    if (const auto value = source.value())
        target.set("", *value);
    for (Node child = source.first_child(); child; child = child.next())
        target.merge(child.name(), child);
    return true;
}

void Node::note_changes() noexcept
{
    mark(n_, Change::removed);
}

Tree Tree::make()
{
    Tree tree;
    tree.marks_ = std::make_unique<TreeMarks>();
    if (!ignore(hdf_init(&tree.h_)))
        throw std::bad_alloc();
    hdf_register_fileload(tree.h_, tree.marks_.get(), nullptr);
    mark(tree.h_, Change::removed);
    return tree;
}

Tree &Tree::operator=(Tree &&other) noexcept
{
    if (this != &other) {
        destroy();
        h_ = std::exchange(other.h_, nullptr);
        marks_ = std::move(other.marks_);
    }
    return *this;
}

void Tree::destroy() noexcept
{
    if (h_) {
        hdf_destroy(&h_);
        changes.fetch_add(1, std::memory_order_relaxed);
    }
    h_ = nullptr;
    marks_.reset();
}

const TreeMarks &Tree::marks() const noexcept
{
    static constexpr TreeMarks kNone;
    return marks_ ? *marks_ : kNone;
}

Tree::Unmarked::~Unmarked()
{
    if (tree_.marks_)
        *tree_.marks_ = before_;
}

std::string url_escape(std::string_view text)
{
    std::string escaped;
    // The library works on C strings; a NUL byte is the one byte it cannot see.
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t nul = std::min(text.find('\0', at), text.size());
        const std::string piece(text.substr(at, nul - at));
        char *out = nullptr;
        if (!ignore(cgi_url_escape(piece.c_str(), &out)))
            throw std::bad_alloc();
        escaped += CText(out).get();
        if (nul < text.size())
            escaped += "%00";
        at = nul + 1;
    }
    return escaped;
}

std::optional<std::string> url_unescape(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        return std::nullopt;
    // "%" is no hexadecimal digit, so wherever these three bytes stand they decode to a NUL byte.
    if (text.find("%00") != std::string_view::npos)
        return std::nullopt;
    std::string copy(text);
    copy.resize(std::char_traits<char>::length(cgi_url_unescape(copy.data())));
    return copy;
}

void tree_library_init()
{
    ignore(nerr_init());
}

} // namespace qvcd
