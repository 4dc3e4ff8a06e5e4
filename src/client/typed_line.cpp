#include "client/typed_line.h"

#include <histedit.h>
#include <memory>

#include "client/errors.h"

namespace qvcd::client {

std::vector<std::string> split_typed_line(const std::string &line)
{
    const std::unique_ptr<Tokenizer, decltype(&tok_end)> tokenizer(tok_init(nullptr), tok_end);
    int count = 0;
    const char **words = nullptr;
    if (tok_str(tokenizer.get(), line.c_str(), &count, &words) != 0)
        throw UsageError("a quote is left open");
    if (count > 0 && words[0][0] == '#')
        return {};
    return {words, words + count};
}

} // namespace qvcd::client
