#include "funcs/generic_readers.h"

#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "platform/ipc_client.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"

#include <array>

namespace qvcd {

namespace {

constexpr std::size_t kMaxIpcAnswerBytes = 4096;
constexpr std::size_t kMaxIpcLineBytes = 4096; // with the terminator, as fgets(3) counts
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

std::optional<std::string> model_rfunc(Request &, const char *, const char *attr)
{
    const auto value = attr ? hdfDB.get(attr) : std::nullopt;
    return value ? std::optional<std::string>(*value) : std::nullopt;
}

std::optional<std::string> kv_rfunc(Request &, const char *file, const char *attr)
{
    return file ? kv_read(qv_sysroot_path(file), attr ? attr : "") : std::nullopt;
}

std::optional<std::string> quoted_rfunc(Request &, const char *file, const char *attr)
{
    return file ? quoted_kv_read(qv_sysroot_path(file), attr ? attr : "") : std::nullopt;
}

std::optional<std::string> eeprom_rfunc(Request &, const char *, const char *)
{
    return "n/a";
}

int send_ipc_msg(const std::string &server, const std::string &message, std::string &reply)
{
    const Unlocked unlocked;
    IpcClient client;
    if (qv_ipc_client_connect_single(server, client) < 0)
        return -2;
    reply.clear();
    std::fprintf(client.out, "%s\n\n", message.c_str());
    std::fflush(client.out);
    std::array<char, kMaxIpcLineBytes> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), client.in)) {
        const std::string_view text = line.data();
        if (text == "@\n")
            break;
        reply += text.substr(0, kMaxIpcAnswerBytes - std::min(reply.size(), kMaxIpcAnswerBytes));
    }
    qv_ipc_client_disconnect(client);
    return 0;
}

namespace {

// The whole answer; "n/a" stands for a failed or empty exchange.
std::string ipc_answer(const char *server, const char *message)
{
    std::string reply;
    if (!server || send_ipc_msg(server, cut(message, kMaxIpcLineBytes - 1), reply) != 0 || reply.empty())
        return "n/a";
    return cut(reply, kMaxValueBytes);
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
