#include "web/options.h"

#include "platform/sysroot.h"
#include "web/http.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <getopt.h>
#include <stdexcept>

namespace qvcd::web {

namespace {

struct Row {
    const char *name;
    const char *argument; // null: it has none
    const char *text;
    void (*take)(const std::string &value, Options &options);
};

template <class Number>
Number number_of(const std::string &text, Number least, Number most)
{
    Number number = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < least || number > most)
        throw std::runtime_error("a number from " + std::to_string(least) + " to " + std::to_string(most) +
                                 " is wanted");
    return number;
}

template <std::string Options::*Path>
void take_path(const std::string &value, Options &options)
{
    options.*Path = qv_host_file(value).path;
}

void take_listen(const std::string &value, Options &options)
{
    split_address(value);
    options.listen.push_back(value);
}

constexpr Row kRows[] = {
    {"listen", "ADDRESS:PORT", "where to listen, several times (127.0.0.1:8443 and [::1]:8443)", take_listen},
    {"plain", nullptr, "HTTP without TLS, on loopback only",
     [](const std::string &, Options &options) { options.plain = true; }},
    {"certificate", "FILE", "PEM file of the certificate and those above it (one of our own)",
     take_path<&Options::certificate>},
    {"key", "FILE", "PEM file of its key", take_path<&Options::key>},
    {"name", "NAME", "a name of this machine beside its host name, several times; any: all names",
     [](const std::string &value, Options &options) { options.names.insert(value); }},
    {"state-dir", "FOLDER", "for the certificate that is made (/var/lib/qvweb)",
     take_path<&Options::state_folder>},
    {"files", "FOLDER", "the pages", take_path<&Options::files>},
    {"socket-dir", "FOLDER", "of the daemon's socket (/var/run/qv)", take_path<&Options::socket_folder>},
    {"idle", "MINUTES", "unused sessions end after it, 1 to 44640 (30)",
     [](const std::string &value, Options &options) {
         options.idle = std::chrono::minutes(number_of(value, 1L, 44'640L));
     }},
    {"connections", "NUMBER", "at once (256)",
     [](const std::string &value, Options &options) {
         options.limits.connections = number_of(value, 4UL, 65'536UL);
     }},
    {"connections-of-one", "NUMBER", "from one address (32)",
     [](const std::string &value, Options &options) {
         options.limits.of_one_address = number_of(value, 1UL, 65'536UL);
     }},
    {"verbosity", "LEVEL", "of the log, 0 to 4 (2)",
     [](const std::string &value, Options &options) { options.verbosity = number_of(value, 0, 4); }},
    {"debug", nullptr, "log to standard error, not to syslog",
     [](const std::string &, Options &options) { options.debug = true; }},
};

void print_help()
{
    std::printf("usage: qvweb [OPTION ...]\nThe appliance over HTTP: see qvweb(8).\n\n");
    for (const Row &row : kRows)
        std::printf("  --%s%s%s\n      %s\n", row.name, row.argument ? " " : "",
                    row.argument ? row.argument : "", row.text);
    std::printf("  --help\n  --version\n");
}

std::vector<option> long_options()
{
    std::vector<option> options;
    for (const Row &row : kRows)
        options.push_back({row.name, row.argument ? required_argument : no_argument, nullptr, 'a'});
    options.push_back({"help", no_argument, nullptr, 'h'});
    options.push_back({"version", no_argument, nullptr, 'v'});
    options.push_back({});
    return options;
}

void complete(Options &options)
{
    if (options.certificate.empty() != options.key.empty())
        throw std::runtime_error("--certificate and --key come together");
    if (options.listen.empty())
        options.listen = {"127.0.0.1:8443", "[::1]:8443"};
    const auto is_loopback = [](const std::string &where) {
        const auto parts = split_address(where);
        return parts.first.starts_with("127.") || parts.first == "::1";
    };
    if (options.plain && !std::ranges::all_of(options.listen, is_loopback))
        throw std::runtime_error("--plain is for loopback only: passwords would be read on the way");
    if (options.state_folder.empty())
        options.state_folder = qv_sysroot_path("/var/lib/qvweb");
    if (options.files.empty())
        options.files = QVWEB_FILES;
}

} // namespace

std::optional<Options> parse_options(int argc, char **argv, int &status)
{
    Options options;
    const std::vector<option> rows = long_options();
    const char *name = "";
    try {
        int index = 0;
        for (int c = 0; (c = ::getopt_long(argc, argv, "", rows.data(), &index)) != -1;) {
            status = c == '?' ? 2 : 0;
            if (c == '?')
                return std::nullopt;
            if (c == 'h' || c == 'v') {
                c == 'h' ? print_help() : static_cast<void>(std::printf("qvweb %s\n", QVCD_RELEASE));
                return std::nullopt;
            }
            name = kRows[index].name;
            kRows[index].take(optarg ? optarg : "", options);
        }
        name = "";
        if (optind < argc)
            throw std::runtime_error(std::string("'") + argv[optind] + "' is no option");
        complete(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvweb: %s%s%s%s\n", *name ? "--" : "", name, *name ? ": " : "", error.what());
        status = 2;
        return std::nullopt;
    }
    return options;
}

} // namespace qvcd::web
