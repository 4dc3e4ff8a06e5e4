#include "base/text.h"
#include "qvmeta/pages.h"

#include <algorithm>

namespace qvcd {

namespace {

// Punctuation gets a backslash: it is text then.
std::string plain(std::string_view text)
{
    std::string escaped;
    for (const char c : one_line(std::string(text))) {
        if (std::string_view("\\`*_{}[]<>()#+-!|~&").find(c) != std::string_view::npos)
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// Between as many backquotes as it has none of. A "|" would end the cell of a table all the same.
std::string literal(std::string_view text)
{
    std::string fence = "`";
    while (text.find(fence) != std::string_view::npos)
        fence += '`';
    std::string inside;
    for (const char c : one_line(std::string(text)))
        inside.append(c == '|' ? "\\" : "") += c;
    const bool needs_blank = inside.starts_with('`') || inside.ends_with('`');
    return needs_blank ? fence + " " + inside + " " + fence : fence + inside + fence;
}

// Names of the tree make names of headings.
std::string anchor(const std::string &name)
{
    std::string link;
    for (const char c : name) {
        if (c != '.')
            link += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return link;
}

std::string page(const ApiPage &api)
{
    std::string text = "\n### " + plain(api.name) + "\n";
    for (const std::string &paragraph : {api.help, api.desc}) {
        if (!paragraph.empty())
            text += "\n" + plain(paragraph) + "\n";
    }
    text += "\n| | |\n|---|---|\n";
    for (const auto &[label, value, is_literal] : api.facts)
        text += "| " + label + " | " + (is_literal ? literal(value) : plain(value)) + " |\n";
    return text;
}

} // namespace

std::string markdown(const std::vector<Chapter> &chapters)
{
    std::string text = "# Reference of all APIs\n\n";
    for (const Chapter &chapter : chapters)
        text += "- [" + plain(chapter.name) + "](#" + anchor(chapter.name) + ")\n";
    for (const Chapter &chapter : chapters) {
        text += "\n## " + plain(chapter.name) + "\n";
        for (const ApiPage &api : chapter.apis)
            text += page(api);
    }
    return text;
}

} // namespace qvcd
