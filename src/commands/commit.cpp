#include "commands/commit.h"

#include "base/document.h"
#include "base/reply.h"
#include "base/value.h"
#include "commands/document.h"
#include "platform/api_errors.h"
#include "store/tree.h"

#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

int refuse(std::FILE *out)
{
    reply_line(out, API_E_INVALID_CMD_ARGS);
    return 1;
}

// What awaits confirmation, as key=value lines or JSON.
int print_unconfirmed(bool as_json, std::FILE *out)
{
    const std::optional<Unconfirmed> commit = unconfirmed_commit();
    Json json = Json::object();
    if (commit)
        json = {{"entry", commit->entry.number},  {"seconds", commit->left.count()},
                {"user", commit->entry.user},     {"source", commit->entry.source},
                {"client", commit->entry.client}, {"since", time_text(commit->entry.time)},
                {"text", commit->entry.text}};
    if (as_json) {
        reply_json(out, json);
        return 0;
    }
    reply_value(out, "Commit", commit ? std::to_string(commit->entry.number) : "none");
    json.erase("entry");
    for (const auto &[key, value] : json.items())
        reply_value(out, "Commit." + key, value.is_string() ? value.get<std::string>() : value.dump());
    return 0;
}

constexpr std::size_t kMostAssignments = 10'000; // of a document; the history keeps as many of an entry

// The lines of a document, as words that stood in the line.
Args assignments_in(const std::string &document)
{
    Args assignments;
    for (std::string_view rest = document; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        if (end > 0)
            assignments.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return assignments;
}

int command_commit(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "jnas", "cm");
    std::optional<CommitOrder> order = commit_order(options);
    if (!order)
        return refuse(out);
    if (options.has('s'))
        return print_unconfirmed(options.has('j'), out);
    order->assignments = argv;
    if (argv.size() == 1 && Document::is_meant_by(argv[0])) {
        Document *const document = request.caller.document;
        if (!document || !document->is_there()) {
            reply_line(out, kNoDocument);
            return 1;
        }
        order->assignments = assignments_in(document->take());
        if (order->assignments.empty() ||
            order->assignments.size() > kMostAssignments) // none are not "what waits"
            return refuse(out);
    }
    order->whose = options.has('a') ? Whose::everybodys : Whose::own;
    Report report;
    return carry_out(request, *order, report, options.has('j'), out);
}

// The number of the commit that is meant; 0: whichever awaits confirmation. Nothing for bad arguments.
std::optional<std::int64_t> number_of(const OptionWords &options, const Args &argv)
{
    if (!options.good() || argv.size() > 1)
        return std::nullopt;
    const auto number = argv.empty() ? std::optional<std::int64_t>(0) : parse_int64(argv.front());
    return number && *number >= 0 ? number : std::nullopt;
}

int command_confirm(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "j", "c");
    const auto number = number_of(options, argv);
    const auto more = confirm_time(options.value('c').value_or(""));
    if (!number || (options.has('c') && !more))
        return refuse(out);
    Report report;
    report.entry_name = "Confirm";
    return print_end(report, confirm_commit(request, *number, more, report), options.has('j'), out);
}

int command_abort(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "j", "");
    const auto number = number_of(options, argv);
    if (!number)
        return refuse(out);
    Report report;
    report.entry_name = "Rollback";
    return print_end(report, abort_commit(request, *number, report), options.has('j'), out);
}

} // namespace

std::optional<CommitOrder> commit_order(const OptionWords &options)
{
    const auto text = url_unescape(options.value('m').value_or(""));
    const auto confirm = confirm_time(options.value('c').value_or(""));
    if (!options.good() || (options.has('c') && !confirm) || !text || value_error(*text))
        return std::nullopt;
    return CommitOrder{.confirm = confirm, .text = *text, .wait = !options.has('n')};
}

int print_end(const Report &report, int result, bool as_json, std::FILE *out)
{
    report.print(as_json, out);
    return result;
}

int carry_out(Request &request, const CommitOrder &order, Report &report, bool as_json, std::FILE *out)
{
    // The values go out before an action cuts the caller off.
    const int result = commit(request, order, report, [&](Report &so_far) {
        if (as_json)
            return;
        so_far.print_text(out);
        so_far.values.clear();
        so_far.errors.clear();
    });
    return print_end(report, result, as_json, out);
}

const CommandRecord commitRecord = {
    .name = "commit",
    .handler = command_commit,
    .summary = "Set, save and apply as one",
    .synopsis = "commit [-j] [-n] [-a] [-c <seconds>] [-m <text>] [<API>=<value> ...]\n"
                "commit [-j] [-n] [-c <seconds>] [-m <text>] -\n"
                "commit [-j] -s",
    .errors =
        "<API>=<error>: the value is refused; nothing has changed.\n"
        "<API>=##Save failed#: its file cannot be written; nothing has changed.\n"
        "<API>=##Apply failed#: its action failed; everything is as it was before, and what ran already ran "
        "again with the old values. The lines \"apply:\" and \"undo:\" say which, and how they ended.\n"
        "Commit=##Another commit is running#: with -n, after ten minutes, or when too many wait for it.\n"
        "Commit=##Commit <number> awaits confirmation#: confirm or abort that one first.\n"
        "The result is 1 after each of them.",
    .description =
        "Gives APIs new values, saves them in their files and runs their actions: all of it or nothing, also "
        "when the daemon or the appliance ends in the middle. Without values it takes the caller's own "
        "changes "
        "that are not saved or not applied; with -a everybody's. Values are URL-escaped, as is the text of "
        "-m, "
        "which is for the history. With -c everything is undone after so many seconds (up to a day) "
        "unless the confirm command comes before; it is undone too when the daemon ends before. -s says what "
        "awaits confirmation. The reply ends with the number of the history's entry, Commit=<number>. A "
        "commit "
        "that is running is waited for; with -n it is not. \"-\" takes the assignments of the document that "
        "came "
        "with the command, one a line, at most 10,000. -j gives one line of JSON. An action must not "
        "commit.",
    .assigns = true,
    .recorded = ChangeNotes::Level::all,
};

const CommandRecord confirmRecord = {
    .name = "confirm",
    .handler = command_confirm,
    .summary = "Keep what was committed",
    .synopsis = "confirm [-j] [-c <seconds>] [<number>]",
    .errors = "Commit=##Nothing awaits confirmation#: nor does the commit of this number.\n"
              "Commit=##Invalid permission#: the caller may not write what it wrote.",
    .description = "Keeps the commit that awaits confirmation, whoever made it, or only the one of this "
                   "number. With -c it "
                   "has so many seconds from now on instead.",
};

const CommandRecord abortRecord = {
    .name = "abort",
    .handler = command_abort,
    .summary = "Undo what awaits confirmation",
    .synopsis = "abort [-j] [<number>]",
    .errors = "Commit=##Nothing awaits confirmation#: nor does the commit of this number.\n"
              "Commit=##Invalid permission#: the caller may not write what it wrote.\n"
              "Commit=##Can not undo: ...#: a file cannot be written; it is tried again every few seconds.",
    .description = "Undoes the commit that awaits confirmation now, as if its time was over.",
};

} // namespace qvcd
