#include "funcs/describers.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/reply.h"
#include "base/text.h"
#include "funcs/check_map.h"
#include "platform/sysroot.h"
#include "store/hdfutils.h"
#include "store/meta.h"
#include "store/profile_files.h"

#include <algorithm>
#include <cstdint>
#include <limits>
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

std::vector<std::string> taken(const Description &what, std::vector<std::string> values)
{
    std::erase_if(values,
                  [&](const std::string &value) { return cfuncmap_check(what.api, value).has_value(); });
    return values;
}

int describe_members(const Description &what, std::span<const std::string> members, int number)
{
    std::string list;
    for (const std::string &member : members)
        list.append(list.empty() ? "" : ",").append(member);
    if (!members.empty())
        describe(what, "choices", "[" + list + "]");
    for (const std::string &member : members)
        describe(what, std::to_string(number++), member);
    return number;
}

int describe_bounds(const Description &what, std::string_view min, std::string_view max)
{
    if (what.compact) {
        reply_text(what.out, std::string(what.prefix).append(min).append("-").append(max).append(" "));
        return what.index;
    }
    describe(what, "min", min);
    describe(what, "max", max);
    return what.index;
}

std::string bound(const Description &what, std::size_t at)
{
    return at < what.args.size() && !cfuncmap_check(what.api, what.args[at]) ? what.args[at] : "";
}

std::string length_bound(const Description &what, std::size_t at)
{
    if (at >= what.args.size())
        return {};
    const auto length = static_cast<std::size_t>(
        std::clamp<std::int64_t>(c_int64(what.args[at]), 0, kMaxValueBytes)); // no value is longer
    return cfuncmap_check(what.api, std::string(length, 'x')) ? std::string() : std::to_string(length);
}

// The counters of one statistics file.
struct Category {
    std::string name;
    std::int64_t count = 0;
};

// Words of an API's type after the first, none without a type.
std::vector<std::string> type_arguments(std::string_view api)
{
    std::vector<std::string> words = split_words(meta_get(api, "type").value_or(""), kListSeparators);
    if (!words.empty())
        words.erase(words.begin());
    return words;
}

// A line is "<category><anything>=<number>"; further "=", ":" and blanks may stand in front of the number.
void count_line(std::vector<Category> &categories, std::string_view line)
{
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return;
    const std::string_view key = line.substr(0, equals);
    const std::string_view value =
        line.substr(std::min(line.size(), line.find_first_not_of("= \t:", equals)));
    for (Category &category : categories) {
        const std::size_t size = category.name.size();
        if (key.size() >= size && strncasecmp(category.name.c_str(), key.data(), size) == 0)
            category.count += std::clamp<std::int64_t>(
                c_int64(value), 0, std::numeric_limits<std::int64_t>::max() - category.count);
    }
}

} // namespace

int introspect_boolean(const Description &what)
{
    if (what.compact)
        reply_text(what.out, std::string(what.prefix).append("0 1"));
    else
        describe_members(what, taken(what, {"0", "1"}), 0);
    return what.index;
}

int introspect_set(const Description &what)
{
    const std::vector<std::string> members = taken(what, {what.args.begin(), what.args.end()});
    if (!what.compact)
        return describe_members(what, members, what.index);
    reply_text(what.out, what.prefix);
    for (const std::string &member : members)
        reply_text(what.out, member + " ");
    return what.index;
}

int introspect_bounded_set(const Description &what)
{
    const int next = introspect_set(what);
    if (what.args.size() >= 2 && c_int64(what.args[0]) <= c_int64(what.args[1]))
        introspect_range(what);
    return next;
}

int introspect_range(const Description &what)
{
    return describe_bounds(what, bound(what, 0), bound(what, 1));
}

int introspect_length(const Description &what)
{
    return describe_bounds(what, length_bound(what, 0), length_bound(what, 1));
}

int introspect_profile(const Description &what)
{
    int number = 0;
    for (const std::string &name : taken(what, profile_names())) {
        if (what.compact)
            reply_text(what.out, name);
        else
            describe(what, std::to_string(number++), name);
    }
    return what.index;
}

int introspect_profile2(const Description &what)
{
    int number = 0;
    for (const std::string &profile : taken(what, profile_names_of_group(what.api))) {
        std::string text;
        profile_read_group_desc(profile, text);
        describe(what, std::to_string(number++), one_line(std::string(profile).append(",").append(text)));
    }
    return what.index;
}

// The API's type is "<type name> <file> <second API>"; the second API's type holds the categories.
int introspect_quality(const Description &what)
{
    const std::vector<std::string> source = type_arguments(what.api);
    if (!what.visible || source.size() < 2)
        return what.index;
    std::vector<Category> categories;
    for (const std::string &name : type_arguments(source[1])) {
        if (categories.size() < kMaxCategories)
            categories.push_back({name});
    }
    const std::string text = read_file(qv_sysroot_path(source[0])).value_or("");
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        count_line(categories, line);
    }
    for (const Category &category : categories)
        describe(what, category.name, std::to_string(category.count));
    return what.index;
}

} // namespace qvcd
