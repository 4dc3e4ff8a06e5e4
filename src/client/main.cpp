// qvc: one command of the daemon's over its local socket, which is what scripts run by the thousand. It is
// linked statically and starts as fast as a program can. All else (TCP, TLS, a terminal, commands of the
// client's own) takes libraries, and is done by qvc-full, which takes this program's place.

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <unistd.h>

#include "client/command.h"
#include "client/known_commands.h"
#include "client/program.h"
#include "client/reply.h"
#include "qvclient/wire.h"

using namespace qvcd;
using namespace qvcd::client;

namespace {

// The build and the installation have it at the same place beside this program.
[[noreturn]] void become_full_client(char **arguments)
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t size = readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string program(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    const std::string full = program.substr(0, program.rfind('/') + 1) + "../libexec/qvc-full";
    if (size > 0)
        execv(full.c_str(), arguments);
    throw std::system_error(errno, std::generic_category(), "cannot run " + full);
}

bool is_done_here(const Options &options)
{
    if (!options.endpoint.local() || options.words.empty())
        return false;
    const std::string &command = options.words[0];
    return is_known_command(options.words) && local_command(command) == LocalCommand::none &&
           !is_transfer_command(options.words) &&
           (!is_change_command(command) || options.json || isatty(STDOUT_FILENO) == 0);
}

int run(const Options &options, char **arguments)
{
    if (!is_done_here(options))
        become_full_client(arguments);
    const std::string line = command_line(options.json ? in_json(options.words) : options.words);
    const TimeLimits limits = options.limits(options.words[0]);
    const Deadline deadline = deadline_in(limits.whole);
    Channel channel(connect_local(options.endpoint.socket_path("qvcd"), limits.connect));
    return exit_status(ask(std::move(channel), options.session, {line}, deadline, print_line));
}

} // namespace

int main(int, char **argv)
{
    return run_program(argv, run);
}
