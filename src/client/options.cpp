#include "client/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <getopt.h>

#include "client/errors.h"

namespace qvcd::client {

const char kUsage[] = R"(Usage: qvc [-s SESSION] [-H HOST:PORT] [-t SECONDS] COMMAND [ARG ...]
       qvc [-s SESSION] [-H HOST:PORT] [-t SECONDS] [-f FILE] [-k]
       qvc -H HOST:PORT --tls [--ca FILE] [--cert FILE --key FILE] ...

Sends one command to the configuration daemon, prints its reply and exits with its result code.
Without a command, reads commands: with line editing on a terminal, else line by line from standard input,
up to the first that fails.

  -s SESSION     session number from "qvc login" (default $QVC_SESSION, else the kept one, else 0, the local
                 root session)
  -f FILE        read commands from this file ("-": standard input)
  -k             go on after a command that fails
  -H HOST:PORT   ask over TCP instead of the local socket; an IPv6 address as [ADDRESS]:PORT
  --tls          speak TLS with HOST, whose certificate must be for this name or address
  --ca FILE      trust the authorities in this file, not those of the system
  --cert FILE, --key FILE   show this certificate; session 0 then stands for the user whom it names
  -t SECONDS     give up when the whole reply is not there in time (default 30; 600 for commands that wait
                 for scripts: commit, rollback, abort, apply, update, preset, profile)
  --json         print the answer as one line of JSON: values, typed, and errors apart
  -v             print values only, without their names; errors go to standard error
  -q             print errors only, on standard error
  -e             fail when the reply holds an error, whatever the result is
  -y             ask nothing before something is done
  -h, --help     this text
  -V, --version  the version

Commands of the client's own, besides the daemon's:
  help [COMMAND|API]                    what the daemon says about its commands and settings
  login USER [PASSWORD [IP [SERVER]]]   prints Session=NUMBER; asks for a missing password, or for one of "-"
  login --keep USER ...                 keeps the session for later qvc, until logout
  logout                                ends it
  watch [-t] [--json] [-e EVENT] [NAME ...]   prints events as they come, until interrupted
  export, import [-l FILE]              settings to and from this machine; a name with a slash is the
                                        daemon's; without one it is standard output, or what is piped in
  completion bash|zsh|fish              prints the completion script of a shell
  tree [NAME ...]                       settings as a tree, with marks: modified, unapplied, not default
  find WORD ...                         settings whose name, help or description holds all of the words
  edit NAME ...                         settings in $EDITOR, until the daemon takes them or one gives up
  version                               of client and daemon, and how the daemon is
  fleet ...                             many appliances at once, over an MQTT broker: qvc fleet help

NAME=@FILE and NAME=- take the value from a file and from standard input; NAME=? asks for a password.
In names "*", "?" and "[...]" match within one part: "Services.*.port".

Exit code: the command's result, of several that of the first that failed; 2 for a wrong command line; 124 when
the daemon cannot be reached, does not answer in time or breaks off.

Examples:
  qvc get Network
  qvc set "Network.hostname=living-room"
  qvc save Network && qvc apply Network
)";

const char kVersion[] = "qvc " QVC_VERSION "\n";

