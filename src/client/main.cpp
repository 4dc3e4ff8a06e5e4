// qvc: one command of the daemon's over its local socket, which is what scripts run by the thousand. It is
// linked statically and starts as fast as a program can. All else (TCP, TLS, a terminal, commands of the
// client's own) takes libraries, and is done by qvc-full, which takes this program's place.

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "client/command.h"
#include "client/known_commands.h"
#include "client/plain_command.h"
#include "client/program.h"
#include "client/reply.h"
#include "qvclient/exchange.h"

using namespace qvcd;
using namespace qvcd::client;

namespace {

// The build and the installation have it at the same place beside this program.
[[noreturn]] void become(const char *name, char **arguments)
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t size = readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string program(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    const std::string full = program.substr(0, program.rfind('/') + 1) + "../libexec/" + name;
    if (size > 0)
        execv(full.c_str(), arguments);
    throw std::system_error(errno, std::generic_category(), "cannot run " + full);
}

[[noreturn]] void become_full_client(char **arguments)
{
    become("qvc-full", arguments);
}

constexpr std::size_t kMostActions = 9; // of one apply; more settings may wait for the next

// What went wrong, as far as the reply shows.
struct Trouble {
    std::vector<std::string> lines; // with an error
    std::size_t count = 0;          // of all lines of the reply

    void take(std::string_view line)
    {
        constexpr std::size_t kMost = 10;
        ++count;
        if (lines.size() < kMost && parse_reply_line(line).error)
            lines.emplace_back(line);
    }
};

bool is_null_device(int fd)
{
    struct stat file {};
    struct stat null {};
    return fstat(fd, &file) == 0 && stat("/dev/null", &null) == 0 && S_ISCHR(file.st_mode) &&
           file.st_rdev == null.st_rdev;
}

// The full client says what would have been right, where somebody reads that, and ends with the status that
// the command had.
int with_advice(char **arguments, const Trouble &trouble, int result)
{
    if (std::fflush(stdout) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write the reply");
    if (is_null_device(STDERR_FILENO))
        return exit_status(result);
    std::vector<std::string> words{arguments[0], "--said-result=" + std::to_string(result)};
    for (const std::string &line : trouble.lines)
        words.push_back("--said=" + line);
    std::vector<char *> all;
    for (std::string &word : words)
        all.push_back(word.data());
    for (char **word = arguments + 1; *word; ++word)
        all.push_back(*word);
    all.push_back(nullptr);
    try {
        become_full_client(all.data());
    } catch (const std::system_error &) { // it is not installed
        return exit_status(result);
    }
}

bool has_form_of_its_own(const Options &options)
{
    return options.values_only || options.quiet || options.strict || options.said_result ||
           (options.json && !is_change_command(options.words[0])) || isatty(STDOUT_FILENO) == 1;
}

bool is_done_here(const Options &options)
{
    if (!options.endpoint.local() || options.words.empty())
        return false;
    const std::string &command = options.words[0];
    return is_known_command(options.words) && is_plain(options.words) &&
           local_command(command) == LocalCommand::none && !is_transfer_command(options.words) &&
           !has_form_of_its_own(options) &&
           std::none_of(options.words.begin() + 1, options.words.end(), has_glob);
}

int run(const Options &options, char **arguments)
{
    if (!options.words.empty() && options.words[0] == "fleet")
        become("qvc-fleet", arguments);
    if (!is_done_here(options))
        become_full_client(arguments);
    const std::string line = command_line(options.json ? in_json(options.words) : options.words);
    const TimeLimits limits = options.limits(options.words[0]);
    const Deadline deadline = deadline_in(limits.whole);
    Channel channel(connect_local(options.endpoint.socket_path("qvcd"), limits.connect));
    Trouble trouble;
    const int result =
        ask(std::move(channel), options.session, {line}, deadline, [&](std::string_view reply) {
            print_line(reply);
            trouble.take(reply);
        });
    std::erase_if(trouble.lines,
                  [&](const std::string &said) { return !says_error(options.words[0], result, said); });
    const bool is_silent = trouble.count == 0;
    const bool is_refused = is_silent && (result != 0 || is_for_administrators(options.words));
    const bool may_be_more = is_applying(options.words) && trouble.count > kMostActions;
    if (options.json ? is_silent : is_refused || may_be_more || !trouble.lines.empty())
        return with_advice(arguments, trouble, result);
    return exit_status(result);
}

} // namespace

int main(int, char **argv)
{
    return run_program(argv, run);
}
