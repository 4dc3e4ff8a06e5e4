#include "client/line_filter.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "client/errors.h"
#include "client/private_file.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

[[noreturn]] void throw_error(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

void LineFilter::Free::operator()(regex_t *pattern) const noexcept
{
    regfree(pattern);
    delete pattern;
}

LineFilter::LineFilter(const Words &words)
{
    if (words.at(0) == "count" && words.size() == 1)
        return;
    wants_match_ = words[0] == "match";
    if ((!wants_match_ && words[0] != "except") || words.size() != 2)
        throw UsageError("behind a \"|\" stand match WORD, except WORD or count");
    auto pattern = std::make_unique<regex_t>();
    const int error = regcomp(pattern.get(), words[1].c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (error != 0) {
        std::array<char, 256> why{};
        regerror(error, pattern.get(), why.data(), why.size());
        throw UsageError("'" + words[1] + "' is no pattern: " + why.data());
    }
    pattern_.reset(pattern.release());
}

bool LineFilter::take(const std::string &line)
{
    ++count_;
    return pattern_ && (regexec(pattern_.get(), line.c_str(), 0, nullptr, 0) == 0) == wants_match_;
}

std::string LineFilter::end() const
{
    return pattern_ ? std::string() : std::to_string(count_);
}

std::vector<std::string> filter_names()
{
    return {"count", "except", "match"};
}

class FilteredOutput::Pump {
  public:
    explicit Pump(std::vector<LineFilter> &filters) : filters_(filters)
    {
        std::fflush(stdout);
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw_error("pipe");
        input_.reset(ends[0]);
        const Fd output(ends[1]);
        terminal_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (!terminal_ || dup2(output.get(), STDOUT_FILENO) < 0)
            throw_error("standard output");
        start();
    }

    ~Pump()
    {
        std::fflush(stdout);
        dup2(terminal_.get(), STDOUT_FILENO); // the pipe's last end to write to: the thread sees its end
        thread_.join();
    }
    Pump(const Pump &) = delete;
    Pump &operator=(const Pump &) = delete;

  private:
    // Signals are for the thread that runs the command.
    void start()
    {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        thread_ = std::thread([this] { run(); });
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    void run()
    {
        std::array<char, 65536> buffer;
        std::string pending;
        for (ssize_t got = 0; (got = read(input_.get(), buffer.data(), buffer.size())) > 0;) {
            pending.append(buffer.data(), static_cast<std::size_t>(got));
            std::size_t start = 0;
            for (std::size_t end = 0; (end = pending.find('\n', start)) != std::string::npos; start = end + 1)
                pass(pending.substr(start, end - start), filters_);
            pending.erase(0, start);
        }
        if (!pending.empty())
            pass(pending, filters_);
        finish();
    }

    void pass(const std::string &line, std::span<LineFilter> filters)
    {
        for (LineFilter &filter : filters)
            if (!filter.take(line))
                return;
        write_all(terminal_.get(), line + "\n");
    }

    void finish()
    {
        const std::span<LineFilter> all(filters_);
        for (std::size_t i = 0; i < all.size(); ++i)
            if (const std::string last = all[i].end(); !last.empty())
                pass(last, all.subspan(i + 1));
    }

    std::vector<LineFilter> &filters_;
    Fd input_;
    Fd terminal_;
    std::thread thread_;
};

FilteredOutput::FilteredOutput(std::vector<LineFilter> &filters)
    : pump_(filters.empty() ? nullptr : std::make_unique<Pump>(filters))
{
}

FilteredOutput::~FilteredOutput() = default;

} // namespace qvcd::client
