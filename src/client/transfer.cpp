#include "client/transfer.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "client/answer.h"
#include "client/command_shapes.h"
#include "client/errors.h"
#include "client/local_file.h"
#include "client/reply.h"
#include "client/terminal_text.h"
#include "client/transfer_progress.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostBytes = std::size_t{4} << 20; // what the daemon takes
constexpr char kFileHere[] = "-l";

enum class Kind { settings, presets, profile, users };

struct Row {
    std::string_view command;
    bool imports;
    Kind kind;
    std::size_t file_at; // the word that may name a file
};
constexpr Row kRows[] = {
    {"export", false, Kind::settings, 1},        {"import", true, Kind::settings, 1},
    {"preset.export", false, Kind::presets, 1},  {"preset.import", true, Kind::presets, 1},
    {"profile.export", false, Kind::profile, 2}, {"profile.import", true, Kind::profile, 2},
    {"user.export", false, Kind::users, 1},      {"user.import", true, Kind::users, 1},
};

const Row *row_of(const Words &words)
{
    const auto *row = std::ranges::find(kRows, words.at(0), &Row::command);
    return row == std::end(kRows) ? nullptr : row;
}

bool is_mode(const std::string &word)
{
    return word.size() == 1 && word[0] >= '0' && word[0] <= '3';
}

bool is_there(const std::string &word)
{
    return word.find('/') != std::string::npos || word == "stdout";
}

// A file or a pipe: not a terminal, and not /dev/null, which is what services have.
bool is_piped(int fd)
{
    struct stat st {};
    return fstat(fd, &st) == 0 && (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode));
}

[[noreturn]] void refuse_name(const std::string &command, const std::string &name)
{
    throw UsageError("'" + name + "' is no path of the daemon's machine; for a file of this one say: " +
                     command + " -l " + name);
}

// Where a file's name can stand; a mode alone may stand there too.
Words::iterator file_word(const Row &row, Words &words)
{
    return words.begin() + static_cast<std::ptrdiff_t>(std::min(row.file_at, words.size()));
}

// "-" where the daemon looks for a file's name, and the mode before names.
void insert_stream(const Row &row, Words &words)
{
    const auto at = file_word(row, words);
    const bool names_follow =
        row.kind == Kind::settings && !row.imports && at != words.end() && !is_mode(*at);
    const Words stream = names_follow ? Words{"-", "0"} : Words{"-"};
    words.insert(at, stream.begin(), stream.end());
}

// True for a command without a file's name. The daemon then takes, or gives, something too: what that was
// stays for who has no pipe there, and for lists of users.
bool lacks_file(const Row &row, Words &words, bool piped)
{
    const auto at = file_word(row, words);
    if (row.kind == Kind::settings && !row.imports && at != words.end())
        return *at != "-" && !is_there(*at);
    const bool is_missing = at == words.end() || (row.kind == Kind::settings && is_mode(*at));
    return is_missing && piped && (row.imports || row.kind != Kind::users);
}

// The file behind the command is the daemon's, and so has a slash.
void take_words(const Row &row, Transfer &transfer, bool piped)
{
    Words &words = transfer.words;
    if (words.size() < row.file_at)
        return;
    if (lacks_file(row, words, piped))
        insert_stream(row, words);
    const auto at = file_word(row, words);
    if (at == words.end() || is_there(*at))
        return;
    if (*at != "-")
        refuse_name(words[0], *at);
    transfer.way = row.imports ? Transfer::Way::here_to_daemon : Transfer::Way::daemon_to_here;
}

void say_files(const std::string &command)
{
    std::fprintf(stderr, "qvc: for a file of this machine say: %s -l FILE%s\n", command.c_str(),
                 command == "import" ? "; without one the daemon reads its own /tmp/user_settings.hdf" : "");
}

// ---- The exchange ----

