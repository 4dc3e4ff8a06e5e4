#include "client/completion_values.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "client/password_type.h"
#include "client/short_question.h"
#include "platform/password_type.h"

namespace qvcd::client {

namespace {

// Of lines "<prefix>NAME<suffix>..." the names, each once; with a suffix that ends in "=" the values.
std::vector<std::string> middle_parts(const std::string &text, std::string_view prefix,
                                      std::string_view suffix)
{
    std::set<std::string> names;
    for (const std::string &line : lines_of(text)) {
        const std::size_t end = line.find(suffix, std::min(prefix.size(), line.size()));
        if (line.starts_with(prefix) && end != std::string::npos)
            names.insert(line.substr(prefix.size(), end - prefix.size()));
    }
    return {names.begin(), names.end()};
}

std::vector<std::string> values_behind(const std::string &text, std::string_view key)
{
    std::vector<std::string> values;
    for (const std::string &line : lines_of(text))
        if (const std::size_t at = line.find(key); at != std::string::npos)
            values.push_back(line.substr(at + key.size()));
    return values;
}

bool is_number(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

std::vector<std::string> named_things(const Options &options, Takes takes)
{
    switch (takes) {
    case Takes::users:
        return middle_parts(kept_answer(options, "user.list"), "User.", ".");
    case Takes::user_groups:
        return middle_parts(kept_answer(options, "group.list"), "Group.", ".");
    case Takes::preset_numbers:
        return middle_parts(kept_answer(options, "preset.info"), "Preset.", ".Config.");
    case Takes::preset_names:
        return values_behind(kept_answer(options, "preset.info"), ".Config.name=");
    case Takes::profiles:
        return values_behind(kept_answer(options, "profile.list"), ".name=");
    default:
        return {};
    }
}

std::vector<std::string> assignments_of(const Options &options, const std::string &name,
                                        const std::string &typed, const std::string &value)
{
    std::vector<std::string> candidates =
        value.starts_with('@') ? files_like(value.substr(1))
                               : values_in(lines_of(kept_answer(options, "introspect " + name)), name);
    for (std::string &candidate : candidates)
        candidate.insert(0, value.starts_with('@') ? typed + "@" : typed);
    return candidates;
}

std::vector<std::string> files_like(const std::string &path)
{
    constexpr std::size_t kMost = 1000;
    const std::size_t start = path.rfind('/') + 1; // npos + 1 is 0
    const std::string folder = path.substr(0, start);
    const std::string begin = path.substr(start);
    std::vector<std::string> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, error), end;
         !error && entry != end && files.size() < kMost; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(begin) || (begin.empty() && name.starts_with('.')))
            continue;
        std::error_code ignored;
        files.push_back(folder + name + (entry->is_directory(ignored) ? "/" : ""));
    }
    std::ranges::sort(files);
    return files;
}

std::vector<std::string> values_in(const std::vector<std::string> &lines, const std::string &name)
{
    const std::string prefix = name + ".";
    if (is_password_type(value_in(lines, prefix + "type").value_or("")))
        return {"?"};
    std::vector<std::string> values;
    for (const std::string &line : lines) {
        const std::size_t equals = line.find('=');
        if (line.starts_with(prefix) && equals != std::string::npos && equals > prefix.size() &&
            is_number(line.substr(prefix.size(), equals - prefix.size())))
            values.push_back(
                line.substr(equals + 1, line.find(',', equals) - equals - 1)); // a text may follow
    }
    if (const auto value = value_in(lines, prefix + "value"); values.empty() && value && !value->empty())
        values.push_back(*value);
    return values;
}

} // namespace qvcd::client
