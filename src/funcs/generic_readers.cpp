#include "funcs/generic_readers.h"

#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "funcs/ntp.h"
#include "platform/ipc_client.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

namespace qvcd {

namespace {

constexpr std::size_t kMaxIpcAnswerBytes = 4096;
constexpr std::chrono::seconds kIpcPatience{10};
constexpr std::size_t kMaxShellCommandBytes = 255;

const char *or_null_text(const char *text)
{
    return text ? text : "(null)";
}

} // namespace

std::optional<std::string> undefined_rfunc(Request &, const char *file, const char *attr)
{
    qv_log_print(kLogDebug, "Undefined read function: src=%s attr=%s\n", or_null_text(file),
                 or_null_text(attr));
    return std::nullopt;
}

std::optional<std::string> na_rfunc(Request &, const char *, const char *)
{
    return "n/a";
}

std::optional<std::string> hidden_rfunc(Request &, const char *, const char *)
{
    return "******";
}

std::optional<std::string> password_rfunc(Request &request, const char *file, const char *attr)
{
    const bool stored = !quoted_rfunc(request, file, attr).value_or("").empty();
    return stored ? std::optional<std::string>("********") : std::nullopt;
}

std::optional<std::string> no_rfunc(Request &, const char *, const char *)
{
    return std::nullopt;
}

std::optional<std::string> zero_rfunc(Request &, const char *, const char *)
{
    return "0";
}

std::optional<std::string> model_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    MetaApi meta(attr);
    return meta.visible_to(request.mask) || !meta.is_secret() ? own_copy(hdfDB.get(attr)) : std::nullopt;
}

int &read_error(Request &request)
{
    struct ReadError {
        int number = 0;
    };
    return request.once<ReadError>([] { return ReadError{}; }).number;
}

namespace {

// The texts that a command has read. They hold for as long as it has not let go of the command lock: then no
// other command has written them, and the command sees one state of each file.
class KeptTexts {
  public:
    struct Text {
        FileText file;
        bool asked = false;
        std::optional<KvIndex> index; // from the second question on

        std::optional<std::string> value_of(std::string_view key);
    };

    KeptTexts() = default;
    KeptTexts(const KeptTexts &) = delete; // indexes point into the texts
    KeptTexts &operator=(const KeptTexts &) = delete;

    // Good until the next call.
    Text &text_of(const char *file);

  private:
    // Of all texts together, the last one excepted; and of one that gets an index, which is several times
    // larger.
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

    void forget();

    std::uint64_t turn_ = 0;
    std::size_t bytes_ = 0;
    std::unordered_map<std::string, Text> texts_;
};

std::optional<std::string> KeptTexts::Text::value_of(std::string_view key)
{
    if (!std::exchange(asked, true) || file.text.size() > kMostBytes)
        return kv_find(file.text, key);
    if (!index)
        index.emplace(file.text);
    return index->find(key);
}

void KeptTexts::forget()
{
    texts_.clear();
    bytes_ = 0;
}

KeptTexts::Text &KeptTexts::text_of(const char *file)
{
    const std::uint64_t now = command_lock_turns();
    if (std::exchange(turn_, now) != now || !command_lock_is_mine())
        forget();
    const std::string name(file);
    if (const auto known = texts_.find(name); known != texts_.end())
        return known->second;
    if (bytes_ > kMostBytes)
        forget();
    Text &text = texts_[name];
    text.file = read_whole_file(qv_sysroot_path(name));
    bytes_ += text.file.text.size() + name.size();
    return text;
}

// The text of the file, or null when there is none.
KeptTexts::Text *text_of(Request &request, const char *file)
{
    if (!file)
        return nullptr;
    const auto &kept = request.once<std::shared_ptr<KeptTexts>>([] { return std::make_shared<KeptTexts>(); });
    KeptTexts::Text &text = kept->text_of(file);
    if (text.file.error && !text.file.missing())
        read_error(request) = text.file.error;
    return text.file.error ? nullptr : &text;
}

} // namespace

std::optional<std::string> kv_rfunc(Request &request, const char *file, const char *attr)
{
    KeptTexts::Text *const text = text_of(request, file);
    return text ? text->value_of(attr ? attr : "") : std::nullopt;
}

std::optional<std::string> quoted_rfunc(Request &request, const char *file, const char *attr)
{
    auto value = kv_rfunc(request, file, attr);
    return value ? std::optional(kv_unquote(std::move(*value))) : std::nullopt;
}

std::optional<std::string> ntp_rfunc(Request &request, const char *file, const char *attr)
{
    const KeptTexts::Text *const text = text_of(request, file);
    return text ? ntp_find(text->file.text, attr ? attr : "") : std::nullopt;
}

namespace {

// Sends a message and an empty line to an IPC server, and collects the answer's lines up to the end mark "@",
// the end of the stream, or a limit; the last newline goes. "n/a" stands for a failed or empty exchange. The
// ends of lines are looked for byte by byte, so that a server that trickles does not outstay the time.
std::string ipc_answer(const char *server, const char *message)
{
    IpcClient client;
    const Unlocked unlocked;
    if (!server || qv_ipc_client_connect_single(server, client) < 0)
        return "n/a";
    std::fprintf(client.out, "%s\n\n", message);
    std::fflush(client.out);
    const auto end = std::chrono::steady_clock::now() + kIpcPatience;
    std::string reply;
    std::size_t line = 0; // where the last line begins
    while (reply.size() < kMaxIpcAnswerBytes && std::chrono::steady_clock::now() < end) {
        const int c = std::getc(client.in);
        if (c == EOF)
            break;
        reply += static_cast<char>(c);
        if (c != '\n')
            continue;
        if (reply.substr(line) == "@\n") {
            reply.resize(line);
            break;
        }
        line = reply.size();
    }
    qv_ipc_client_disconnect(client);
    if (reply.ends_with('\n'))
        reply.pop_back();
    return reply.empty() ? "n/a" : reply;
}

} // namespace

std::optional<std::string> ipc_rfunc(Request &, const char *file, const char *attr)
{
    return attr ? std::optional(ipc_answer(file, attr)) : std::nullopt;
}

std::optional<std::string> ipc_attr_rfunc(Request &, const char *file, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const std::vector<std::string> words = split_words(attr, " \t\r\n");
    const std::string answer = ipc_answer(file, attr);
    for (const std::string &line : split_words(answer, "\n")) {
        const std::size_t equals = line.find('=');
        if (words.size() > 1 && equals != std::string::npos && line.substr(0, equals) == words[1])
            return line.substr(equals + 1);
    }
    return "";
}

std::optional<std::string> syscall_rfunc(Request &, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const std::string command = cut(attr, kMaxShellCommandBytes);
    const auto printed = shell_capture(command, 4 * kMaxValueBytes);
    qv_log_print(kLogInfo, "Perform syscall: %s\n", command.c_str());
    const std::vector<std::string> words = split_words(printed.value_or(""), " \t\r\n\v\f");
    return words.empty() ? std::nullopt : std::optional(words.front());
}

} // namespace qvcd
