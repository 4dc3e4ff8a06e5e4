#include "commands/cmd_parse.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/text.h"
#include "commands/cmd_table.h"
#include "platform/log.h"
#include "store/meta.h"

#include <atomic>

namespace qvcd {

namespace {

std::atomic<int> cmdcounter{0}; // tags log lines only

struct Line {
    std::string command;
    Args argv;
    std::size_t first_arg = 0; // 1 when argv begins with a sub-command
};

// Nothing for a line of separators only.
bool split_line(std::string_view text, Line &line)
{
    std::vector<std::string> words = split_words(text, kListSeparators);
    if (words.empty())
        return false;
    if (words.size() > kMaxArgs + 1)
        words.resize(kMaxArgs + 1); // further ones are dropped
    line.command = std::move(words.front());
    words.erase(words.begin());
    line.argv = std::move(words);
    const std::size_t dot = line.command.find('.');
    if (dot != std::string::npos) {
        line.argv.insert(line.argv.begin(), line.command.substr(dot + 1));
        line.command.resize(dot);
        line.first_arg = 1;
    }
    return true;
}

// Which argument, counted behind the sub-command, is a password.
struct SecretArgument {
    const char *command;
    const char *sub_command;
    std::size_t argument;
};
constexpr SecretArgument kSecretArguments[] = {
    {"login", nullptr, 1},
    {"user", "passwd", 1},
};

bool is_secret(const Line &line, std::size_t argument)
{
    for (const SecretArgument &row : kSecretArguments) {
        if (line.command == row.command && argument == row.argument &&
            (!row.sub_command || (line.first_arg == 1 && line.argv.front() == row.sub_command)))
            return true;
    }
    return false;
}

// The argument as the log shows it: decoded, passwords hidden.
std::string for_log(const Line &line, std::size_t argument, const std::string &text)
{
    if (is_secret(line, argument))
        return kHiddenPassword;
    const std::size_t equals = text.find('=');
    if (equals != std::string::npos && meta_is_password(text.substr(0, equals)))
        return text.substr(0, equals + 1) + kHiddenPassword;
    const std::string part = cut(text, kMaxValueBytes);
    return url_unescape(part).value_or(part);
}

void log_line(int number, const Line &line)
{
    qv_log_print(kLogInfo, "parse: %d: cmd: [%s]\n", number, line.command.c_str());
    if (line.first_arg)
        qv_log_print(kLogInfo, "       %d: sub: [%s]\n", number, line.argv.front().c_str());
    if (!timing_is_on() || !qv_log_wants(kLogInfo))
        return;
    for (std::size_t i = line.first_arg; i < line.argv.size(); ++i) {
        const std::size_t argument = i - line.first_arg;
        qv_log_print(kLogInfo, "       %d: arg%zu:[%s]\n", number, argument,
                     for_log(line, argument, line.argv[i]).c_str());
    }
}

} // namespace

int cmd_parse(unsigned mask, std::string_view text, std::FILE *out, WaitHooks *hooks)
{
    const int number = cmdcounter++;
    const Stopwatch watch;
    text = text.substr(0, text.find('\0'));
    if (text.empty() || text.front() == '\r' || text.front() == '\n' || text.front() == '#')
        return 1;
    Line line;
    if (!split_line(text, line))
        return 0;
    const CommandLock lock(hooks);
    if (!lock.held())
        return 1;
    log_line(number, line);
    Request request(mask);
    const CommandRecord &record = cmd_find(line.command);
    if (&record == cmd_map().front().record)
        qv_log_print(kLogError, "Invalid command: %s\n", line.command.c_str());
    const int result = record.handler(request, line.argv, out);
    if (timing_is_on())
        qv_log_print(kLogInfo, "       %d: tot: [%s] [%lu.%03lus]\n", number, line.command.c_str(),
                     watch.seconds(), watch.milliseconds());
    return result;
}

} // namespace qvcd