namespace {

template <typename Number>
bool parse_number(const std::string &text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

std::chrono::milliseconds time_limit(const std::string &text)
{
    double seconds = 0;
    if (!parse_number(text, seconds) || !(seconds >= 0.001 && seconds <= double{kLongestLimit.count()}))
        throw UsageError("'" + text + "' is no time limit: expected seconds, 0.001 to 86400");
    return std::chrono::milliseconds(std::lround(seconds * 1000));
}

Endpoint tcp_endpoint(const std::string &text)
{
    const std::size_t colon = text.rfind(':');
    Endpoint endpoint;
    int port = 0;
    if (colon != std::string::npos) {
        endpoint.host = text.substr(0, colon);
        endpoint.port = text.substr(colon + 1);
    }
    const bool bracketed = endpoint.host.starts_with('[') && endpoint.host.ends_with(']');
    if (bracketed)
        endpoint.host = endpoint.host.substr(1, endpoint.host.size() - 2);
    if (endpoint.host.empty() || (!bracketed && endpoint.host.find(':') != std::string::npos) ||
        !parse_number(endpoint.port, port) || port < 1 || port > 65535)
        throw UsageError("'" + text + "' is no HOST:PORT");
    return endpoint;
}

enum LongOption { kJson = 256, kTls, kAuthorities, kCertificate, kKey, kSaidResult, kSaid };

// What the options for TLS name; the endpoint gets it when all of them are known.
struct TlsChoice {
    bool wanted = false;
    TlsFiles files;
};

void take_tls(Endpoint &endpoint, const TlsChoice &tls)
{
    const TlsFiles &files = tls.files;
    if (!tls.wanted && !(files.authorities + files.certificate + files.key).empty())
        throw UsageError("--ca, --cert and --key need --tls");
    if (files.certificate.empty() != files.key.empty())
        throw UsageError("--cert and --key belong together");
    if (!tls.wanted)
        return;
    if (endpoint.local())
        throw UsageError("--tls needs -H");
    endpoint.tls = files;
}

int said_number(const std::string &text)
{
    int number = 0;
    if (!parse_number(text, number))
        throw UsageError("'" + text + "' is no result");
    return number;
}

std::string file_name(const char *text)
{
    if (*text == '\0')
        throw UsageError("'' is no file");
    return text;
}

void take_option(Options &options, TlsChoice &tls, int option, const std::string &refused)
{
    switch (option) {
    case 's':
        options.session = session_number(optarg);
        options.session_given = true;
        break;
    case 'H':
        options.endpoint = tcp_endpoint(optarg);
        break;
    case 'f':
        options.script = file_name(optarg);
        break;
    case 'k':
        options.keep_going = true;
        break;
    case 't':
        options.timeout = time_limit(optarg);
        break;
    case kJson:
        options.json = true;
        break;
    case 'v':
        options.values_only = true;
        break;
    case 'q':
        options.quiet = true;
        break;
    case 'e':
        options.strict = true;
        break;
    case kSaidResult:
        options.said_result = said_number(optarg);
        break;
    case kSaid:
        options.said_lines.emplace_back(optarg);
        break;
    case kTls:
        tls.wanted = true;
        break;
    case kAuthorities:
        tls.files.authorities = file_name(optarg);
        break;
    case kCertificate:
        tls.files.certificate = file_name(optarg);
        break;
    case kKey:
        tls.files.key = file_name(optarg);
        break;
    case 'y':
        options.yes = true;
        break;
    case 'h':
        options.action = Options::Action::help;
        break;
    case 'V':
        options.action = Options::Action::version;
        break;
    case ':':
        throw UsageError("option '" + refused + "' needs an argument");
    default:
        throw UsageError("unknown option '" + refused + "'");
    }
}

} // namespace

int session_number(const std::string &text)
{
    int number = 0;
    if (!parse_number(text, number) || number < 0)
        throw UsageError("'" + text + "' is no session number");
    return number;
}

TimeLimits Options::limits(std::string_view command) const
{
    const TimeLimits usual = usual_limits(command);
    return {.connect = timeout.value_or(usual.connect), .whole = timeout.value_or(usual.whole)};
}

Options parse_options(const std::vector<std::string> &arguments)
{
    static constexpr option kLongOptions[] = {
        {"json", no_argument, nullptr, kJson},
        {"tls", no_argument, nullptr, kTls},
        {"ca", required_argument, nullptr, kAuthorities},
        {"cert", required_argument, nullptr, kCertificate},
        {"key", required_argument, nullptr, kKey},
        {"said-result", required_argument, nullptr, kSaidResult}, // from qvc to qvc-full
        {"said", required_argument, nullptr, kSaid},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},
        {nullptr, 0, nullptr, 0},
    };
    std::vector<std::string> copy = arguments;
    std::vector<char *> argv{nullptr};
    for (std::string &argument : copy)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::string name = "qvc";
    argv[0] = name.data();

    Options options;
    if (const char *session = std::getenv("QVC_SESSION"); session && *session != '\0') {
        options.session = session_number(session);
        options.session_given = true;
    }
    TlsChoice tls;
    optind = 0; // getopt starts afresh
    const int argc = static_cast<int>(argv.size()) - 1;
    for (int option = 0; options.action == Options::Action::run;) {
        const int at = optind == 0 ? 1 : optind;
        option = getopt_long(argc, argv.data(), "+:s:H:t:f:kvqeyhV", kLongOptions, nullptr);
        if (option == -1)
            break;
        take_option(options, tls, option, argv[static_cast<std::size_t>(at)]);
    }
    if (options.action == Options::Action::run) {
        take_tls(options.endpoint, tls);
        options.words.assign(argv.begin() + optind, argv.end() - 1);
        if (options.script && !options.words.empty())
            throw UsageError("-f FILE and a command");
    }
    return options;
}

} // namespace qvcd::client
