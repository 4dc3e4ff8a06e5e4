#include "auth/session.h"
#include "auth/user.h"
#include "base/command_lock.h"
#include "base/options.h"
#include "base/replace_files.h"
#include "commands/cmd_table.h"
#include "commands/profile.h"
#include "daemon/options.h"
#include "daemon/request_server.h"
#include "daemon/watchdog.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "model/populate.h"
#include "platform/log.h"
#include "platform/notify_bus.h"
#include "platform/process.h"
#include "platform/server.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/menu.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr unsigned kAliveSeconds = 3600;
constexpr std::chrono::seconds kShutdownPatience{5};

volatile std::sig_atomic_t run = 1;
volatile std::sig_atomic_t caught_signal = 0;

// Logging is not safe inside a signal handler: the main loop writes the line when the sleep returns.
void signal_shutdown(int signal)
{
    caught_signal = signal;
    run = 0;
}

// SIGINT is blocked in every thread but inside the main loop's sleep, so that it always interrupts that
// sleep.
sigset_t only_sigint()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    return set;
}

void install_signals()
{
    struct sigaction action {};
    action.sa_handler = signal_shutdown;
    sigaction(SIGINT, &action, nullptr);
    const sigset_t blocked = only_sigint();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

void start_logging(const Options &options)
{
    if (!options.logging)
        return;
    qv_log_start(verbose, options.timestamp, options.debug,
                 options.log_to_file ? options.log_file.c_str() : nullptr, options.to_syslog, "qvcd");
    qv_log_print(kLogDebug, "logging started: level = %d\n", verbose);
}

void create_maps()
{
    cmd_create_afuncmap_hdf();
    cmd_create_cfuncmap_hdf();
    cmd_create_ifuncmap_hdf();
    cmd_create_rfuncmap_hdf();
    cmd_create_wfuncmap_hdf();
    cmd_create_addfuncmap_hdf();
    cmd_create_removefuncmap_hdf();
    cmd_create_cmdmap_hdf();
}

void load_databases(const Options &options)
{
    recover_file_sets(); // before anything is read that a crash may have left half replaced
    Request request(kInternalMask);
    menu_load_db_file(options.menu_file);
    hdfdb_init();
    if (options.preload)
        hdfdb_load_file(options.preload_file);
    user_set_db_file(options.user_file);
    user_load_db_file(options.user_file);
    for (const FileName &file : options.meta_files) {
        qv_log_print(kLogInfo, "Loading %s into meta DB\n", file.text.c_str());
        hdfdb_load_meta_file(request, file);
    }
    session_load_db_file(disable_login);
    hdfdb_populate(request);
    load_profile(request);
}

void start_up(const Options &options)
{
    install_signals();
    if (!options.foreground)
        qv_daemonize();
    umask(022);
    qv_create_pid_file(options.pid_file.path);
    start_logging(options);
    qv_log_print(kLogNotice, "started\n");
    tree_library_init();
    if (!options.no_watchdog)
        watchdog_start();
    qvnotify_start();
    {
        const CommandLock lock; // readers that wait let go of it, as in any command
        create_maps();
        load_databases(options);
    }
    socket_init(options.tcp_port);
    qv_log_print(kLogNotice, "running\n");
    qv_daemon_ready();
}

void main_loop()
{
    sigset_t open;
    pthread_sigmask(SIG_BLOCK, nullptr, &open);
    sigdelset(&open, SIGINT);
    while (run) {
        const timespec hour{kAliveSeconds, 0};
        pselect(0, nullptr, nullptr, nullptr, &hour, &open);
        if (caught_signal)
            qv_log_print(kLogDebug, "Signal %d caught, shutting down\n", static_cast<int>(caught_signal));
        qv_log_print(kLogInfo, "alive\n");
    }
}

void destroy_maps()
{
    cmd_destroy_cmdmap_hdf();
}

void shut_down(const Options &options)
{
    command_lock_close(kShutdownPatience);
    qv_log_print(kLogNotice, "stopping\n");
    if (!options.no_watchdog)
        watchdog_stop();
    session_unload_db_file();
    hdfdb_destroy();
    user_unload_db_file();
    menu_unload_db_file();
    destroy_maps();
    socket_exit();
    qvnotify_stop();
    qv_remove_pid_file(options.pid_file.path);
    qv_log_print(kLogNotice, "exit\n");
    if (options.logging)
        qv_log_stop();
}

} // namespace

} // namespace qvcd

int main(int argc, char **argv)
{
    using namespace qvcd;
    Options options;
    if (parse_options(argc, argv, options) == OptionResult::exit)
        return 0;
    if (!qv_ipc_paths_fit()) {
        std::fprintf(stderr, "%s: QV_SYSROOT is too long for the addresses of its sockets: %s\n", argv[0],
                     qv_sysroot().c_str());
        return 1;
    }
    start_up(options);
    main_loop();
    shut_down(options);
    return 0;
}
