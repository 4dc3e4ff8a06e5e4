#include "client/batch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <system_error>
#include <unistd.h>

#include "client/errors.h"
#include "client/line_filter.h"
#include "client/local_commands.h"
#include "client/terminal_text.h"
#include "client/typed_line.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

[[noreturn]] void throw_unreadable(const std::string &name)
{
    throw UsageError("cannot read " + name + ": " + std::generic_category().message(errno));
}

// Lines of a file, or of standard input, each as soon as it is there.
class LineSource {
  public:
    explicit LineSource(const std::string &file)
        : name_(file == "-" ? "standard input" : file),
          file_(file == "-" ? take_input() : std::fopen(file.c_str(), "re"))
    {
        if (!file_)
            throw_unreadable(name_);
    }

    bool next(std::string &line)
    {
        char *text = line_.release();
        errno = 0;
        const ssize_t length = getline(&text, &size_, file_.get());
        line_.reset(text);
        if (length < 0 && std::ferror(file_.get()) != 0)
            throw_unreadable(name_);
        ++number_;
        line.assign(length > 0 ? text : "", length > 0 ? static_cast<std::size_t>(length) : 0);
        return length >= 0;
    }

    std::string place() const { return name_ + ":" + std::to_string(number_); }

  private:
    // No command shall take the lines behind it for a password, say.
    static std::FILE *take_input()
    {
        Fd ours(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        const Fd nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!ours || !nothing || ::dup2(nothing.get(), STDIN_FILENO) < 0)
            return nullptr;
        return ::fdopen(ours.release(), "r");
    }

    struct Free {
        void operator()(char *text) const noexcept { std::free(text); }
    };
    struct Close {
        void operator()(std::FILE *file) const noexcept { std::fclose(file); }
    };
    std::string name_;
    std::unique_ptr<std::FILE, Close> file_;
    std::unique_ptr<char, Free> line_;
    std::size_t size_ = 0;
    std::size_t number_ = 0;
};

Words words_of(const std::string &line)
{
    if (line.find('\0') != std::string::npos)
        throw UsageError("a NUL byte");
    Words words = split_typed_line(line);
    if (!words.empty() && is_client_only(words[0]))
        throw UsageError(words[0] + " cannot be used here");
    const auto bar = std::ranges::find(words, "|");
    if (bar != words.end() && bar + 1 != words.end() && std::ranges::count(filter_names(), bar[1]) != 0)
        throw UsageError("\"| " + bar[1] + "\" is for the prompt, not for scripts");
    return words;
}

bool is_end(const Words &words)
{
    return !words.empty() && (words[0] == "quit" || words[0] == "exit");
}

struct Outcome {
    int status = 0;
    std::string trouble; // for stderr
    bool lost = false;   // the daemon is not there
};

Outcome run_words(const Options &options, const Words &words)
{
    const int status = words.empty() ? 0 : run_command(options, words);
    if (std::fflush(stdout) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write the reply");
    return {status, status != 0 ? words[0] + " failed" : std::string()};
}

// Nothing for the end.
std::optional<Outcome> run_line(const Options &options, const std::string &line)
{
    try {
        const Words words = words_of(line);
        return is_end(words) ? std::nullopt : std::optional(run_words(options, words));
    } catch (const UsageError &error) {
        return Outcome{kExitUsage, error.what()};
    } catch (const WireError &error) {
        return Outcome{kExitNoDaemon, error.what(), true};
    }
}

int run_lines(const Options &options, LineSource &lines)
{
    int first_status = 0;
    bool ends = false;
    for (std::string line; !ends && lines.next(line);) {
        const std::optional<Outcome> outcome = run_line(options, line);
        if (!outcome)
            break;
        if (outcome->status == 0)
            continue;
        first_status = first_status == 0 ? outcome->status : first_status;
        ends = !options.keep_going || outcome->lost;
        std::fflush(stdout);
        std::fprintf(stderr, "qvc: %s: %s%s\n", for_errors(lines.place()).c_str(),
                     for_errors(outcome->trouble).c_str(), ends ? "; what follows is not run" : "");
    }
    return first_status;
}

} // namespace

int run_batch(const Options &options)
{
    LineSource lines(options.script.value_or("-"));
    Options strict = options;
    strict.strict = true;
    strict.yes = true; // nobody typed it
    strict.input_is_script = options.script.value_or("-") == "-";
    return run_lines(strict, lines);
}

} // namespace qvcd::client
