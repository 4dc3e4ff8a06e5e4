#include "platform/log.h"

#include "platform/coarse_clock.h"
#include "platform/fd.h"
#include "platform/log_budget.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string_view>
#include <syslog.h>
#include <utility>

namespace qvcd {

namespace detail {
std::atomic<int> log_threshold{-1};
}

namespace {

constexpr std::array<int, 5> kThresholds = {kLogError, kLogWarning, kLogInfo, kLogDebug, kLogTrace};
constexpr mode_t kLogFileMode = 0640;
constexpr std::size_t kMaxTextBytes = 2048; // of a line's text

struct Log {
    std::mutex mutex;
    bool timestamp = false;
    bool to_stderr = false;
    bool to_syslog = false;
    Fd file;
    std::string file_name; // empty: no file
    std::string identity;  // openlog(3) keeps the pointer
    LogBudget budget;
};

struct Source {
    const std::string *name = nullptr; // null: the daemon itself
    bool is_trusted = false;
};
thread_local Source source_of_lines;

// Never destroyed: threads that are left behind at shutdown may still log.
Log &the_log()
{
    static Log *const log = new Log;
    return *log;
}

bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

// At most kMaxTextBytes; what is longer ends in "...".
void append_clean(std::string &line, std::string_view text)
{
    if (text.size() <= kMaxTextBytes && std::ranges::none_of(text, is_control)) {
        line += text;
        return;
    }
    constexpr char kHex[] = "0123456789ABCDEF";
    const std::size_t most = line.size() + kMaxTextBytes;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_control(c))
            line += {'\\', 'x', kHex[byte >> 4U], kHex[byte & 15U]};
        else
            line += c;
        if (line.size() > most) {
            line.resize(most);
            line += "...";
            return;
        }
    }
}

void append_time(std::string &line)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> text{};
    line.append(text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S ", &local));
}

Fd open_file(const std::string &name)
{
    return Fd(::open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, kLogFileMode));
}

std::string cannot_open(const std::string &name)
{
    return "cannot open the log file " + name + ": " + std::strerror(errno);
}

// A log that cannot be written has nobody to be told.
void write_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

// Whoever reads it may have stopped: rather a line is lost than the daemon waits. A pipe, socket or terminal
// that takes something takes a whole line.
void write_to_stderr(const std::string &line)
{
    static std::atomic<unsigned> lost{0};
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&entry, 1, 0) != 1) {
        ++lost;
        return;
    }
    const unsigned before = lost.exchange(0);
    write_all(STDERR_FILENO, before == 0 ? line : std::to_string(before) + " lines were lost\n" + line);
}

// One write a target, so that lines of several processes do not mix.
void write_line_locked(Log &log, int priority, std::string_view text)
{
    std::string line;
    line.reserve(text.size() + 32);
    if (log.timestamp)
        append_time(line);
    const std::size_t text_at = line.size();
    append_clean(line, text);
    if (log.to_syslog)
        ::syslog(std::min<int>(priority, LOG_DEBUG), "%s", line.c_str() + text_at);
    line += '\n';
    if (log.to_stderr)
        write_to_stderr(line);
    if (log.file)
        write_all(log.file.get(), line);
}

void tell_locked(Log &log, const std::string &text)
{
    if (qv_log_wants(kLogWarning))
        write_line_locked(log, kLogWarning, text);
}

const char *kind_of(int priority)
{
    return priority == kLogError ? " errors " : priority == kLogWarning ? " warnings " : " lines ";
}

void tell_left_out_locked(Log &log, LogBudget::Time now)
{
    if (log.budget.due() > now)
        return;
    for (const auto &[source, priority, lines] : log.budget.left_out(now))
        tell_locked(log, source + ": " + std::to_string(lines) + kind_of(priority) + "were left out");
}

bool is_limited(int priority)
{
    return source_of_lines.name &&
           (priority <= kLogWarning || (priority == kLogInfo && !source_of_lines.is_trusted));
}

