#include "client/name_globs.h"

#include <algorithm>
#include <fnmatch.h>
#include <set>

#include "client/command_shapes.h"
#include "client/errors.h"
#include "client/reply.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostArguments = 99;

// fnmatch(3) knows of folders what we want of parts of names.
std::string as_path(std::string_view name)
{
    std::string path(name);
    std::ranges::replace(path, '.', '/');
    return path;
}

// The first `count` parts; empty when there are fewer.
std::string front(const std::string &name, std::ptrdiff_t count)
{
    std::size_t end = 0;
    for (; count > 0; --count) {
        if (end == std::string::npos)
            return {};
        end = name.find('.', end + 1);
    }
    return name.substr(0, end);
}

std::vector<std::string> names_of_all(const Options &options)
{
    std::vector<std::string> names;
    ask(options.endpoint, options.session, {"browse"}, options.limits("browse"),
        within_limit([&](std::string_view line) { names.emplace_back(line.substr(0, line.find('='))); }));
    return names;
}

class Expansion {
  public:
    explicit Expansion(const Options &options) : options_(options) {}

    void add(const std::string &argument, Words &words)
    {
        const std::size_t equals = argument.find('=');
        const std::string names = argument.substr(0, equals);
        const std::string rest = equals == std::string::npos ? "" : argument.substr(equals);
        for (std::size_t start = 0; start <= names.size();) {
            const std::size_t comma = std::min(names.find(',', start), names.size());
            add_one(names.substr(start, comma - start), rest, words);
            start = comma + 1;
        }
    }

  private:
    void add_one(const std::string &name, const std::string &rest, Words &words)
    {
        if (!has_glob(name)) {
            words.push_back(name + rest);
            return;
        }
        if (!all_.has_value())
            all_ = names_of_all(options_);
        const std::vector<std::string> found = matching_names(name, *all_, rest.empty());
        if (found.empty())
            throw UsageError("no name matches '" + name + "'" +
                             (options_.level.empty() ? "" : "; .NAME counts from the top"));
        for (const std::string &one : found)
            words.push_back(one + rest);
    }

    const Options &options_;
    std::optional<std::vector<std::string>> all_;
};

} // namespace

std::vector<std::string> matching_names(std::string_view pattern, const std::vector<std::string> &apis,
                                        bool groups_too)
{
    const std::string wanted = as_path(pattern);
    const std::ptrdiff_t parts = std::ranges::count(pattern, '.') + 1;
    std::vector<std::string> found;
    std::set<std::string> seen;
    for (const std::string &api : apis) {
        const std::string name = front(api, parts);
        const bool counts = !name.empty() && (groups_too || name == api);
        if (counts && fnmatch(wanted.c_str(), as_path(name).c_str(), FNM_PATHNAME) == 0 &&
            seen.insert(name).second)
            found.push_back(name);
    }
    return found;
}

Words with_names(const Options &options, const Words &words)
{
    if (std::none_of(words.begin() + 1, words.end(), has_glob))
        return words;
    const CommandShape shape = shape_of(words);
    Words expanded{words[0]};
    Expansion expansion(options);
    std::size_t argument = 0;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const bool is_option = words[i].starts_with('-');
        const bool is_of_option = i > 1 && shape.has_argument(words[i - 1]);
        const Takes takes = is_option || is_of_option ? Takes::nothing : shape.takes(argument++);
        if (has_glob(words[i]) && (takes == Takes::names || takes == Takes::assignments))
            expansion.add(words[i], expanded);
        else
            expanded.push_back(words[i]);
    }
    if (expanded.size() > kMostArguments + 1)
        throw UsageError(std::to_string(expanded.size() - 1) + " names match; a command takes " +
                         std::to_string(kMostArguments));
    return expanded;
}

} // namespace qvcd::client
