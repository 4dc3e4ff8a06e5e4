#include "daemon/options.h"

#include "base/limits.h"
#include "base/options.h"
#include "base/text.h"
#include "platform/log.h"
#include "platform/socket.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <getopt.h>
#include <system_error>

namespace qvcd {

namespace {

constexpr char kOptionString[] = "bcde:f:ghl:m:p:P:stu:v:w";
constexpr std::size_t kMostMetaFiles = 10;
constexpr char kDefaultMetaFile[] = "/usr/share/qvapi/apimeta.hdf";

struct UsageLine {
    const char *option;
    const char *text;
};
constexpr UsageLine kUsage[] = {
    {"-b", "Print build info"},
    {"-c", "Disable session checking"},
    {"-d", "Turn on debugging."},
    {"-e", "Load a HDF file to DB."},
    {"-f <file>", "Read from a configuration file"},
    {"-g", "Don't go into daemon mode"},
    {"-l <file>", "File to write debug messages to a log file."},
    {"-m <file>", "Load DB metadata HDF"},
    {"-P <port>", "Enable network socket on this port"},
    {"-p <file>", "Filename of PID file"},
    {"-s", "Send messages to syslog."},
    {"-t", "Add timestamp to debug messages"},
    {"-u <file>", "User permission file"},
    {"-v <level>", "Log level. 0-error, 1-warn, 2-info, 3-chitchat, 4-debug"},
    {"-w", "Disable the watchdog"},
    {"-h", "This help menu"},
};

// An option with two dashes. `take` returns why it does not take the value; empty: it did.
struct LongOption {
    const char *name;
    const char *argument; // as the usage text calls it; null: it has none
    const char *text;
    std::string (*take)(const char *argument, Options &options);
};

std::string take_hash_passwords(const char *, Options &)
{
    hash_passwords = true;
    return "";
}

std::string take_any_metadata(const char *, Options &options)
{
    options.any_metadata = true;
    return "";
}

std::string take_trust_tcp(const char *argument, Options &options)
{
    return options.trust.set_tcp(argument)
               ? ""
               : "none, all, or loopback and ADDRESS/BITS, separated by commas, is wanted";
}

// `take` gets the number when it is one from `least` to `most`; else why not is returned.
template <class Take>
std::string take_number(std::string_view text, unsigned least, unsigned most, Take take)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most)
        return "a number from " + std::to_string(least) + " to " + std::to_string(most) + " is wanted";
    take(number);
    return "";
}

