#include "client/fleet/arguments.h"

#include <algorithm>
#include <charconv>

#include "client/errors.h"

namespace qvcd::client::fleet {

Arguments::Arguments(std::vector<std::string> words) : words_(std::move(words))
{
    const auto dashes = std::ranges::find(words_, "--");
    if (dashes == words_.end())
        return;
    behind_.assign(dashes + 1, words_.end());
    words_.erase(dashes, words_.end());
}

bool Arguments::flag(const std::string &name)
{
    return std::erase(words_, name) > 0;
}

std::optional<std::string> Arguments::value(const std::string &name)
{
    const auto found = std::ranges::find(words_, name);
    if (found == words_.end())
        return std::nullopt;
    if (found + 1 == words_.end())
        throw UsageError("option '" + name + "' needs an argument");
    std::string value = found[1];
    words_.erase(found, found + 2);
    return value;
}

std::optional<int> Arguments::number(const std::string &name, int least, int most)
{
    const std::optional<std::string> text = value(name);
    if (!text)
        return std::nullopt;
    int n = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), n);
    if (error != std::errc() || end != text->data() + text->size() || n < least || n > most)
        throw UsageError("'" + *text + "' behind " + name + " is no number from " + std::to_string(least) +
                         " to " + std::to_string(most));
    return n;
}

std::vector<std::string> Arguments::rest(const std::string &what, std::size_t least, std::size_t most)
{
    const auto option =
        std::ranges::find_if(words_, [](const std::string &word) { return word.starts_with("-"); });
    if (option != words_.end())
        throw UsageError("unknown option '" + *option + "' of " + what);
    words_.insert(words_.end(), behind_.begin(), behind_.end());
    if (words_.size() < least || words_.size() > most)
        throw UsageError(words_.size() < least ? what + " needs more arguments"
                                               : what + " takes fewer arguments");
    return words_;
}

} // namespace qvcd::client::fleet
