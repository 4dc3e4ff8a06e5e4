#include "daemon/model_findings.h"

#include "base/limits.h"
#include "check/check.h"
#include "platform/fd.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <exception>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <stop_token>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace qvcd {

namespace {

// What a model full of mistakes may put into the log at a start.
constexpr std::size_t kMostLines = 20; // of errors, and of warnings

constexpr std::size_t kMostLineBytes = 4000; // on stderr: a pipe that takes something takes so much

constexpr int kLastOfAll = 19; // nice(2)

std::stop_source stopping;
std::thread looking;

class Told {
  public:
    explicit Told(Fd standard_error) : standard_error_(std::move(standard_error)) {}

    void tell(const Finding &finding)
    {
        const bool is_error = row_of(finding.kind).severity == Severity::error;
        if (++(is_error ? errors_ : warnings_) <= kMostLines)
            print(is_error, finding_line(finding));
    }

    void tell_rest() const
    {
        const std::size_t left_out = beyond(errors_) + beyond(warnings_);
        if (left_out)
            print(beyond(errors_) != 0,
                  std::to_string(left_out) + " more mistakes in the metadata; \"qvmeta check\" tells them");
    }

  private:
    static std::size_t beyond(std::size_t count) { return count > kMostLines ? count - kMostLines : 0; }

    // A pipe that nobody reads must not keep the daemon from ending.
    bool takes_a_line() const
    {
        pollfd entry{standard_error_.get(), POLLOUT, 0};
        return standard_error_ && poll(&entry, 1, 0) == 1;
    }

    void print(bool is_error, const std::string &line) const
    {
        qv_log_print(is_error ? kLogError : kLogInfo, "%s\n", line.c_str());
        if (is_error && takes_a_line())
            dprintf(standard_error_.get(), "qvcd: %s\n", cut(line, kMostLineBytes).c_str());
    }

    Fd standard_error_; // none when the log goes there
    std::size_t errors_ = 0;
    std::size_t warnings_ = 0;
};

void look(const std::vector<FileName> &files, Told told)
{
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kLastOfAll);
    try {
        Source source;
        for (const FileName &file : files)
            source.load(file.path, file.text);
        for (const Finding &finding : check_model(source, {.root = {}, .stop = stopping.get_token()}))
            told.tell(finding);
        if (!stopping.stop_requested())
            told.tell_rest();
    } catch (const std::exception &error) {
        qv_log_print(kLogWarning, "The metadata cannot be checked: %s\n", error.what());
    }
    malloc_trim(0); // nothing of the copy is kept
}

} // namespace

void model_findings_start(const std::vector<FileName> &files, bool on_stderr)
{
    Fd standard_error(on_stderr ? fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0) : -1);
    try {
        looking = start_quiet_thread(
            [files, told = Told(std::move(standard_error))]() mutable { look(files, std::move(told)); });
    } catch (const std::system_error &error) {
        qv_log_print(kLogWarning, "The metadata cannot be checked: %s\n", error.what());
    }
}

void model_findings_stop()
{
    stopping.request_stop();
    if (looking.joinable())
        looking.join();
}

} // namespace qvcd
