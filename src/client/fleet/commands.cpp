#include "client/fleet/commands.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "client/errors.h"
#include "client/fleet/progress.h"
#include "client/local_file.h"
#include "client/nested_text.h"
#include "client/terminal_text.h"
#include "platform/crypto.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"

namespace qvcd::client::fleet {

namespace {

constexpr std::size_t kNamesOfLine = 90;
constexpr std::size_t kMostBytes = std::size_t{4} << 20;

int hex_digit(char c)
{
    const std::size_t at = std::string_view("0123456789abcdefABCDEF").find(c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at < 16 ? at : at - 6);
}

std::string unescaped(const std::string &text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_digit(text[i + 2]) : -1;
        plain += low >= 0 ? static_cast<char>(high * 16 + low) : text[i] == '+' ? ' ' : text[i];
        i += low >= 0 ? 2 : 0;
    }
    return plain;
}

void flatten(const Json &object, const std::string &front, Values &values)
{
    for (const auto &[name, value] : object.items()) {
        if (value.is_object())
            flatten(value, front + name + ".", values);
        else if (value.is_string())
            values[front + name] = unescaped(value.get<std::string>());
    }
}

} // namespace

std::string problem_of(const Answer &answer)
{
    if (answer.how != Answer::How::answered)
        return answer.problem;
    for (const std::string &line : answer.lines) {
        if (parse_reply_line(line).error)
            return line;
    }
    return answer.result == 0 ? "" : "result " + std::to_string(answer.result);
}

void tell_problem(const std::string &id, const std::string &problem)
{
    std::fprintf(stderr, "qvc: %s: %s\n", one_line(id).c_str(), one_line(problem).c_str());
}

void print_json(const Json &json)
{
    std::printf("%s\n", for_output(json_line(json)).c_str());
}

bool ask_all(Task &task, const std::vector<std::string> &ids, const std::string &lines,
             const std::function<void(const std::string &, const Answer &)> &take)
{
    Progress progress;
    bool good = true;
    std::size_t done = 0;
    const auto began = std::chrono::steady_clock::now();
    auto next = ids.begin();
    std::function<void()> ask_next = [&] {
        if (next == ids.end())
            return;
        const std::string &id = *next++;
        const auto member = task.fleet.members().find(id);
        auto patience = task.patience;
        // Who is away has had the time since the beginning to come back.
        if (member == task.fleet.members().end() || !member->second.is_online())
            patience -= std::min(patience, std::chrono::duration_cast<std::chrono::seconds>(
                                               std::chrono::steady_clock::now() - began));
        task.fleet.ask(id, {.lines = lines, .patience = patience}, [&, id](const Answer &answer) {
            ++done;
            if (const std::string problem = problem_of(answer); !problem.empty()) {
                progress.clear();
                tell_problem(id, problem);
                good = false;
            }
            take(id, answer);
            ask_next();
        });
    };
    for (std::size_t i = 0; i < 2 * Fleet::kWindow; ++i)
        ask_next();
    task.fleet.work(
        [&] { progress.show(std::to_string(done) + " of " + std::to_string(ids.size()) + " answered"); });
    return good;
}

std::string get_lines(const std::vector<std::string> &names)
{
    std::string lines;
    for (std::size_t i = 0; i < names.size(); i += kNamesOfLine) {
        std::vector<std::string> words{"get"};
        for (std::size_t j = i; j < std::min(i + kNamesOfLine, names.size()); ++j)
            words.push_back(names[j]);
        lines += wire_line(words) + "\n";
    }
    return lines;
}

Values values_in(const Answer &answer)
{
    Values values;
    for (const std::string &line : answer.lines) {
        const ReplyLine parts = parse_reply_line(line);
        if (!parts.name.empty() && !parts.error)
            values[std::string(parts.name)] = parts.value;
    }
    return values;
}

std::optional<Values> exported_values(const std::vector<std::string> &lines)
{
    const std::optional<Json> tree = parse_nested(lines);
    if (!tree)
        return std::nullopt;
    Values values;
    flatten(*tree, "", values);
    return values;
}

Values golden_values(const std::string &file)
{
    std::istringstream text(read_local_file(file, kMostBytes));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    const std::optional<Values> values = exported_values(lines);
    if (!values || values->empty())
        throw UsageError(file + " is no export of settings");
    return *values;
}

} // namespace qvcd::client::fleet
