#include "qvclient/escape.h"

#include <algorithm>
#include <array>

#include "platform/socket.h"
#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

// Commands that take names and passwords of people: they decode their arguments.
constexpr std::array<std::string_view, 6> kFreeTextCommands{"login",       "user.add", "user.mod",
                                                            "user.passwd", "user.rem", "user.default"};

bool takes_free_text(const std::vector<std::string> &words)
{
    // "user passwd" is the same as "user.passwd".
    const bool apart = words[0] == "user" && words.size() > 1;
    return std::ranges::count(kFreeTextCommands, apart ? "user." + words[1] : words[0]) != 0;
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
    std::string line = name_part(words.at(0));
    const bool free_text = takes_free_text(words);
    for (std::size_t i = 1; i < words.size(); i++)
        line += " " + wire_argument(words[i], free_text || is_text(words, i));
    if (line.size() >= kMaxLineBytes)
        throw UsageError("the command is longer than 1 MiB");
    return line;
}

} // namespace qvcd::client
