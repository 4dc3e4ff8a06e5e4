#include "base/text.h"
#include "check/check.h"
#include "funcs/check_map.h"
#include "qvmeta/commands.h"
#include "qvmeta/print.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <optional>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qvcd {

namespace {

using Answers = std::vector<std::pair<std::string, std::string>>; // attributes and their values

constexpr std::string_view kRangeName = "range";

bool is_template(std::string_view name)
{
    return name.find("__") != std::string_view::npos;
}

std::string value_of(const Answers &answers, std::string_view attribute)
{
    for (const auto &[name, value] : answers) {
        if (name == attribute)
            return value;
    }
    return "";
}

// The API as metadata, and the line of each attribute.
class Skeleton {
  public:
    Skeleton(const std::string &name, const Answers &answers)
    {
        const std::vector<std::string> groups = split_words(name, ".");
        const bool has_range = !answers.empty() && answers.front().first == kRangeName;
        for (std::size_t level = 0; level < groups.size(); ++level) {
            line(level, groups[level] + " {");
            if (has_range && last_ == 0 && is_template(groups[level]))
                attribute(level + 1, answers.front());
        }
        for (const auto &answer : answers) {
            if (answer.first != kRangeName)
                attribute(groups.size(), answer);
        }
        for (std::size_t level = groups.size(); level-- > 0;)
            line(level, "}");
    }

    const std::string &text() const { return text_; }
    std::size_t last_attribute() const { return last_; }

  private:
    void attribute(std::size_t level, const Answers::value_type &answer)
    {
        line(level, answer.first + " =" + (answer.second.empty() ? "" : " " + answer.second));
        last_ = lines_;
    }

    void line(std::size_t level, const std::string &what)
    {
        text_.append(4 * level, ' ').append(what).append("\n");
        ++lines_;
    }

    std::string text_;
    std::size_t lines_ = 0;
    std::size_t last_ = 0;
};

std::vector<Finding> findings_of(const std::string &text)
{
    Source source;
    source.load_text("new", text);
    return check_model(source);
}

// Why the last answer is no good; empty: it is.
std::string mistake_in_last(const std::string &name, const Answers &answers)
{
    const Skeleton skeleton(name, answers);
    for (const Finding &one : findings_of(skeleton.text())) {
        const bool is_error = row_of(one.kind).severity == Severity::error;
        if (is_error && one.line == skeleton.last_attribute())
            return one.what;
    }
    return "";
}

// Copies of a template need a key each.
std::string key_of(const std::string &name, const Answers &)
{
    const std::string last = name.substr(name.rfind('.') + 1); // npos + 1 is 0
    return is_template(name) && !is_template(last) ? last + "__d" : last;
}

std::string file_of(const std::string &name, const Answers &)
{
    std::string group = name.substr(0, name.find('.'));
    std::ranges::transform(group, group.begin(), [](unsigned char c) { return std::tolower(c); });
    return is_template(group) ? "" : "/etc/" + group + ".conf";
}

// A value that the type takes.
std::string first_value(const std::string &, const Answers &answers)
{
    const TypeWords words = parse_type(value_of(answers, "type")).front();
    if (words.front() == "boolean")
        return "0";
    return words.size() > 1 && words.front() != "string_length" && words.front() != "password" ? words[1]
                                                                                               : "";
}

bool is_status(const Answers &answers)
{
    return value_of(answers, "dynamic") == "true";
}

template <const char *setting, const char *status>
std::string usual(const std::string &, const Answers &answers)
{
    return is_status(answers) ? status : setting;
}

std::string nothing(const std::string &, const Answers &)
{
    return "";
}

constexpr char kString[] = "blank,string";
constexpr char kFalse[] = "false";
constexpr char kSettingPerm[] = "7744";
constexpr char kStatusPerm[] = "4444";
constexpr char kRead[] = "kv_rfunc";
constexpr char kWrite[] = "kv_wfunc";
constexpr char kNoWrite[] = "no_wfunc";
constexpr char kRange[] = "1 4";

struct Question {
    const char *attribute;
    const char *text;
    std::string (*offer)(const std::string &name, const Answers &answers);
    bool is_left_out_when_empty;
    bool is_for_settings; // status has none
};

constexpr Question kQuestions[] = {
    {"range", "Numbers of the copies: first, last (a number or an API), step", usual<kRange, kRange>, true,
     false},
    {"help", "What is it, in one line", nothing, true, false},
    {"dynamic", "Is it a status, which is read and never kept (true, false)", usual<kFalse, kFalse>, true,
     false},
    {"type", "Type", usual<kString, kString>, true, false},
    {"default", "Default", first_value, false, true},
    {"perm", "Who may do what: maker, administrators, operators, everybody", usual<kSettingPerm, kStatusPerm>,
     false, false},
    {"file", "File", file_of, true, false},
    {"attr", "Key in the file", key_of, false, false},
    {"read", "Read function", usual<kRead, kRead>, false, false},
    {"write", "Write function", usual<kWrite, kNoWrite>, false, false},
    {"apply", "What makes it take effect", nothing, true, true},
};

bool is_asked(const Question &question, const std::string &name, const Answers &answers)
{
    if (question.attribute == kRangeName)
        return is_template(name);
    return !question.is_for_settings || !is_status(answers);
}

std::optional<std::string> ask(const Question &question, const std::string &offer)
{
    std::cerr << question.text << (offer.empty() ? "" : " [" + offer + "]") << ": " << std::flush;
    std::string line;
    if (!std::getline(std::cin, line))
        return std::nullopt;
    const std::size_t begin = std::min(line.find_first_not_of(" \t\r"), line.size());
    line = line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
    return line.empty() ? offer : line;
}

// Asks until the answer is good; a script has one try. False when there is none.
bool take_answer(const Question &question, const std::string &name, Answers &answers, bool is_person)
{
    while (true) {
        const auto answer = ask(question, question.offer(name, answers));
        if (!answer) {
            print_line(stderr, "qvmeta: no answer");
            return false;
        }
        if (answer->empty() && question.is_left_out_when_empty)
            return true;
        answers.emplace_back(question.attribute, *answer);
        const std::string mistake = mistake_in_last(name, answers);
        if (mistake.empty()) {
            if (answers.back() == std::pair<std::string, std::string>("dynamic", "false"))
                answers.pop_back(); // so it is without the attribute
            return true;
        }
        print_line(stderr, mistake);
        answers.pop_back();
        if (!is_person)
            return false;
    }
}

} // namespace

int new_command(Words words)
{
    if (words.size() != 1 || !is_tree_name(words[0]))
        return usage_error("new wants the name of an API: letters, digits, \"_\" and dots between groups");
    const std::string name = words[0];
    const bool is_person = isatty(STDIN_FILENO);
    Answers answers;
    for (const Question &question : kQuestions) {
        if (is_asked(question, name, answers) && !take_answer(question, name, answers, is_person))
            return 1;
    }
    const Skeleton skeleton(name, answers);
    std::cout << skeleton.text() << std::flush;
    const std::vector<Finding> findings = findings_of(skeleton.text());
    for (const Finding &one : findings)
        print_line(stderr, finding_line(one));
    return count_errors(findings) ? 1 : 0;
}

} // namespace qvcd
