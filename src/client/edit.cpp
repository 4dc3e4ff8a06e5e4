#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "client/advice.h"
#include "client/edit_text.h"
#include "client/editor.h"
#include "client/errors.h"
#include "client/local_commands.h"
#include "client/local_file.h"
#include "client/private_file.h"
#include "client/reply.h"
#include "client/signal_input.h"
#include "client/terminal_text.h"
#include "client/type_words.h"
#include "platform/fd.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

// A program in the editor's place may add to the text each time that it is asked again.
constexpr std::size_t kMostTextBytes = std::size_t{4} << 20;

[[noreturn]] void throw_system(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// A file of our own, for nobody else to read, that goes when it is not needed any more.
class PrivateText {
  public:
    PrivateText()
    {
        path_ = folder() + "/qvc-edit-XXXXXX";
        const Fd file(::mkostemp(path_.data(), O_CLOEXEC)); // mode 0600
        if (!file)
            throw_system("cannot make " + path_);
    }
    ~PrivateText() { ::unlink(path_.c_str()); }
    PrivateText(const PrivateText &) = delete;
    PrivateText &operator=(const PrivateText &) = delete;
    const std::string &path() const { return path_; }

    void write(const std::string &text) const
    {
        std::FILE *file = std::fopen(path_.c_str(), "we");
        if (!file)
            throw_system("cannot write " + path_);
        const bool is_whole = std::fwrite(text.data(), 1, text.size(), file) == text.size();
        if (std::fclose(file) != 0 || !is_whole)
            throw_system("cannot write " + path_);
    }

  private:
    // What a killed qvc leaves goes when the user logs out, where there is a place for that.
    static std::string folder()
    {
        if (const std::string ours = runtime_folder(); make_private_folder(ours))
            return ours;
        const char *given = std::getenv("TMPDIR");
        return given && *given != '\0' ? given : "/tmp";
    }

    std::string path_;
};

// An interrupt ends a request, and the file goes.
class Interruptible {
  public:
    Interruptible()
    {
        struct sigaction action {};
        action.sa_handler = [](int) { interrupt_request(); };
        sigaction(SIGINT, &action, &before_);
    }
    ~Interruptible() { sigaction(SIGINT, &before_, nullptr); }
    Interruptible(const Interruptible &) = delete;
    Interruptible &operator=(const Interruptible &) = delete;

  private:
    struct sigaction before_ {};
};

// Why it is refused; empty: it is set.
std::string set_one(const Options &options, const std::string &name, const std::string &value)
{
    std::string line;
    try {
        const int result = ask(options.endpoint, options.session, {command_line({"set", name + "=" + value})},
                               options.limits("set"), [&](std::string_view reply) { line = reply; });
        if (result == 0) {
            print_line(line);
            return {};
        }
    } catch (const UsageError &error) {
        return error.what();
    }
    std::string why(parse_reply_line(line).error.value_or("no right to set it"));
    const std::string allowed = allowed_values(options, name);
    return allowed.empty() ? why : why + "; " + sentence_on("it", allowed);
}

// Sets what can be set; what cannot is in `refusals`, and stays in `edited.values`. False when the daemon is
// lost: what was typed is not.
bool set_all(const Options &options, std::vector<Setting> &settings, Edited &edited)
{
    std::string lost;
    for (const std::string &name : edited.order) {
        const std::string value = edited.values[name];
        std::string why = lost;
        try {
            if (lost.empty())
                why = set_one(options, name, value);
        } catch (const Interrupted &) {
            throw;
        } catch (const WireError &error) {
            why = lost = error.what();
        }
        if (!why.empty()) {
            edited.refusals[name] = why;
            continue;
        }
        edited.values.erase(name);
        for (Setting &setting : settings) {
            if (setting.name == name)
                setting.value = value;
        }
    }
    return lost.empty();
}

int edit(const Options &options, std::vector<Setting> settings)
{
    const Interruptible interruptible;
    SignalInput signals{SIGTERM, SIGHUP};
    const PrivateText file;
    Edited edited;
    bool is_lost = false;
    for (;;) {
        const std::string text = edit_text(settings, edited.values, edited.refusals);
        file.write(text);
        run_editor(file.path(), signals);
        const std::string changed = read_local_file(file.path(), kMostTextBytes);
        const bool gives_up = changed.find_first_not_of(" \t\r\n") == std::string::npos ||
                              (changed == text && !edited.refusals.empty());
        if (gives_up && !edited.refusals.empty()) {
            for (const auto &[name, why] : edited.refusals)
                std::fprintf(stderr, "qvc: %s is not changed: %s\n", name.c_str(), for_errors(why).c_str());
            return is_lost ? kExitNoDaemon : 1;
        }
        if (gives_up)
            return 1;
        edited = read_edited(changed, settings);
        is_lost = !set_all(options, settings, edited);
        if (edited.refusals.empty())
            return 0;
    }
}

} // namespace

int run_edit(const Options &options, const Words &words)
{
    if (words.size() < 2)
        throw UsageError("edit needs a name");
    if (options.json)
        throw UsageError("edit is for people, and has no JSON");
    Settings settings = fetch_settings(options, {words.begin() + 1, words.end()});
    for (const std::string &line : settings.refused)
        print_line(line);
    if (settings.result != 0 || settings.list.empty()) {
        advise(options, {"get"}, settings.refused, settings.list.empty() && settings.refused.empty(),
               settings.result);
        return settings.result == 0 ? 1 : exit_status(settings.result);
    }
    return edit(options, std::move(settings.list));
}

} // namespace qvcd::client
