#include "funcs/ntp.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/text.h"
#include "funcs/generic_readers.h"
#include "platform/sysroot.h"
#include "store/database.h"

namespace qvcd {

namespace {

constexpr int kMinPoll = 12; // powers of two in seconds, ntp.conf(5): about 68 minutes
constexpr char kDefaultServer[] = "pool.ntp.org";

struct Interval {
    const char *name;
    int maxpoll;
};
// The first row stands for every other text and number.
constexpr Interval kIntervals[] = {{"hourly", 12}, {"twiceday", 15}, {"daily", 16}};

int maxpoll_of(std::string_view name)
{
    for (const Interval &row : kIntervals) {
        if (name == row.name)
            return row.maxpoll;
    }
    return kIntervals[0].maxpoll;
}

const char *interval_of(int maxpoll)
{
    for (const Interval &row : kIntervals) {
        if (maxpoll == row.maxpoll)
            return row.name;
    }
    return kIntervals[0].name;
}

} // namespace

std::string ntp_write_config()
{
    const std::string server = hdfDB.get_or("Services.NTP.server", kDefaultServer);
    const int maxpoll = maxpoll_of(hdfDB.get_or("Services.NTP.interval", kIntervals[0].name));
    return "server " + server + " minpoll " + std::to_string(kMinPoll) + " maxpoll " +
           std::to_string(maxpoll) + " iburst\n";
}

std::string ntp_replace_server(std::string_view text, std::string_view attr, std::string_view value)
{
    std::string result;
    bool seen = false;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        const std::string_view line =
            text.substr(0, newline == std::string_view::npos ? newline : newline + 1);
        const bool is_server = line.starts_with("server");
        result += is_server ? ntp_write_config() : std::string(line);
        seen = seen || is_server;
        text.remove_prefix(line.size());
    }
    if (seen)
        return result;
    if (!result.empty() && result.back() != '\n')
        result += '\n';
    return result.append(attr).append("=").append(value).append("\n");
}

std::optional<std::string> ntp_find(std::string_view text, std::string_view attr)
{
    const std::vector<std::string> words =
        split_words(cut(text.substr(0, text.find('\n')), kMaxFileLineBytes), " \t\r\n");
    const bool has_server = words.size() > 1 && words[0] == "server";
    if (attr == "server")
        return has_server ? std::optional(words[1]) : std::nullopt;
    if (attr != "interval")
        return std::nullopt;
    const bool has_polls = has_server && words.size() > 5 && words[2] == "minpoll" && words[4] == "maxpoll";
    return interval_of(has_polls ? c_int(words[5]) : 0);
}

std::optional<std::string> ntp_rfunc(Request &, const char *file, const char *attr)
{
    const auto text = file && attr ? read_file(qv_sysroot_path(file)) : std::nullopt;
    return text ? ntp_find(*text, attr) : std::nullopt;
}

} // namespace qvcd
