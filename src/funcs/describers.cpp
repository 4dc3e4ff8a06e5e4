#include "funcs/describers.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/reply.h"
#include "base/text.h"
#include "platform/sysroot.h"
#include "store/meta.h"
#include "store/profile_files.h"

#include <algorithm>
#include <optional>
#include <strings.h>
#include <vector>

namespace qvcd {

namespace {

constexpr std::size_t kMaxCategories = 16;

// Writes "<prefix><api>.<name>=<value>".
void describe(const Description &what, std::string_view name, std::string_view value)
{
    reply_value(what.out, std::string(what.prefix).append(what.api).append(".").append(name), value);
}

std::string_view argument(const Description &what, std::size_t at)
{
    return at < what.args.size() ? std::string_view(what.args[at]) : std::string_view();
}

std::string join(std::span<const std::string> words, std::string_view separator)
{
    std::string text;
    for (const std::string &word : words)
        text.append(text.empty() ? std::string_view() : separator).append(word);
    return text;
}

// The counters of one statistics file.
struct Category {
    std::string name;
    unsigned count = 0;
};

// Words of an API's type after the first; nothing when it has no type.
std::optional<std::vector<std::string>> type_arguments(std::string_view api)
{
    const std::optional<std::string> type = meta_get(api, "type");
    if (!type)
        return std::nullopt;
    std::vector<std::string> words = split_words(*type, kListSeparators);
    if (!words.empty())
        words.erase(words.begin());
    return words;
}

std::vector<Category> make_categories(const std::vector<std::string> &names)
{
    std::vector<Category> categories;
    for (const std::string &name : names) {
        if (categories.size() < kMaxCategories)
            categories.push_back({name});
    }
    return categories;
}

void count_line(std::vector<Category> &categories, const std::string &key, const std::string &value)
{
    if (key.empty() || value.empty())
        return;
    for (Category &category : categories) {
        if (strncasecmp(category.name.c_str(), key.c_str(), category.name.size()) == 0)
            category.count += static_cast<unsigned>(c_int(value));
    }
}

void count_lines(std::vector<Category> &categories, std::string_view text)
{
    std::string key;
    std::string value;
    while (kv_readline(text, key, value) > 0) {
        count_line(categories, key, value);
        key.clear();
        value.clear();
    }
}

} // namespace

int introspect_undefined(const Description &)
{
    return 0;
}

int introspect_blank(const Description &)
{
    return 0;
}

int introspect_boolean(const Description &what)
{
    if (what.compact) {
        reply_text(what.out, std::string(what.prefix).append("0 1"));
        return what.index;
    }
    describe(what, "choices", "[0,1]");
    describe(what, "0", "0");
    describe(what, "1", "1");
    return what.index;
}

int introspect_set(const Description &what)
{
    if (what.compact) {
        reply_text(what.out, what.prefix);
        for (const std::string &member : what.args)
            reply_text(what.out, member + " ");
        return what.index;
    }
    if (what.args.empty())
        return what.index;
    describe(what, "choices", "[" + join(what.args, ",") + "]");
    int number = what.index;
    for (const std::string &member : what.args)
        describe(what, std::to_string(number++), member);
    return number;
}

int introspect_range(const Description &what)
{
    const std::string_view min = argument(what, 0);
    const std::string_view max = argument(what, 1);
    if (what.compact) {
        reply_text(what.out, std::string(what.prefix).append(min).append("-").append(max).append(" "));
        return what.index;
    }
    describe(what, "min", min);
    describe(what, "max", max);
    return what.index;
}

int introspect_profile(const Description &what)
{
    int number = 0;
    for (const std::string &profile : profile_names()) {
        if (what.compact)
            reply_text(what.out, profile);
        else
            describe(what, std::to_string(number++), profile);
    }
    return what.index;
}

int introspect_profile2(const Description &what)
{
    int number = 0;
    for (const std::string &profile : profile_names_of_group(what.api)) {
        std::string text;
        profile_read_group_desc(profile, text);
        describe(what, std::to_string(number++), std::string(profile).append(",").append(text));
    }
    return what.index;
}

// The API's type is "<type name> <file> <second API>"; the second API's type holds the categories.
int introspect_quality(const Description &what)
{
    const std::optional<std::vector<std::string>> source = type_arguments(what.api);
    if (!source || source->size() < 2)
        return 1;
    const std::optional<std::vector<std::string>> names = type_arguments((*source)[1]);
    if (!names)
        return 1;
    std::vector<Category> categories = make_categories(*names);
    if (const std::optional<std::string> text = read_file(qv_sysroot_path((*source)[0])))
        count_lines(categories, *text);
    for (const Category &category : categories)
        describe(what, category.name, std::to_string(category.count));
    return 0;
}

std::size_t kv_readline(std::string_view &text, std::string &key, std::string &value)
{
    const std::size_t newline = text.find('\n');
    const std::size_t whole = newline == std::string_view::npos ? text.size() : newline + 1;
    const std::size_t length = std::min(whole, kMaxFileLineBytes);
    std::string_view line = text.substr(0, length);
    text.remove_prefix(length);
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return length;
    if (equals > 0)
        key = line.substr(0, equals);
    const std::size_t start = line.find_first_not_of("= \t:", equals);
    value = start == std::string_view::npos ? std::string_view() : line.substr(start);
    return length;
}

} // namespace qvcd
