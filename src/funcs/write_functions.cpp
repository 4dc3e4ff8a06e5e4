#include "funcs/write_functions.h"

#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/limits.h"
#include "base/text.h"
#include "funcs/ntp.h"
#include "funcs/working_copies.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <cstring>

namespace qvcd {

namespace {

constexpr unsigned kNewFileMode = 0666;

bool is_working_copy(const std::string &path)
{
    return path.starts_with(std::string(kScratchFolder) + "/");
}

std::optional<std::string> read_source(const std::string &path)
{
    if (const std::string *copy = WorkingCopies::find(path))
        return *copy;
    return read_file(qv_sysroot_path(path));
}

// 0 or an errno.
int replace(const std::string &path, std::string text)
{
    if (std::string *copy = WorkingCopies::find(path)) {
        *copy = std::move(text);
        return 0;
    }
    const Durable durable = is_working_copy(path) ? Durable::no : Durable::yes;
    return replace_file(qv_sysroot_path(path), text, kNewFileMode, durable);
}

// 0 or an errno. A text that the file holds already is not written again: flash memory wears out.
int put(const std::string &path, std::string text)
{
    const auto old = is_working_copy(path) ? std::nullopt : read_file(qv_sysroot_path(path));
    return old && *old == text ? 0 : replace(path, std::move(text));
}

int put_or_log(const std::string &path, std::string text)
{
    const int error = put(path, std::move(text));
    if (error)
        qv_log_print(kLogError, "Can not write %s: %s\n", path.c_str(), std::strerror(error));
    return error ? 1 : 0;
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

int undefined_wfunc(const std::string &, const std::string &dst, const std::string &attr, const std::string &)
{
    qv_log_print(kLogError, "Undefined write function: src:%s dst:%s attr:%s\n", attr.c_str(), dst.c_str(),
                 attr.c_str());
    return 1;
}

int no_wfunc(const std::string &, const std::string &, const std::string &, const std::string &)
{
    return 1;
}

int kv_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
             const std::string &value)
{
    if (src.empty() || dst.empty())
        return 1;
    if (value.find('\n') != std::string::npos) {
        // One value would become several lines of another program's configuration.
        qv_log_print(kLogError, "Can not write %s: the value of %s has more than one line\n", dst.c_str(),
                     attr.c_str());
        return 1;
    }
    if (!file_exists(qv_sysroot_path(src)) && put_or_log(src, kv_replace("", attr, value)) != 0)
        return 1;
    const auto text = read_source(src);
    return text ? put_or_log(dst, kv_replace(*text, attr, value)) : 1;
}

int io_wfunc(const std::string &, const std::string &dst, const std::string &, const std::string &value)
{
    if (dst.empty() || !file_exists(qv_sysroot_path(dst)))
        return 0;
    // Not put(): a kernel file is a request even when it reads the same.
    if (replace(dst, value + "\n") == 0)
        return 0;
    qv_log_print(kLogWarning, "can't open dst: %s\n", dst.c_str());
    return 1;
}

int quoted_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
                 const std::string &value)
{
    kv_wfunc(src, dst, attr, cut("\"" + value + "\"", kMaxValueBytes));
    return 0;
}

int syncclock_wfunc(const std::string &, const std::string &, const std::string &, const std::string &value)
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

int ntp_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
              const std::string &value)
{
    const auto text = src.empty() ? std::nullopt : read_source(src);
    if (!text) {
        qv_log_print(kLogWarning, "can't open src: %s\n", src.c_str());
        return 1;
    }
    if (put(dst, ntp_replace_server(*text, attr, value)) != 0) {
        qv_log_print(kLogWarning, "can't open dst: %s\n", dst.c_str());
        return 1;
    }
    return 0;
}

} // namespace qvcd