int exchange_shown(const Options &options, const Transfer &transfer, std::optional<std::string> document,
                   const LineSink &sink)
{
    const TimeLimits limits = options.limits("apply");
    TransferProgress progress;
    Watcher watcher{.show = [&](const Progress &p) { progress.show(p.sent, p.all, p.received); }};
    if (!options.timeout) // a slow line is none that is dead
        watcher.patience = limits.whole;
    return exchange(
        options.endpoint, options.session, {command_line(transfer.words) + "\n", std::move(document)}, limits,
        [&](std::string_view line) {
            progress.clear();
            sink(line);
        },
        watcher);
}

int send_document(const Options &options, const Transfer &transfer)
{
    std::string document = read_local_file(transfer.file, kMostBytes);
    if (document.find_first_not_of(" \t\r\n") == std::string::npos)
        throw UsageError((transfer.file == "-" ? "standard input" : transfer.file) + " is empty");
    bool failed = false;
    Answer answer(options, transfer.words);
    const int result = exchange_shown(options, transfer, std::move(document), [&](std::string_view line) {
        failed |= line.starts_with("##");
        if (options.json)
            answer.take(line);
        else
            print_line(line);
    });
    if (options.json)
        answer.end(result);
    return failed && result == 0 ? 1 : exit_status(result); // some commands close with 0 whatever happens
}

// Lines that are no part of a document: no document has one that begins so, and in those of settings every
// "#" of a value is escaped.
bool is_error(std::string_view line, bool escaped)
{
    return line.starts_with("##") || (escaped && line.find("=##") != std::string_view::npos);
}

int fetch_document(const Options &options, const Transfer &transfer)
{
    const bool escaped = transfer.words[0] == "export" || transfer.words[0] == "profile.export";
    std::string document;
    bool failed = false;
    const int result = exchange_shown(options, transfer, std::nullopt, [&](std::string_view line) {
        if (is_error(line, escaped)) {
            failed = true;
            std::fprintf(stderr, "qvc: %s\n", for_errors(line).c_str());
        } else {
            document.append(line) += '\n';
        }
    });
    if (options.json)
        Answer(options, transfer.words).end(result);
    if (!document.empty())
        write_local_file(transfer.file, document);
    else if (!failed)
        std::fprintf(stderr, "qvc: there is nothing to export\n");
    return result == 0 && (failed || document.empty()) ? 1 : exit_status(result);
}

} // namespace

Transfer read_transfer(Words words, bool piped)
{
    Transfer transfer{with_subcommand(std::move(words)), Transfer::Way::none, "-"};
    const Row *const row = row_of(transfer.words);
    if (!row)
        return transfer;
    const auto option = std::ranges::find(transfer.words, kFileHere);
    if (option != transfer.words.end()) {
        if (option + 1 == transfer.words.end())
            throw UsageError("-l needs a file");
        transfer.file = *(option + 1);
        transfer.words.erase(option, option + 2);
        insert_stream(*row, transfer.words);
    }
    take_words(*row, transfer, piped);
    return transfer;
}

int run_transfer(const Options &options, const Words &words)
{
    const Words dotted = with_subcommand(words);
    const Row *const row = row_of(dotted);
    const Transfer transfer =
        read_transfer(words, row && is_piped(row->imports ? STDIN_FILENO : STDOUT_FILENO));
    switch (transfer.way) {
    case Transfer::Way::here_to_daemon:
        if (transfer.file == "-" && isatty(STDIN_FILENO))
            throw UsageError("standard input is a terminal; say: " + transfer.words[0] + " -l FILE");
        return send_document(options, transfer);
    case Transfer::Way::daemon_to_here:
        if (!options.json || transfer.file != "-")
            return fetch_document(options, transfer);
        break; // the document is in the answer
    case Transfer::Way::none:
        break;
    }
    Answer answer(options, transfer.words);
    bool failed = false;
    const int result = ask(options.endpoint, options.session, {command_line(transfer.words)},
                           options.limits("apply"), [&](std::string_view line) {
                               failed |= line.starts_with("##");
                               answer.take(line);
                           });
    const int status = answer.end(result);
    if (failed && row && row->imports && transfer.words.size() <= row->file_at && !options.json)
        say_files(transfer.words[0]);
    return status;
}

} // namespace qvcd::client
