#include "qvclient/escape.h"

#include <algorithm>

#include "platform/socket.h"
#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

// Commands that decode arguments, and how many of them. A name that is yet to be goes as it stands.
struct FreeTextRow {
    std::string_view command;
    std::size_t arguments = 99;
};
constexpr FreeTextRow kFreeText[] = {
    {"login"},
    {"user.add"},
    {"user.mod"},
    {"user.passwd"},
    {"user.rem"},
    {"user.default"},
    {"preset.load_name", 1},
    {"preset.load_apply_name", 1},
    {"profile.read", 1},
    {"profile.load", 1},
    {"profile.remove", 1},
    {"profile.copy", 1},
    {"profile.export", 1},
};

// The words in front of the first and behind the last argument that is escaped.
struct FreeText {
    std::size_t first = 0;
    std::size_t end = 0;
};

FreeText free_text_of(const std::vector<std::string> &words)
{
    // "user passwd" is the same as "user.passwd".
    const std::string apart = words.size() > 1 ? words[0] + "." + words[1] : words[0];
    for (const FreeTextRow &row : kFreeText) {
        if (row.command == words[0])
            return {1, 1 + row.arguments};
        if (row.command == apart)
            return {2, 2 + row.arguments};
    }
    return {};
}

bool is_safe(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("-._~:/@").find(c) != std::string_view::npos;
}

bool breaks_line(char c)
{
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
}

// A part that travels as it is.
const std::string &plain(const std::string &text, std::string_view what)
{
    if (text.empty())
        throw UsageError("an empty " + std::string(what) + " cannot be sent");
    if (std::ranges::any_of(text, breaks_line))
        throw UsageError("blank or control character in " + std::string(what) + " '" + url_escape(text) +
                         "'");
    return text;
}

std::string name_part(const std::string &name)
{
    if (name.find(',') != std::string::npos)
        throw UsageError("comma in name '" + url_escape(name) + "'");
    return plain(name, "name");
}

// Commands that take a text of the user's behind "-m".
bool is_text(const std::vector<std::string> &words, std::size_t i)
{
    return i > 1 && words[i - 1] == "-m" && (words[0] == "commit" || words[0] == "rollback");
}

std::string wire_argument(const std::string &argument, bool free_text)
{
    if (free_text)
        return plain(url_escape(argument), "argument");
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos)
        return plain(argument, "argument");
    return name_part(argument.substr(0, equals)) + "=" + url_escape(argument.substr(equals + 1));
}

} // namespace

std::string url_escape(std::string_view text)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_safe(c))
            escaped += c;
        else
            escaped.append({'%', digits[byte >> 4U], digits[byte & 0xfU]});
    }
    return escaped;
}

std::string wire_line(const std::vector<std::string> &words)
{
    if (words.at(0) == "document") // what follows would be taken for the document
        throw UsageError("a document goes with the command that takes it");
    std::string line = name_part(words[0]);
    const FreeText free_text = free_text_of(words);
    for (std::size_t i = 1; i < words.size(); i++) {
        if (words[i] == "-m" && i + 1 < words.size() && words[i + 1].empty() && is_text(words, i + 1))
            ++i;
        else
            line += " " +
                    wire_argument(words[i], (i >= free_text.first && i < free_text.end) || is_text(words, i));
    }
    if (line.size() >= kMaxLineBytes)
        throw UsageError("the command is longer than 1 MiB");
    return line;
}

} // namespace qvcd::client
