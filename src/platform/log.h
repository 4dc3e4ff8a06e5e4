#pragma once

#include <atomic>
#include <string>

namespace qvcd {

/// Priorities of log lines, as in syslog(3); kLogTrace lies below LOG_DEBUG.
enum LogPriority : int {
    kLogError = 3,
    kLogWarning = 4,
    kLogNotice = 5,
    kLogInfo = 6,
    kLogDebug = 7,
    kLogTrace = 8,
};

namespace detail {
extern std::atomic<int> log_threshold; // -1: logging is not started
}

/// True when a line of this priority would be written: one comparison.
inline bool qv_log_wants(int priority)
{
    return priority <= detail::log_threshold.load(std::memory_order_relaxed);
}

/// Starts the log service. `level` 0 to 4 lets priorities up to 3, 4, 6, 7, 8 pass; other levels are taken as
/// the nearest of these. Lines go to stderr when `debug` is set, are appended to `file` when it is not null,
/// and go to syslog(3) under `identity` when `to_syslog` is set (priority 8 as LOG_DEBUG). `timestamp` puts
/// local date and time before each line on stderr and in the file. A file that cannot be opened is reported
/// on stderr; the other targets work on.
void qv_log_start(int level, bool timestamp, bool debug, const char *file, bool to_syslog,
                  const char *identity);

/// Opens the log file anew by its name, for when it was renamed. When it cannot be opened the one that is
/// open goes on being written, and has a line (priority 3) that says why. Without a log file nothing happens.
/// Thread-safe.
void qv_log_reopen();

/// Writes one line; printf format. The line's own final newline is optional. Control characters inside the
/// line are written as \xNN, so that one call is one line whatever a client sent. Of a line over 2 KiB the
/// rest is left out and "..." put in its place. Thread-safe.
void qv_log_print(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

/// While it lives, what this thread logs is what `source` brought about. Of one source 100 errors and 100
/// warnings are logged in ten seconds, and 100 lines of information when it is not trusted; notices, which
/// tell what was changed, always are. Of the rest a line tells how many they were, when somebody logs the
/// next one. So nobody fills the log at will.
class LogSource {
  public:
    /// `source` lives longer.
    LogSource(const std::string &source, bool is_trusted);
    ~LogSource();
    LogSource(const LogSource &) = delete;
    LogSource &operator=(const LogSource &) = delete;
};

/// Closes all targets; later lines are dropped.
void qv_log_stop();

/// Reports a failed platform call of start-up: on the log (priority 3) and on stderr. `text` has no newline.
void qv_report_failure(const std::string &text);

/// The line before the end of a process that has no memory left: to stderr, the log file and syslog(3). Takes
/// neither memory nor a lock.
void qv_log_last_line(const char *text);

} // namespace qvcd
