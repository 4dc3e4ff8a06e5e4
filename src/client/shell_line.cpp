#include "client/shell_line.h"

#include <span>

#include "client/errors.h"
#include "client/shell_words.h"

namespace qvcd::client {

namespace {

Words words_of(std::span<const Token> tokens, const char *separator)
{
    if (tokens.empty())
        throw UsageError(std::string("nothing stands at one side of a \"") + separator + "\"");
    Words words;
    for (const Token &token : tokens)
        words.push_back(token.text);
    return words;
}

// The parts between tokens of a kind.
std::vector<std::span<const Token>> split_at(std::span<const Token> tokens, Token::Kind kind)
{
    std::vector<std::span<const Token>> parts;
    std::size_t start = 0;
    for (std::size_t at = 0; at < tokens.size(); ++at) {
        if (tokens[at].kind != kind)
            continue;
        parts.push_back(tokens.subspan(start, at - start));
        start = at + 1;
    }
    parts.push_back(tokens.subspan(start));
    return parts;
}

Step parse_step(std::span<const Token> tokens)
{
    const auto parts = split_at(tokens, Token::Kind::bar);
    const char *separator = parts.size() > 1 ? "|" : ";";
    Step step{words_of(parts[0], separator), {}};
    for (std::size_t i = 1; i < parts.size(); ++i)
        step.filters.emplace_back(words_of(parts[i], separator));
    return step;
}

} // namespace

std::vector<Step> parse_shell_line(const std::string &line)
{
    const Tokens tokens = tokenize(line, Separators::blanks_and_bars);
    if (tokens.list.empty() || line[tokens.list[0].start] == '#')
        return {};
    if (tokens.open)
        throw UsageError("a quote or a backslash is left open");
    auto parts = split_at(tokens.list, Token::Kind::semicolon);
    if (parts.size() > 1 && parts.back().empty())
        parts.pop_back(); // a ";" at the end
    std::vector<Step> steps;
    for (const auto &part : parts)
        steps.push_back(parse_step(part));
    return steps;
}

} // namespace qvcd::client
