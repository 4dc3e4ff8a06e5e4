#include "client/interactive.h"

#include <csignal>

#include "client/shell.h"
#include "qvclient/wire.h"

namespace qvcd::client {

namespace {

void on_interrupt(int)
{
    interrupt_request();
}

// An interrupt leaves the line or the request, and nothing else.
void make_interrupt_harmless()
{
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int run_interactive(const Options &options)
{
    make_interrupt_harmless();
    return Shell(options).run();
}

} // namespace qvcd::client
