#include "store/tree.h"

#include <atomic>
#include <cstdlib>

namespace qvcd {

using detail::Children;
using detail::TreeNode;

namespace {

constexpr std::size_t kManyChildren = 16; // fewer are searched one by one

std::atomic<std::uint64_t> changes{0}; // of all trees

enum class Change { value, made, removed };

void mark(TreeMarks &marks, Change what)
{
    const std::uint64_t now = changes.fetch_add(1, std::memory_order_relaxed) + 1;
    marks.changed = now;
    if (what != Change::value)
        marks.nodes = now;
    if (what == Change::removed)
        marks.removed = now;
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

// Takes the first component off a name.
std::string_view next_component(std::string_view &name)
{
    const std::size_t dot = std::min(name.find('.'), name.size());
    const std::string_view component = name.substr(0, dot);
    name.remove_prefix(std::min(dot + 1, name.size()));
    return component;
}

TreeNode *find_child(const TreeNode &node, std::string_view name)
{
    if (!node.children)
        return nullptr;
    if (const auto &by_name = node.children->by_name) {
        const auto found = by_name->find(name);
        return found == by_name->end() ? nullptr : *found;
    }
    for (TreeNode *child = node.children->first; child; child = child->next) {
        if (child->name == name)
            return child;
    }
    return nullptr;
}

void index_children(Children &children)
{
    auto by_name = std::make_unique<decltype(children.by_name)::element_type>();
    for (TreeNode *child = children.first; child; child = child->next)
        by_name->insert(child);
    children.by_name = std::move(by_name);
}

TreeNode &add_child(TreeNode &node, std::string_view name)
{
    if (!node.children)
        node.children = std::make_unique<Children>();
    Children &children = *node.children;
    auto child = std::make_unique<TreeNode>();
    child->name = name;
    if (children.by_name)
        children.by_name->insert(child.get());
    TreeNode *&end = children.last ? children.last->next : children.first;
    children.last = end = child.release();
    if (++children.count == kManyChildren)
        index_children(children);
    return *children.last;
}

void remove_child(TreeNode &node, TreeNode &child)
{
    Children &children = *node.children;
    TreeNode *before = nullptr;
    for (TreeNode *n = children.first; n != &child; n = n->next)
        before = n;
    if (children.by_name)
        children.by_name->erase(&child);
    (before ? before->next : children.first) = child.next;
    if (children.last == &child)
        children.last = before;
    --children.count;
    const std::unique_ptr<TreeNode> gone(&child);
    if (children.count == 0)
        node.children.reset();
}

} // namespace

Children::~Children()
{
    while (first) {
        const std::unique_ptr<TreeNode> gone(first);
        first = gone->next;
    }
}

bool is_tree_name(std::string_view name)
{
    return has_good_components(name, is_name_char);
}

Node Node::child(std::string_view name) const
{
    return {n_ ? find_child(*n_, name) : nullptr, marks_};
}

// A name that the tree cannot hold has a component that no node bears.
Node Node::find(std::string_view name) const
{
    if (name.empty() || !n_)
        return *this;
    if (name.ends_with('.'))
        return {};
    TreeNode *node = n_;
    while (node && !name.empty())
        node = find_child(*node, next_component(name));
    return {node, marks_};
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
    const Node node = find(name);
    if (!node.value())
        return fallback;
    const char *text = node.n_->value.c_str();
    char *end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    return end == text ? fallback : number;
}

// The value may be a view into the node's own, which assign() allows for.
void Node::give_value(std::string_view value)
{
    if (n_->has_value && n_->value == value)
        return;
    mark(*marks_, n_->has_value ? Change::value : Change::made);
    n_->value.assign(value);
    n_->has_value = true;
}

Node Node::make(std::string_view name)
{
    TreeNode *node = n_;
    while (!name.empty()) {
        const std::string_view component = next_component(name);
        TreeNode *child = find_child(*node, component);
        if (!child) {
            mark(*marks_, Change::made);
            child = &add_child(*node, component);
        }
        node = child;
    }
    return {node, marks_};
}

bool Node::set(std::string_view name, std::string_view value, Names names)
{
    if (!n_ || value.find('\0') != std::string_view::npos)
        return false;
    Node there = find(name);
    if (!there) {
        if (!is_taken(name, names))
            return false;
        there = make(name);
    }
    there.give_value(value);
    return true;
}

bool Node::remove(std::string_view name)
{
    const Node gone = name.empty() ? Node() : find(name);
    if (!gone)
        return false;
    const std::size_t dot = name.rfind('.');
    const Node parent = dot == std::string_view::npos ? *this : find(name.substr(0, dot));
    mark(*marks_, Change::removed);
    remove_child(*parent.n_, *gone.n_);
    return true;
}

bool Node::merge(std::string_view name, Node source)
{
    if (!n_ || !source || (!name.empty() && !is_tree_name(name)))
        return false;
    Node target = make(name);
    if (const auto value = source.value())
        target.give_value(*value);
    for (Node child = source.first_child(); child; child = child.next())
        target.merge(child.name(), child);
    return true;
}

Tree Tree::make()
{
    Tree tree;
    tree.marks_ = std::make_unique<TreeMarks>();
    tree.root_ = std::make_unique<TreeNode>();
    mark(*tree.marks_, Change::removed);
    return tree;
}

void Tree::destroy() noexcept
{
    root_.reset();
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
    constexpr char kHex[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((is_name_char(c) && c != '_') || std::string_view("!()*-._").find(c) != std::string_view::npos)
            escaped += c;
        else if (c == ' ')
            escaped += '+';
        else
            escaped += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
    }
    return escaped;
}

namespace {

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const int letter = (c | 0x20) - 'a';
    return letter >= 0 && letter < 6 ? letter + 10 : -1;
}

} // namespace

std::optional<std::string> url_unescape(std::string_view text)
{
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_digit(text[i + 2]) : -1;
        if (low >= 0) {
            plain += static_cast<char>(high << 4 | low);
            i += 2;
        } else {
            plain += text[i] == '+' ? ' ' : text[i];
        }
        if (plain.back() == '\0')
            return std::nullopt;
    }
    return plain;
}

} // namespace qvcd
