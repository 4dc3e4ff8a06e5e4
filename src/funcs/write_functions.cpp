#include "funcs/write_functions.h"

#include "base/text.h"
#include "funcs/ntp.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace qvcd {

namespace {

std::string rewrite_kv(std::string_view text, const Values &values)
{
    return kv_replace(text, values.given);
}

std::string quoted(std::string_view value)
{
    return std::string("\"").append(value).append("\"");
}

const char *quoted_refuses(std::string_view key, std::string_view value)
{
    return kv_refuses(key, quoted(value));
}

std::string rewrite_quoted(std::string_view text, const Values &values)
{
    std::vector<KeyValue> lines;
    for (const KeyValue &pair : values.given)
        lines.push_back({pair.key, quoted(pair.value)});
    return kv_replace(text, lines);
}

void log_date(const char *what, const std::tm &time)
{
    qv_log_print(kLogDebug, "Date after %s: %d-%d-%d %d:%d:%d\n", what, time.tm_year + 1900, time.tm_mon + 1,
                 time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
}

void set_hardware_clock(const std::tm &local)
{
    if (!qv_rtc_exists())
        return;
    qv_log_print(kLogDebug, "Converting to UTC time\n");
    std::tm utc{};
    if (qv_time_convert_to_utc(local, utc) != 0)
        return;
    log_date("conversion", utc);
    qv_rtc_set(utc);
}

} // namespace

constexpr TextWriter kv_writer = {kv_holds, kv_refuses, rewrite_kv, nullptr};
constexpr TextWriter quoted_writer = {kv_holds, quoted_refuses, rewrite_quoted, nullptr};
constexpr TextWriter ntp_writer = {ntp_holds, ntp_refuses, ntp_replace, ntp_settings};

int syncclock_wfunc(const std::string &value)
{
    if (value.empty()) {
        qv_log_print(kLogDebug, "User did not set a date to apply.\n");
        return -1;
    }
    qv_log_print(kLogDebug, "attempting to set date to %s\n", value.c_str());
    const auto code = parse_timecode(value);
    const std::tm local = local_time(code.value_or(Timecode{}));
    log_date("parsing", local);
    if (!code || qv_time_set_local(local) != 0) {
        qv_log_print(kLogDebug, "Could not set system time\n");
        return 1;
    }
    set_hardware_clock(local);
    return 0;
}

} // namespace qvcd
