#include "funcs/ntp.h"

#include "base/lookup.h"
#include "base/text.h"
#include "store/database.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr int kMinPoll = 12; // powers of two in seconds, ntp.conf(5): about 68 minutes
constexpr char kDefaultServer[] = "pool.ntp.org";
constexpr std::string_view kBlanks = " \t";

struct Interval {
    std::string_view name;
    int maxpoll;
};
// The first row stands for every other number.
constexpr Interval kIntervals[] = {{"hourly", 12}, {"twiceday", 15}, {"daily", 16}};

std::vector<std::string> words_of(std::string_view line)
{
    return split_words(line, kBlanks);
}

bool has_host(const std::vector<std::string> &words, std::string_view keyword)
{
    return words.size() > 1 && words[0] == keyword;
}

// The words of the line that tells the server; none when no line does.
std::vector<std::string> server_words(std::string_view text)
{
    std::vector<std::string> pool;
    while (!text.empty()) {
        std::vector<std::string> words = words_of(next_line(text).text);
        if (has_host(words, "server"))
            return words;
        if (pool.empty() && has_host(words, "pool"))
            pool = std::move(words);
    }
    return pool;
}

std::string_view interval_of(const std::vector<std::string> &words)
{
    const auto at = std::ranges::find(words, "maxpoll");
    const int maxpoll = at == words.end() || at + 1 == words.end() ? 0 : c_int(at[1]);
    const auto row = std::ranges::find(kIntervals, maxpoll, &Interval::maxpoll);
    return (row == std::end(kIntervals) ? kIntervals[0] : *row).name;
}

const std::string *value_of(const std::vector<KeyValue> &values, std::string_view key)
{
    const auto at = std::ranges::find(values.rbegin(), values.rend(), key, &KeyValue::key);
    return at == values.rend() ? nullptr : &at->value;
}

std::string choose(std::string_view text, const Values &values, std::string_view key)
{
    if (const std::string *given = value_of(values.given, key))
        return *given;
    if (const auto old = ntp_find(text, key))
        return *old;
    const std::string *otherwise = value_of(values.otherwise, key);
    return otherwise ? *otherwise : std::string();
}

std::string server_line(std::string_view text, const Values &values)
{
    const Interval &interval = row_or_first(kIntervals, choose(text, values, "interval"));
    return "server " + choose(text, values, "server") + " minpoll " + std::to_string(kMinPoll) + " maxpoll " +
           std::to_string(interval.maxpoll) + " iburst";
}

bool is_host(std::string_view value)
{
    return !value.empty() && !value.starts_with('#') && is_one_line(value) &&
           value.find_first_of(kBlanks) == std::string_view::npos;
}

// The first of them that can be written.
KeyValue setting(const char *key, const char *api, std::string_view built_in)
{
    for (const auto &value : {own_copy(hdfDB.get(api)), meta_get_this_level(api, "default")}) {
        if (value && !ntp_refuses(key, *value))
            return {key, *value};
    }
    return {key, std::string(built_in)};
}

} // namespace

std::optional<std::string> ntp_find(std::string_view text, std::string_view key)
{
    const std::vector<std::string> words = server_words(text);
    if (words.empty() || (key != "server" && key != "interval"))
        return std::nullopt;
    return key == "server" ? words[1] : std::string(interval_of(words));
}

bool ntp_holds(std::string_view text, std::string_view key)
{
    return ntp_find(text, key).has_value();
}

const char *ntp_refuses(std::string_view key, std::string_view value)
{
    if (key == "server")
        return is_host(value) ? nullptr : "it is no host name";
    if (key == "interval")
        return find_row(kIntervals, value) ? nullptr : "it is no interval";
    return "\"attr\" must be server or interval";
}

std::string ntp_replace(std::string_view text, const Values &values)
{
    const std::string ours = server_line(text, values);
    std::string result;
    bool seen = false;
    while (!text.empty()) {
        const TextLine line = next_line(text);
        const std::vector<std::string> words = words_of(line.text);
        const bool is_server = !words.empty() && words[0] == "server";
        result.append(is_server ? ours : line.text).append(line.end);
        seen = seen || is_server;
    }
    if (!seen)
        append_line(result, ours);
    return result;
}

std::vector<KeyValue> ntp_settings()
{
    return {setting("server", "Services.NTP.server", kDefaultServer),
            setting("interval", "Services.NTP.interval", kIntervals[0].name)};
}

} // namespace qvcd
