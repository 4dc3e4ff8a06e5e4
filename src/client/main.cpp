#include <cstdio>
#include <exception>
#include <unistd.h>

#include "client/batch.h"
#include "client/errors.h"
#include "client/interactive.h"
#include "client/local_commands.h"
#include "client/options.h"

using namespace qvcd::client;

namespace {

int run(const Options &options)
{
    switch (options.action) {
    case Options::Action::help:
        std::fputs(kUsage, stdout);
        return 0;
    case Options::Action::version:
        std::fputs(kVersion, stdout);
        return 0;
    case Options::Action::run:
        break;
    }
    if (!options.words.empty())
        return run_command(options, options.words);
    return isatty(STDIN_FILENO) ? run_interactive(options) : run_batch(options);
}

// A reply that could not be written must not look like success.
int checked_output(int result)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return result;
    std::perror("qvc: cannot write the reply");
    return result != 0 ? result : 1;
}

} // namespace

int main(int argc, char **argv)
{
    bool options_are_read = false;
    try {
        const Options options = parse_options({argv + 1, argv + argc});
        options_are_read = true;
        return checked_output(run(options));
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qvc: %s\n%s", error.what(), options_are_read ? "" : kUsage);
        return kExitUsage;
    } catch (const WireError &error) {
        std::fflush(stdout);
        std::fprintf(stderr, "qvc: %s\n", error.what());
        return kExitNoDaemon;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvc: %s\n", error.what());
        return 1;
    }
}
