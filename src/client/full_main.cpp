// qvc-full: the whole client. qvc runs it for what it does not do by itself.

#include <unistd.h>

#include "client/advice.h"
#include "client/batch.h"
#include "client/command.h"
#include "client/interactive.h"
#include "client/json_answer.h"
#include "client/local_commands.h"
#include "client/program.h"
#include "client/reply.h"

using namespace qvcd::client;

namespace {

int run(const Options &options, char **)
{
    if (options.said_result && !options.words.empty()) {
        if (options.json)
            print_line(json_answer(options, options.words, {}, *options.said_result));
        else
            advise(options, options.words, options.said_lines, options.said_lines.empty(),
                   *options.said_result);
        return exit_status(*options.said_result);
    }
    if (!options.words.empty())
        return run_command(options, options.words);
    const bool is_script = options.script || isatty(STDIN_FILENO) == 0;
    return is_script ? run_batch(options) : run_interactive(options);
}

} // namespace

int main(int, char **argv)
{
    return run_program(argv, run);
}
