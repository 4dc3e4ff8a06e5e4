#include "commands/cmd_parse.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/cmd_table.h"
#include "commands/command_times.h"
#include "commands/history.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/meta.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <utility>

namespace qvcd {

namespace {

std::atomic<int> cmdcounter{0}; // tags log lines only

struct Line {
    std::string command;
    Args argv;
    std::size_t first_arg = 0; // 1 when argv begins with a sub-command
};

void assign(Args &argv, std::size_t i, std::string_view word)
{
    if (i < argv.size())
        argv[i].assign(word);
    else
        argv.emplace_back(word);
}

// Of each byte: whether it separates words. A look into a table is cheaper than four comparisons.
constexpr auto kSeparates = [] {
    std::array<bool, 256> table{};
    for (const char c : kListSeparators)
        table[static_cast<unsigned char>(c)] = true;
    return table;
}();

bool is_separator(char c)
{
    return kSeparates[static_cast<unsigned char>(c)];
}

// Takes the next word off the text, with the separators around it; empty when there is none.
std::string_view next_word(std::string_view &text)
{
    const char *const last = text.data() + text.size();
    const char *word = text.data();
    while (word != last && is_separator(*word))
        ++word;
    const char *end = word;
    while (end != last && !is_separator(*end))
        ++end;
    text = {end, static_cast<std::size_t>(last - end)};
    return {word, static_cast<std::size_t>(end - word)};
}

// Nothing for a line of separators only. The words go where those of the line before stood, so that most
// lines take no memory.
bool split_line(std::string_view text, Line &line)
{
    const std::string_view command = next_word(text);
    const std::size_t dot = std::min(command.find('.'), command.size());
    line.command.assign(command.substr(0, dot));
    line.first_arg = dot < command.size() ? 1 : 0;
    std::size_t count = 0;
    if (line.first_arg)
        assign(line.argv, count++, command.substr(dot + 1));
    while (count < kMaxArgs + line.first_arg) { // further ones are dropped
        const std::string_view word = next_word(text);
        if (word.empty())
            break;
        assign(line.argv, count++, word);
    }
    line.argv.resize(count);
    return !command.empty();
}

// The thread's words: those of a command within a command are others. The memory of long lines is given back.
class ThreadLine {
  public:
    explicit ThreadLine(std::string_view text) : is_shared_(!taken && text.size() <= kKeepBytes)
    {
        taken = taken || is_shared_;
        if (!is_shared_)
            own_.emplace();
    }
    ~ThreadLine()
    {
        if (is_shared_)
            taken = false;
    }
    ThreadLine(const ThreadLine &) = delete;
    ThreadLine &operator=(const ThreadLine &) = delete;
    Line &get() { return is_shared_ ? shared : *own_; }

  private:
    static constexpr std::size_t kKeepBytes = 4096;
    static thread_local Line shared;
    static thread_local bool taken;
    bool is_shared_;
    std::optional<Line> own_;
};
thread_local Line ThreadLine::shared;
thread_local bool ThreadLine::taken = false;

// A word of the line as the log shows it: decoded, secrets hidden. Behind a secret word all are: a password
// with a comma or a blank in it comes as several.
std::string for_log(const std::string &word, bool assigns, bool &secret)
{
    const std::optional<std::string> text = url_unescape(cut(word, kMaxValueBytes));
    const std::size_t equals = text ? text->find('=') : std::string::npos;
    const std::string name = text ? text->substr(0, equals) : "";
    if (secret || !text || (equals != std::string::npos && !is_tree_name(name))) {
        secret = true;
        return kHiddenPassword;
    }
    if (equals == std::string::npos) {
        secret = meta_is_password(name);
        return assigns ? name_for_log(name) : name;
    }
    const std::string value = value_for_log(name, text->substr(equals + 1));
    secret = value == kHiddenPassword;
    return name + "=" + value;
}

// No command has "=" or "%" in its name: what follows may be a value.
std::string command_for_log(const Line &line)
{
    return cut(line.command.substr(0, line.command.find_first_of("=%")), kMaxLoggedWordBytes);
}

void log_line(int number, const Line &line, const CommandRecord &record)
{
    if (!qv_log_wants(kLogInfo))
        return;
    qv_log_print(kLogInfo, "parse: %d: cmd: [%s]\n", number, command_for_log(line).c_str());
    bool secret = false;
    for (std::size_t i = 0; i < line.argv.size(); ++i) {
        secret = secret || i >= record.secret_from;
        const std::string word = for_log(line.argv[i], record.assigns, secret);
        if (i < line.first_arg)
            qv_log_print(kLogInfo, "       %d: sub: [%s]\n", number, cut(word, kMaxLoggedWordBytes).c_str());
        else if (timing_is_on())
            qv_log_print(kLogInfo, "       %d: arg%zu:[%s]\n", number, i - line.first_arg, word.c_str());
    }
}

// What the command was given, but for values, which the entry has anyway.
std::string text_for_history(const Line &line, const CommandRecord &record)
{
    std::string text;
    bool secret = false;
    for (std::size_t i = 0; !record.assigns && i < std::min(line.argv.size(), record.secret_from); ++i)
        text += (i ? " " : "") + for_log(line.argv[i], record.assigns, secret);
    return cut(text, kMaxValueBytes);
}

} // namespace

int cmd_parse(unsigned mask, std::string_view text, std::FILE *out, WaitHooks *hooks, const Caller &caller)
{
    const int number = cmdcounter++;
    text = text.substr(0, text.find('\0'));
    if (text.empty() || text.front() == '\r' || text.front() == '\n' || text.front() == '#')
        return 1;
    ThreadLine words(text);
    Line &line = words.get();
    if (!split_line(text, line))
        return 0;
    const auto watch =
        timing_is_on() && qv_log_wants(kLogInfo) ? std::optional<Stopwatch>(std::in_place) : std::nullopt;
    const CommandLock lock(hooks);
    if (!lock.held())
        return 1;
    const std::size_t row = cmd_find_row(line.command);
    const CommandRecord &record = *cmd_map()[row].record;
    const CommandTimer timer(command_times()[row]);
    log_line(number, line, record);
    if (caller.stranger && !record.open_to_strangers) {
        reply_line(out, API_E_INVALID_PERMISSION);
        return 1;
    }
    std::optional<ChangeNotes> notes;
    if (record.recorded)
        notes.emplace(*record.recorded);
    const std::string text_of_change = notes ? text_for_history(line, record) : std::string();
    Request request(mask, caller, notes ? &*notes : nullptr);
    if (&record == cmd_map().front().record)
        qv_log_print(kLogError, "Invalid command: %s\n", command_for_log(line).c_str());
    const int result = record.handler(request, line.argv, out);
    if (notes)
        add_to_history(request, record.name, text_of_change, result, out);
    if (watch)
        qv_log_print(kLogInfo, "       %d: tot: [%s] [%lu.%03lus]\n", number, command_for_log(line).c_str(),
                     watch->seconds(), watch->milliseconds());
    return result;
}

} // namespace qvcd
