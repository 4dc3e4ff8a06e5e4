#include "client/program.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

#include "client/errors.h"
#include "client/session_choice.h"
#include "client/terminal_text.h"

namespace qvcd::client {

namespace {

// A reply that could not be written must not look like success.
int checked_output(int result)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return result;
    std::perror("qvc: cannot write the reply");
    return result != 0 ? result : 1;
}

std::vector<std::string> behind_name(char **arguments)
{
    std::vector<std::string> words;
    for (char **word = arguments + 1; arguments[0] && *word; ++word)
        words.emplace_back(*word);
    return words;
}

// Else the connection would take the place of a stream that the caller closed. What is written there fails.
void hold_standard_streams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", O_RDONLY));
    }
}

} // namespace

int run_program(char **arguments, int (*run)(const Options &options, char **arguments))
{
    hold_standard_streams();
    bool options_are_read = false;
    try {
        Options options = parse_options(behind_name(arguments));
        options_are_read = true;
        switch (options.action) {
        case Options::Action::help:
            std::fputs(kUsage, stdout);
            return checked_output(0);
        case Options::Action::version:
            std::fputs(kVersion, stdout);
            return checked_output(0);
        case Options::Action::run:
            choose_session(options);
            break;
        }
        return checked_output(run(options, arguments));
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qvc: %s\n%s", for_errors(error.what()).c_str(),
                     options_are_read ? "" : "qvc: \"qvc --help\" tells how it is used\n");
        return kExitUsage;
    } catch (const WireError &error) {
        std::fflush(stdout);
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        return kExitNoDaemon;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        return 1;
    }
}

} // namespace qvcd::client
