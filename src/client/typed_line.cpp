#include "client/typed_line.h"

#include "client/errors.h"
#include "client/shell_words.h"

namespace qvcd::client {

std::vector<std::string> split_typed_line(const std::string &line)
{
    Tokens tokens = tokenize(line, Separators::blanks);
    if (!tokens.list.empty() && line[tokens.list[0].start] == '#')
        return {};
    if (tokens.open)
        throw UsageError("a quote or a backslash is left open");
    std::vector<std::string> words;
    for (Token &token : tokens.list)
        words.push_back(std::move(token.text));
    return words;
}

} // namespace qvcd::client