std::string take_connections(const char *argument, Options &options)
{
    return take_number(argument, 8, 65'536, [&](unsigned n) { options.limits.connections = n; });
}

std::string take_waiting(const char *argument, Options &options)
{
    return take_number(argument, 1, 1'024, [&](unsigned n) { options.limits.waiting = n; });
}

std::string take_session_idle(const char *argument, Options &)
{
    constexpr unsigned kMostMinutes = 366 * 24 * 60;
    return take_number(argument, 0, kMostMinutes, [](unsigned n) { session_idle = std::chrono::minutes(n); });
}

template <std::string TlsFiles::*Path>
std::string take_tls_file(const char *argument, Options &options)
{
    options.tls.*Path = qv_host_file(argument).path;
    return "";
}

constexpr LongOption kLongOptions[] = {
    {"help", nullptr, "This help, with the long options", nullptr},
    {"any-metadata", nullptr, "Serve whatever can be read of the metadata, also nothing", take_any_metadata},
    {"hash-passwords", nullptr, "Keep hashes in place of passwords in the user file", take_hash_passwords},
    {"trust-tcp", "<sources>",
     "From where session 0 is root over TCP: none, loopback, <address>/<bits>,..., all", take_trust_tcp},
    {"connections", "<number>", "Connections at once; the one that was idle longest makes room (1024)",
     take_connections},
    {"waiting", "<number>", "Commands that wait for scripts and devices at once (64)", take_waiting},
    {"session-idle", "<minutes>", "Unused sessions end after it; 0: never (0)", take_session_idle},
    {"tls-cert", "<file>", "Speak TLS on the network socket, with this certificate",
     take_tls_file<&TlsFiles::certificate>},
    {"tls-key", "<file>", "Private key of the certificate", take_tls_file<&TlsFiles::key>},
    {"tls-client-ca", "<file>", "Demand certificates of these authorities; their common name is the user",
     take_tls_file<&TlsFiles::authorities>},
};
constexpr int kFirstLongOption = 256; // above all characters

// What "--help" prints behind the usage text, which scripts know as it is.
void help_with_long_options(const char *name)
{
    help(name);
    for (const LongOption &row : kLongOptions)
        std::printf("\t--%s%s%s: %s\n", row.name, row.argument ? "=" : "", row.argument ? row.argument : "",
                    row.text);
}

std::vector<option> long_options()
{
    std::vector<option> options;
    for (const LongOption &row : kLongOptions)
        options.push_back({row.name, row.argument ? required_argument : no_argument, nullptr,
                           kFirstLongOption + static_cast<int>(options.size())});
    options.push_back({});
    return options;
}

// The metadata files as the options name them: -m fills the next place, -f replaces the first.
struct MetaFiles {
    std::vector<FileName> files{qv_device_file(kDefaultMetaFile)};
    std::size_t count = 0;

    bool add(const char *path)
    {
        if (count == kMostMetaFiles)
            return false;
        files.resize(std::max(files.size(), count + 1));
        files[count++] = qv_host_file(path);
        return true;
    }
};

bool takes_path(int option)
{
    return option == 'e' || option == 'f' || option == 'l' || option == 'm' || option == 'p' || option == 'u';
}

// False when the option cannot be taken: the caller prints the usage text.
bool take_option(int option, const char *argument, Options &options, MetaFiles &meta)
{
    if (takes_path(option) && std::string_view(argument).size() > kMaxPathBytes)
        return false;
    switch (option) {
    case 'c':
        disable_login = 1;
        break;
    case 'd':
        options.foreground = options.debug = options.logging = true;
        break;
    case 'e':
        options.preload_file = qv_host_file(argument);
        options.preload = true;
        break;
    case 'f':
        meta.files.front() = qv_host_file(argument);
        break;
    case 'g':
        options.foreground = true;
        break;
    case 'l':
        options.log_file = qv_host_file(argument).path;
        options.log_to_file = options.logging = true;
        break;
    case 'm':
        return meta.add(argument);
    case 'P':
        options.tcp_port = c_int(argument);
        break;
    case 'p':
        options.pid_file = qv_host_file(argument);
        break;
    case 's':
        options.to_syslog = options.logging = true;
        break;
    case 't':
        options.timestamp = true;
        break;
    case 'u':
        options.user_file = qv_host_file(argument);
        break;
    case 'v':
        verbose = c_int(argument);
        break;
    case 'w':
        options.no_watchdog = true;
        break;
    default:
        return false;
    }
    return true;
}

} // namespace

void help(const char *name)
{
    std::printf("\nUsage: %s [OPTIONS] arguments\n", name);
    std::printf("\n[OPTIONS]\n");
    for (const UsageLine &line : kUsage)
        std::printf("\t%-10s: %s\n", line.option, line.text);
}

namespace {

// Nothing when the program has nothing more to do, or `refusal` says why it cannot go on.
std::optional<Options> take_options(int argc, char **argv, std::string &refusal)
{
    Options options;
    MetaFiles meta;
    const std::vector<struct option> longs = long_options();
    int option = 0;
    while ((option = getopt_long(argc, argv, kOptionString, longs.data(), nullptr)) != -1) {
        if (option >= kFirstLongOption) {
            const LongOption &row = kLongOptions[option - kFirstLongOption];
            if (!row.take) {
                help_with_long_options(argv[0]);
                return std::nullopt;
            }
            const std::string reason = row.take(optarg, options);
            if (reason.empty())
                continue;
            refusal.append("--").append(row.name).append("=").append(optarg ? optarg : "");
            refusal.append(": ").append(reason);
            return std::nullopt;
        }
        if (option == 'b') {
            std::printf("Built on %s %s\n", __DATE__, __TIME__);
            return std::nullopt;
        }
        if (!take_option(option, optarg, options, meta)) {
            help(argv[0]);
            return std::nullopt;
        }
    }
    meta.files.resize(std::max<std::size_t>(meta.count, 1));
    options.meta_files = std::move(meta.files);
    return options;
}

std::string left_over(int argc, char **argv)
{
    std::string words;
    for (int i = optind; i < argc; ++i)
        words += std::string(" ") + argv[i];
    return words;
}

} // namespace

std::optional<Options> parse_options(int argc, char **argv, int &status)
{
    std::string refusal;
    status = 0;
    try {
        std::optional<Options> options = take_options(argc, argv, refusal);
        if (!options && refusal.empty())
            return options;
        if (!refusal.empty())
            options.reset();
        else if (optind < argc)
            refusal = "unexpected arguments:" + left_over(argc, argv);
        else if (options->tls.certificate.empty() != options->tls.key.empty())
            refusal = "--tls-cert and --tls-key belong together";
        else if (!options->tls.authorities.empty() && options->tls.certificate.empty())
            refusal = "--tls-client-ca needs --tls-cert";
        else if (!qv_ipc_paths_fit())
            refusal = "QV_SYSROOT is too long for the addresses of its sockets: " + qv_sysroot();
        else
            return options;
    } catch (const std::system_error &error) { // a relative path in a folder that was removed
        refusal = error.what();
    }
    qv_report_failure(refusal);
    status = 1;
    return std::nullopt;
}

} // namespace qvcd
