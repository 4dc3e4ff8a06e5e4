#include "check/model_api.h"

#include "base/text.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::string_view kMark = "__";

bool is_template(std::string_view name)
{
    return name.find(kMark) != std::string_view::npos;
}

std::vector<std::string> templates_around(const std::string &name)
{
    std::vector<std::string> found;
    for (std::size_t begin = 0; begin < name.size();) {
        const std::size_t end = std::min(name.find('.', begin), name.size());
        if (is_template(std::string_view(name).substr(begin, end - begin)))
            found.push_back(name.substr(0, end));
        begin = end + 1;
    }
    return found;
}

void visit_below(Node root, Node below, std::string &path, const std::string &number,
                 const std::function<void(const ModelNode &)> &visit)
{
    for (const Node child : below) {
        if (!child.first_child()) // an attribute, or nothing
            continue;
        const std::size_t size = path.size();
        path.append(size ? "." : "").append(child.name());
        std::string inside = number;
        if (is_template(child.name())) {
            const auto words = split_words(MetaApi(root, path).get("range").value_or(""), " \t");
            inside = words.empty() ? "1" : words.front();
        }
        visit(ModelNode(root, path, inside));
        visit_below(root, child, path, inside, visit);
        path.resize(size);
    }
}

// The name, less that many levels.
std::string name_of_level(std::string name, std::size_t levels)
{
    for (; levels > 0 && !name.empty(); --levels)
        name.resize(name.find('.') == std::string::npos ? 0 : name.rfind('.'));
    return name;
}

bool is_number(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// A copy of the number, as far as the range can be known.
bool may_have_copy(Node node, std::int64_t number)
{
    const std::vector<std::string> range = split_words(node.get_or("range", ""), " \t");
    if (range.size() < 2)
        return true; // an inherited one
    const auto last = parse_int64(range[1]);
    return number >= c_int64(range[0]) && (!last || number <= *last);
}

} // namespace

ModelNode::ModelNode(Node root, std::string name, std::string number)
    : name_(std::move(name)), number_(std::move(number)), templates_(templates_around(name_)),
      meta_(root, name_)
{
}

std::string ModelNode::in_first_copy(std::string_view text) const
{
    std::string found(text);
    for (std::size_t at = 0; !number_.empty() && (at = found.find(kMark, at)) != std::string::npos;)
        found.replace(at, kMark.size() + 1, number_);
    return found;
}

std::optional<std::string> ModelNode::get(std::string_view attribute) const
{
    const auto text = meta_.get(attribute);
    return text ? std::optional(in_first_copy(*text)) : std::nullopt;
}

std::optional<std::string> ModelNode::own(std::string_view attribute) const
{
    const auto text = meta_.own(attribute);
    return text ? std::optional(in_first_copy(*text)) : std::nullopt;
}

std::string ModelNode::source_name(std::string_view attribute) const
{
    return name_of_level(name_, meta_.level_of(attribute));
}

void visit_model(Node root, const std::function<void(const ModelNode &)> &visit)
{
    std::string path;
    visit_below(root, root, path, "", visit);
}

Node find_in_model(Node root, std::string_view name)
{
    Node node = root;
    while (node && !name.empty()) {
        const std::string_view part = name.substr(0, name.find('.'));
        name.remove_prefix(std::min(name.size(), part.size() + 1));
        Node next = node.child(part);
        for (Node child = node.first_child(); !next && child && is_number(part); child = child.next()) {
            if (is_template(child.name()) && may_have_copy(child, c_int64(part)))
                next = child;
        }
        node = next;
    }
    return node == root ? Node() : node;
}

} // namespace qvcd
