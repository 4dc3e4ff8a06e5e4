#include "auth/session.h"
#include "auth/user.h"
#include "base/command_lock.h"
#include "base/options.h"
#include "base/replace_files.h"
#include "base/shell.h"
#include "base/shell_later.h"
#include "change/commit.h"
#include "commands/cmd_table.h"
#include "commands/profile.h"
#include "daemon/model_findings.h"
#include "daemon/options.h"
#include "daemon/out_of_memory.h"
#include "daemon/request_server.h"
#include "daemon/watchdog.h"
#include "fleet/member.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "model/populate.h"
#include "platform/claim.h"
#include "platform/log.h"
#include "platform/notify_bus.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "store/database.h"
#include "store/menu.h"
#include "store/profile_files.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr unsigned kAliveSeconds = 3600;
constexpr std::chrono::seconds kShutdownPatience{5};
constexpr std::chrono::seconds kStartUpShellTime{30}; // for all shell commands of the readers together

volatile std::sig_atomic_t run = 1;
volatile std::sig_atomic_t caught_signal = 0;
volatile std::sig_atomic_t hung_up = 0;

// Logging is not safe inside a signal handler: the main loop writes the line when the sleep returns.
void signal_shutdown(int signal)
{
    caught_signal = signal;
    run = 0;
}

void signal_reopen(int)
{
    hung_up = 1;
}

// They are blocked in every thread but inside the main loop's sleep, so that they always interrupt that
// sleep.
constexpr struct {
    int signal;
    void (*handler)(int);
} kHandled[] = {{SIGINT, signal_shutdown}, {SIGHUP, signal_reopen}};

void install_signals()
{
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const auto &[signal, handler] : kHandled) {
        struct sigaction action {};
        action.sa_handler = handler;
        sigaction(signal, &action, nullptr);
        sigaddset(&blocked, signal);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL); // who starts us may ignore it; then nobody could wait for a command
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

// What a crash left beside files that are replaced.
void tidy_folders(const Options &options)
{
    for (const char *folder : {kProfileFolder, "/etc/presets", "/var/lib/qv"})
        remove_left_overs(qv_sysroot_path(folder));
    remove_left_overs(options.user_file.path.substr(0, options.user_file.path.rfind('/') + 1));
    model_remove_left_overs();
}

// False when an appliance would run with a part of its settings, or none.
bool load_metadata(Request &request, const Options &options)
{
    bool usable = true;
    for (const FileName &file : options.meta_files) {
        qv_log_print(kLogInfo, "Loading %s into meta DB\n", file.text.c_str());
        usable &= hdfdb_load_meta_file(request, file) == 0;
    }
    if (usable && !model_has_api()) {
        qv_report_failure("There is no API in " + options.meta_files.front().text);
        usable = false;
    }
    if (!usable && !options.any_metadata)
        qv_report_failure("No usable metadata: the daemon ends; --any-metadata starts it all the same");
    return usable || options.any_metadata;
}

bool load_databases(const Options &options)
{
    Request request(kInternalMask);
    menu_load_db_file(options.menu_file);
    hdfdb_init();
    if (options.preload)
        hdfdb_load_file(options.preload_file);
    user_set_db_file(options.user_file);
    user_load_db_file(options.user_file);
    if (!load_metadata(request, options))
        return false;
    session_load_db_file(disable_login);
    tidy_folders(options);
    hdfdb_populate(request);
    recover_commit();
    load_profile(request);
    return true;
}

// False when the daemon must not start: another one has the root, or a file for TLS cannot be used. Then
// nothing was touched.
bool claim_root(const Options &options, std::shared_ptr<const TlsContext> &tls)
{
    std::string refusal;
    try {
        if (!options.tls.certificate.empty())
            tls = std::make_shared<TlsContext>(TlsContext::server(options.tls));
        refusal = qv_claim_root();
    } catch (const TlsError &error) {
        refusal = error.what();
    }
    if (refusal.empty())
        return true;
    start_logging(options);
    qv_report_failure(refusal);
    qv_log_stop();
    return false;
}

// False when there would be nobody to ask the daemon anything, or nothing to ask for.
bool start_up(const Options &options, std::shared_ptr<const TlsContext> tls)
{
    mallopt(M_MMAP_THRESHOLD, 1 << 20); // a long reply's memory goes back when it is sent, and stays so
    install_signals();
    if (!options.foreground)
        qv_daemonize();
    qv_create_pid_file(options.pid_file.path);
    start_logging(options);
    qv_log_print(kLogNotice, "started\n");
    if (!options.no_watchdog)
        watchdog_start();
    qvnotify_start();
    {
        const CommandLock lock; // readers that wait let go of it, as in any command
        const ShellLimits limits(kShellReadLimit, deadline_in(kStartUpShellTime));
        recover_file_sets(); // before anything is read that a crash may have left half replaced
        create_maps();
        if (!load_databases(options))
            return false;
    }
    if (socket_init(options.tcp_port, options.trust, std::move(tls), options.limits) != 0)
        return false;
    start_commits();
    fleet_start(socket_open);
    qv_log_print(kLogNotice, "running\n");
    qv_claim_running();
    model_findings_start(options.meta_files, !options.debug); // where -d logs to
    qv_daemon_ready();
    return true;
}

void main_loop()
{
    sigset_t open;
    pthread_sigmask(SIG_BLOCK, nullptr, &open);
    for (const auto &one : kHandled)
        sigdelset(&open, one.signal);
    while (run) {
        const timespec hour{kAliveSeconds, 0};
        pselect(0, nullptr, nullptr, nullptr, &hour, &open);
        if (hung_up) {
            hung_up = 0;
            qv_log_reopen();
        }
        if (caught_signal)
            qv_log_print(kLogDebug, "Signal %d caught, shutting down\n", static_cast<int>(caught_signal));
        qv_log_print(kLogInfo, "alive\n");
    }
}

void destroy_maps()
{
    cmd_destroy_cmdmap_hdf();
}

// False when threads are left behind.
bool shut_down(const Options &options)
{
    qv_claim_stopping();
    model_findings_stop();
    bool alone = fleet_stop();
    alone &= command_lock_close(kShutdownPatience);
    alone &= shell_stop_later();
    alone &= stop_commits();
    qv_log_print(kLogNotice, "stopping\n");
    if (!options.no_watchdog)
        watchdog_stop();
    session_unload_db_file();
    hdfdb_destroy();
    user_unload_db_file();
    menu_unload_db_file();
    destroy_maps();
    alone &= socket_exit();
    qvnotify_stop();
    qv_remove_pid_file(options.pid_file.path);
    qv_log_print(kLogNotice, "exit\n");
    if (options.logging)
        qv_log_stop();
    qv_release_root();
    return alone;
}

int run_daemon(const Options &options)
{
    umask(022);
    std::shared_ptr<const TlsContext> tls;
    if (!claim_root(options, tls))
        return 1;
    const bool serving = start_up(options, std::move(tls));
    if (serving)
        main_loop();
    const int status = serving ? 0 : 1;
    if (!shut_down(options))
        _exit(status); // who is left behind must not see the globals destroyed
    return status;
}

} // namespace

} // namespace qvcd

int main(int argc, char **argv)
{
    using namespace qvcd;
    end_in_order();
    qv_fill_standard_descriptors();
    ::setenv("QVC_SESSION", "0", 1); // scripts of the appliance ask as root, whoever has kept a session
    int status = 0;
    const std::optional<Options> options = parse_options(argc, argv, status);
    return options ? run_daemon(*options) : status;
}
