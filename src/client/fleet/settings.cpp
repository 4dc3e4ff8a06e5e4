#include "client/fleet/settings.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

#include "client/errors.h"
#include "client/person.h"

namespace qvcd::client::fleet {

namespace {

struct Given {
    Settings settings;
    std::string broker; // a URL
    bool insecure = false;
};

struct Key {
    std::string_view name;
    std::string Settings::*member;
};
constexpr Key kKeys[] = {
    {"broker_password", &Settings::broker_password},
    {"cafile", &Settings::cafile},
    {"certfile", &Settings::certfile},
    {"keyfile", &Settings::keyfile},
    {"prefix", &Settings::prefix},
    {"user", &Settings::user},
    {"password", &Settings::password},
};

std::string variable(const char *name)
{
    const char *const value = std::getenv(name);
    return value ? value : "";
}

std::string settings_file()
{
    const std::string folder = variable("XDG_CONFIG_HOME");
    return (folder.empty() ? variable("HOME") + "/.config" : folder) + "/qvc/fleet.conf";
}

std::string trimmed(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::size_t last = text.find_last_not_of(kBlanks);
    return first == text.size() ? "" : std::string(text.substr(first, last - first + 1));
}

void take_key(const std::string &file, const std::string &key, std::string value, Given &given)
{
    if (key == "broker")
        given.broker = std::move(value);
    else if (key == "insecure")
        given.insecure = value == "yes";
    else if (const auto *row = std::ranges::find(kKeys, key, &Key::name); row != std::end(kKeys))
        given.settings.*(row->member) = std::move(value);
    else
        throw UsageError(file + ": unknown key '" + key + "'");
}

bool others_may_read(const std::string &file)
{
    struct stat st {};
    constexpr mode_t kOthers = 077;
    return stat(file.c_str(), &st) == 0 && (st.st_mode & kOthers) != 0;
}

void read_file(Given &given)
{
    const std::string file = settings_file();
    std::ifstream stream(file);
    if (!stream && errno != ENOENT)
        throw UsageError("cannot read " + file + ": " + std::strerror(errno));
    for (std::string line; std::getline(stream, line);) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t equals = std::min(line.find('='), line.size());
        take_key(file, trimmed(line.substr(0, equals)),
                 trimmed(std::string_view(line).substr(std::min(equals + 1, line.size()))), given);
    }
    const Settings &s = given.settings;
    if (!(s.password + s.broker_password).empty() && others_may_read(file))
        throw UsageError(file + " holds a password, and others may read it: chmod 600 " + file);
}

void take_options(std::vector<std::string> &words, Given &given)
{
    while (!words.empty() && words[0].starts_with("-")) {
        const std::string option = words[0];
        std::string *const target = option == "-b"     ? &given.broker
                                    : option == "-u"   ? &given.settings.user
                                    : option == "--ca" ? &given.settings.cafile
                                                       : nullptr;
        if (!target)
            throw UsageError("unknown option '" + option + "' of fleet");
        if (words.size() < 2)
            throw UsageError("option '" + option + "' needs an argument");
        *target = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
}

// mqtts://USER@HOST:PORT; mqtt:// is in clear.
void take_url(Given &given)
{
    Settings &s = given.settings;
    std::string rest = given.broker;
    s.tls = rest.starts_with("mqtts://");
    if (!s.tls && !rest.starts_with("mqtt://"))
        throw UsageError("'" + rest + "' is no broker: expected mqtts://USER@HOST:PORT");
    if (!s.tls && !given.insecure)
        throw UsageError("mqtt:// sends passwords in clear: say mqtts://, or insecure=yes in " +
                         settings_file());
    rest = rest.substr(rest.find("//") + 2);
    if (const std::size_t at = rest.rfind('@'); at != std::string::npos) {
        s.broker_user = rest.substr(0, at);
        if (s.broker_user.find(':') != std::string::npos)
            throw UsageError(
                "a password in the broker's URL is seen by everybody here: say broker_password=... in " +
                settings_file());
        rest = rest.substr(at + 1);
    }
    const std::size_t colon = rest.ends_with(']') ? std::string::npos : rest.rfind(':');
    s.port = s.tls ? 8883 : 1883;
    if (colon != std::string::npos) {
        const char *const end = rest.data() + rest.size();
        const auto [last, error] = std::from_chars(rest.data() + colon + 1, end, s.port);
        if (error != std::errc() || last != end || s.port < 1 || s.port > 65535)
            throw UsageError("'" + given.broker + "' has no port from 1 to 65535");
    }
    s.host = rest.substr(0, colon);
    if (s.host.starts_with('[') && s.host.ends_with(']'))
        s.host = s.host.substr(1, s.host.size() - 2);
    if (s.host.empty())
        throw UsageError("'" + given.broker + "' names no host");
}

void ask_for_missing(Settings &s, bool needs_user)
{
    if (!can_ask())
        return;
    if (!s.broker_user.empty() && s.broker_password.empty() && s.certfile.empty())
        s.broker_password = ask_password("Password of " + s.broker_user + " at the broker: ");
    if (needs_user && s.password.empty())
        s.password = ask_password("Password of " + s.user + " on the appliances: ");
}

} // namespace

Settings take_settings(std::vector<std::string> &words, bool needs_user)
{
    Given given;
    read_file(given);
    take_options(words, given);
    if (given.broker.empty())
        throw UsageError("no broker: say -b mqtts://USER@HOST, or broker=... in " + settings_file());
    take_url(given);
    if (given.settings.certfile.empty() != given.settings.keyfile.empty())
        throw UsageError("certfile and keyfile belong together");
    if (needs_user && given.settings.user.empty())
        throw UsageError("no user of the appliances: say -u USER, or user=... in " + settings_file());
    ask_for_missing(given.settings, needs_user);
    return std::move(given.settings);
}

} // namespace qvcd::client::fleet
