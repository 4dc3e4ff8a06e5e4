// Groups and templates.

#include "base/text.h"
#include "check/report.h"
#include "model/template.h"

#include <algorithm>
#include <optional>

namespace qvcd {

namespace {

constexpr std::string_view kMark = "__";

bool has_api(Node group)
{
    for (const Node child : group) {
        if (child.child("attr") || has_api(child))
            return true;
    }
    return false;
}

bool has_template(Node group)
{
    for (const Node child : group) {
        if (child.name().find(kMark) != std::string_view::npos || has_template(child))
            return true;
    }
    return false;
}

void check_group(Report &report, const ModelNode &group)
{
    if (has_api(group.node()))
        return;
    const bool looks_like_api = group.own("type") || group.own("default") || group.own("link");
    if (looks_like_api)
        report.add(Kind::no_attr, group.node(), group.name(), "it has no attr, so it is no API");
    else
        report.add(Kind::empty_group, group.node(), group.name(), "there is no API in this group");
}

// What is wrong with a range; empty: nothing.
std::string range_mistake(Node root, const std::string &text)
{
    const std::vector<std::string> words = split_words(text, " \t\r\n");
    if (words.size() < 2 || words.size() > 3)
        return "range is " + quote(text) + ", not START LAST [STEP]";
    const auto start = parse_int64(words[0]);
    const auto last = parse_int64(words[1]);
    const auto step = words.size() > 2 ? parse_int64(words[2]) : std::optional<std::int64_t>(1);
    if (!start || *start < 0)
        return "range begins with " + quote(words[0]) + ", not with a number from 0";
    if (!step || *step < 1)
        return "range has the step " + quote(words[2]) + ", not a number from 1";
    if (!last) {
        const Node api = find_in_model(root, words[1]);
        return api && api.child("attr") ? "" : "range ends with " + quote(words[1]) + ", which is no API";
    }
    if (*last < *start)
        return "range " + text + " makes no copies";
    if ((*last - *start) / *step >= static_cast<std::int64_t>(kMaxTemplateCopies))
        return "range " + text + " makes more than " + std::to_string(kMaxTemplateCopies) + " copies";
    return "";
}

// How many copies a good range makes; of one that ends with an API at least one.
std::uint64_t copies_of(const std::string &text)
{
    const std::vector<std::string> words = split_words(text, " \t\r\n");
    const auto last = words.size() < 2 ? std::nullopt : parse_int64(words[1]);
    if (!last)
        return 1;
    const std::int64_t step = words.size() > 2 ? c_int64(words[2]) : 1;
    return static_cast<std::uint64_t>((*last - c_int64(words[0])) / std::max<std::int64_t>(step, 1)) + 1;
}

// Templates around each other multiply.
std::string product_mistake(const ModelNode &node, Node root)
{
    std::uint64_t copies = 1;
    for (const std::string &around : node.templates()) {
        const std::string range(MetaApi(root, around).get("range").value_or(""));
        if (range_mistake(root, range).empty())
            copies *= copies_of(range);
        if (copies > kMaxCopiesOfOneRun)
            return "range makes, with those around it, more than " + std::to_string(kMaxCopiesOfOneRun) +
                   " copies";
    }
    return "";
}

void check_template(Report &report, const ModelNode &node)
{
    const std::string own_name(node.node().name());
    if (!own_name.starts_with(kMark))
        report.add(Kind::template_name, node.node(), node.name(),
                   "a name with \"__\" is a template's, and those begin with it");
    else if (!node.get("range"))
        report.add(Kind::no_range, node.node(), node.name(),
                   "a template without a range: there are no copies");
}

void check_range(Report &report, const ModelNode &node)
{
    const Node range = node.node().child("range");
    if (!range.is_leaf() || range.text().empty())
        return;
    std::string mistake = range_mistake(report.root(), node.own("range").value_or(""));
    if (mistake.empty())
        mistake = product_mistake(node, report.root());
    if (!mistake.empty())
        report.add(Kind::bad_range, range, node.name(), mistake);
    const bool used = node.node().name().find(kMark) != std::string_view::npos || has_template(node.node());
    if (!used)
        report.add(Kind::unused_range, range, node.name(),
                   "there is no template here, whose name begins with \"__\"");
}

} // namespace

void check_structure(Report &report, const ModelNode &node)
{
    if (!node.is_api())
        check_group(report, node);
    else if (has_api(node.node()))
        report.add(Kind::api_in_api, node.node(), node.name(),
                   "it has an attr, and there are APIs below it: it cannot hold a value");
    if (node.node().name().find(kMark) != std::string_view::npos)
        check_template(report, node);
    check_range(report, node);
}

} // namespace qvcd