// False when the source has logged enough.
bool has_budget_locked(Log &log, int priority, LogBudget::Time now)
{
    switch (log.budget.take(*source_of_lines.name, priority, now)) {
    case LogBudget::Verdict::log:
        return true;
    case LogBudget::Verdict::leave_out_from_now:
        tell_locked(log, *source_of_lines.name + ": further" + kind_of(priority) +
                             "are left out for some seconds");
        return false;
    case LogBudget::Verdict::leave_out:
        return false;
    }
    return true;
}

void write_line(int priority, std::string_view text)
{
    Log &log = the_log();
    const std::lock_guard lock(log.mutex);
    const LogBudget::Time now = coarse_now();
    tell_left_out_locked(log, now);
    if (!is_limited(priority) || has_budget_locked(log, priority, now))
        write_line_locked(log, priority, text);
}

__attribute__((format(printf, 2, 0))) void print_formatted(int priority, const char *format, va_list args)
{
    std::array<char, kMaxTextBytes + 3> buffer; // a byte more than a line, a newline, and the end
    const int n = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    std::string_view text(buffer.data(),
                          std::min(buffer.size() - 1, static_cast<std::size_t>(std::max(n, 0))));
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    write_line(priority, text);
}

} // namespace

void qv_log_start(int level, bool timestamp, bool debug, const char *file, bool to_syslog,
                  const char *identity)
{
    Log &log = the_log();
    const std::lock_guard lock(log.mutex);
    log.timestamp = timestamp;
    log.to_stderr = debug;
    log.identity = identity ? identity : "";
    log.file.reset();
    log.file_name = file ? file : "";
    if (file) {
        log.file = open_file(log.file_name);
        if (!log.file)
            write_to_stderr(log.identity + ": " + cannot_open(log.file_name) + "\n");
    }
    if (log.to_syslog)
        ::closelog();
    log.to_syslog = to_syslog;
    if (to_syslog)
        ::openlog(log.identity.c_str(), LOG_PID, LOG_DAEMON);
    const auto index = static_cast<std::size_t>(std::clamp(level, 0, 4));
    detail::log_threshold.store(kThresholds[index], std::memory_order_relaxed);
}

void qv_log_reopen()
{
    Log &log = the_log();
    const std::lock_guard lock(log.mutex);
    if (log.file_name.empty())
        return;
    Fd file = open_file(log.file_name);
    if (file)
        log.file = std::move(file);
    else if (qv_log_wants(kLogError))
        write_line_locked(log, kLogError, cannot_open(log.file_name));
}

void qv_log_print(int priority, const char *format, ...)
{
    if (!qv_log_wants(priority))
        return;
    va_list args;
    va_start(args, format);
    print_formatted(priority, format, args);
    va_end(args);
}

LogSource::LogSource(const std::string &source, bool is_trusted)
{
    source_of_lines = {&source, is_trusted};
}

LogSource::~LogSource()
{
    source_of_lines = {};
}

void qv_log_stop()
{
    Log &log = the_log();
    const std::lock_guard lock(log.mutex);
    tell_left_out_locked(log, LogBudget::Time::max());
    detail::log_threshold.store(-1, std::memory_order_relaxed);
    log.to_stderr = false;
    log.file.reset();
    log.file_name.clear();
    if (log.to_syslog)
        ::closelog();
    log.to_syslog = false;
}

void qv_log_last_line(const char *text)
{
    const Log &log = the_log(); // its lock may be held by the one who has no memory
    pollfd standard_error{STDERR_FILENO, POLLOUT, 0};
    for (const int fd : {::poll(&standard_error, 1, 0) == 1 ? STDERR_FILENO : -1, log.file.get()}) {
        if (fd >= 0) {
            write_all(fd, text);
            write_all(fd, "\n");
        }
    }
    if (log.to_syslog)
        ::syslog(kLogError, "%s", text);
}

void qv_report_failure(const std::string &text)
{
    Log &log = the_log();
    bool seen_on_stderr = false;
    {
        const std::lock_guard lock(log.mutex);
        seen_on_stderr = log.to_stderr;
    }
    qv_log_print(kLogError, "%s\n", text.c_str());
    if (seen_on_stderr)
        return;
    std::string line = std::string(program_invocation_short_name) + ": ";
    append_clean(line, text);
    write_to_stderr(line + "\n");
}

} // namespace qvcd
