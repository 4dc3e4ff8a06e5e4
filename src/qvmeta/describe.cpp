#include "qvmeta/describe.h"

#include "base/lookup.h"
#include "base/text.h"
#include "funcs/check_map.h"
#include "platform/password_type.h"

#include <algorithm>

namespace qvcd {

namespace {

std::string join(const std::vector<std::string> &words, std::size_t first, std::string_view between)
{
    std::string text;
    for (std::size_t i = first; i < words.size(); ++i)
        text.append(i == first ? "" : between).append(words[i]);
    return text;
}

// One alternative of a type, as one would say it.
std::string in_words(const TypeWords &words)
{
    const std::string &name = words.front();
    const auto *row = find_row(type_rows(), name);
    const TypeArguments kind = row ? row->arguments : TypeArguments::none;
    if (name == "blank")
        return "empty";
    if (kind == TypeArguments::members)
        return (name == "string_set" ? "one of " : name + ", one of ") + join(words, 1, ", ");
    if (words.size() != 3)
        return name;
    const std::string range = words[1] + " to " + words[2];
    return kind == TypeArguments::lengths ? name + " of " + range + " characters"
           : kind == TypeArguments::none  ? name
                                          : name + " from " + range;
}

std::string type_in_words(std::string_view type)
{
    std::vector<std::string> parts;
    for (const TypeWords &words : parse_type(type))
        parts.push_back(in_words(words));
    return join(parts, 0, ", or ");
}

// Who may do what, level by level.
std::string rights(unsigned perm)
{
    static constexpr const char *kLevels[] = {"maker", "administrators", "operators", "everybody"};
    std::vector<std::string> parts;
    for (int level = 0; level < 4; ++level) {
        const unsigned digit = perm >> (4 * (3 - level)) & 7;
        std::vector<std::string> verbs;
        for (const auto &[bit, verb] :
             {std::pair(4U, "read"), std::pair(2U, "set"), std::pair(1U, "apply")}) {
            if (digit & bit)
                verbs.emplace_back(verb);
        }
        if (!verbs.empty())
            parts.push_back(std::string(kLevels[level]) + ": " + join(verbs, 0, ", "));
    }
    return parts.empty() ? "nobody" : join(parts, 0, "; ");
}

ApiPage page_of(Node root, const std::string &name)
{
    const MetaApi meta(root, name); // as it is written, with "__d" for the number of a copy
    const auto text = [&](const char *attribute) { return std::string(meta.get(attribute).value_or("")); };
    ApiPage page{
        name, std::string(meta.own("help").value_or("")), std::string(meta.own("desc").value_or("")), {}};
    const auto add = [&](const char *label, const std::string &value, bool is_literal = false) {
        if (!value.empty())
            page.facts.push_back({label, value, is_literal});
    };
    const std::string type = text("type");
    add("Values", type.empty() ? "any" : type_in_words(type));
    if (const auto fallback = meta.own("default")) {
        const bool is_password = is_password_type(type);
        add("Default",
            fallback->empty() ? "empty"
            : is_password     ? "not shown"
                              : std::string(*fallback),
            !fallback->empty() && !is_password);
    }
    add("Kind", meta.is_true("dynamic")    ? (meta.perm() & kWriteBits ? "status, set at once" : "status")
                : meta.perm() & kWriteBits ? "setting"
                                           : "fixed");
    add("Rights", rights(meta.perm()));
    add("Copies", text("range"), true);
    add("File", text("file"), true);
    add("Key", text("attr"), true);
    add("Before apply", std::string(meta.own("apply2").value_or("")), true);
    add("Apply", text("apply"), true);
    add("Linked to", std::string(meta.own("link").value_or("")), true);
    add("Was", std::string(meta.own("was").value_or("")), true);
    add("Type", type, true);
    return page;
}

} // namespace

std::vector<Chapter> describe_model(Node root)
{
    std::vector<Chapter> chapters;
    visit_model(root, [&](const ModelNode &node) {
        if (!node.is_api())
            return;
        const std::string first = node.name().substr(0, node.name().find('.'));
        if (chapters.empty() || chapters.back().name != first)
            chapters.push_back({first, {}});
        chapters.back().apis.push_back(page_of(root, node.name()));
    });
    return chapters;
}

} // namespace qvcd
