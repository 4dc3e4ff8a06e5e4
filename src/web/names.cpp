#include "web/names.h"

#include "web/message.h"

#include <algorithm>
#include <charconv>

namespace qvcd::web {

namespace {

constexpr std::size_t kMostNameBytes = 1023;

bool is_name_character(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

} // namespace

const std::string &checked_name(const std::string &name)
{
    if (name.empty() || name.size() > kMostNameBytes || !std::ranges::all_of(name, is_name_character))
        throw Problem{404, "Parameter not found", name};
    return name;
}

std::vector<std::string> asked_names(const Request &request)
{
    std::vector<std::string> names;
    const auto [first, last] = request.query.equal_range("name");
    for (auto at = first; at != last; ++at)
        names.push_back(checked_name(at->second));
    return names;
}

std::string asked(const Request &request, const char *key)
{
    const auto found = request.query.find(key);
    return found == request.query.end() ? "" : found->second;
}

long long asked_number(const Request &request, const char *key, long long fallback, long long least,
                       long long most)
{
    const std::string text = asked(request, key);
    if (text.empty())
        return fallback;
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most)
        throw Problem{400,
                      std::string(key) + " has to be a number from " + std::to_string(least) + " to " +
                          std::to_string(most),
                      key};
    return number;
}

} // namespace qvcd::web
