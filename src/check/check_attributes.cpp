// Attributes, each for itself. What many APIs inherit is reported once, where it stands.

#include "base/limits.h"
#include "base/lookup.h"
#include "base/shell.h"
#include "base/text.h"
#include "check/check_type.h"
#include "check/nearest.h"
#include "check/report.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "store/attributes.h"

#include <algorithm>
#include <set>
#include <sys/stat.h>

namespace qvcd {

namespace {

// One attribute of one node.
struct Attribute {
    Report &report;
    const ModelNode &owner;
    Node node;
    std::string_view name;
    std::string text; // as in the first copy of a template; not empty

    void add(Kind kind, std::string what) const { report.add(kind, node, owner.name(), std::move(what)); }
};

std::string unknown(std::string_view what, std::string_view word, const std::vector<std::string_view> &words)
{
    return std::string(what) + " " + quote(word) + suggestion(word, words);
}

void check_switch(const Attribute &at)
{
    if (at.text != "true" && at.text != "false")
        at.add(Kind::bad_switch, std::string(at.name) + " is " + quote(at.text) + ", neither true nor false");
}

void check_perm(const Attribute &at)
{
    const bool good = at.text.size() <= 4 && at.text.find_first_not_of("01234567") == std::string::npos;
    if (!good)
        return at.add(Kind::bad_perm,
                      "perm is " + quote(at.text) + ", not one digit from 0 to 7 for each level");
    const unsigned perm = c_hex16(at.text);
    if (perm == 0)
        at.add(Kind::nobody, "perm is " + at.text + ": nobody may do anything");
    if (perm & kWriteBits & 0x000f)
        at.add(Kind::everybody_sets, "perm is " + at.text + ": those who only look on may set it");
}

void check_timeout(const Attribute &at)
{
    if (!shell_time_of(at.text) || at.text.find_first_not_of("0123456789") != std::string::npos)
        at.add(Kind::bad_timeout, "timeout is " + quote(at.text) + ", not a number of seconds from 1");
}

void check_type_text(const Attribute &at)
{
    const bool is_source = at.owner.own("introspect") == "quality";
    for (const auto &[kind, what] : type_mistakes(at.text, is_source))
        at.add(kind, what);
}

void check_introspect(const Attribute &at)
{
    const std::vector<std::string_view> words = described_types();
    bool describes = false;
    for (const TypeWords &alternative : parse_type(at.text))
        describes |= std::ranges::find(words, alternative.front()) != words.end();
    const std::string first = parse_type(at.text).front().front();
    if (!describes && !find_row(type_rows(), first))
        at.add(Kind::unknown_description, unknown("no description", first, words));
}

void check_read(const Attribute &at)
{
    if (at.text == "undefined" || !find_row(read_rows(), at.text))
        at.add(Kind::unknown_reader, unknown("no read function", at.text, row_names(read_rows())));
}

void check_write(const Attribute &at)
{
    if (at.text == "undefined" || !find_row(write_rows(), at.text))
        at.add(Kind::unknown_writer, unknown("no write function", at.text, row_names(write_rows())));
}

bool is_folder_path(const std::string &path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string &path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

void check_script(const Attribute &at, const std::string &path)
{
    if (at.report.options().root && !exists(*at.report.options().root + path))
        at.add(Kind::no_script, "there is no " + path);
}

void check_command(const Attribute &at, const std::string &program)
{
    constexpr std::string_view kRoot = "$QV_SYSROOT";
    if (program.starts_with(kRoot))
        check_script(at, program.substr(kRoot.size()));
    else if (program.starts_with('/'))
        at.add(Kind::outside_root, quote(program) + " is not below $QV_SYSROOT");
}

void check_call(const Attribute &at, const std::vector<std::string> &words)
{
    const std::vector<ApplySyntax> rows = apply_syntax();
    const std::string &name = words.front();
    const ApplySyntax *row = name == "undefined" ? nullptr : find_row(rows, name);
    if (!row)
        return at.add(Kind::unknown_action, unknown("no apply function", name, row_names(rows)));
    const std::size_t count = words.size() - 1;
    if (count < row->least || count > row->most) {
        const std::string wanted = row->least == row->most
                                       ? std::to_string(row->least)
                                       : std::to_string(row->least) + " to " + std::to_string(row->most);
        return at.add(Kind::action_arguments,
                      name + " takes " + wanted + " argument(s) and has " + std::to_string(count));
    }
    if (name == "profile_apply" && words[1] != "current")
        return at.add(Kind::action_arguments, name + " knows \"current\" only, not " + quote(words[1]));
    if (name == "syscall_delay" && parse_int64(words[1]).value_or(-1) < 0)
        return at.add(Kind::action_arguments, name + " begins with seconds, not with " + quote(words[1]));
    if (std::ranges::any_of(words, [](const auto &word) { return word.find_first_of("\"'") != word.npos; }))
        return at.add(Kind::action_arguments,
                      "quotes keep no words together here: put the command into a script");
    if (name == "initd_restart")
        std::ranges::for_each(words.begin() + 1, words.end(),
                              [&](const auto &word) { check_script(at, "/etc/init.d/" + word); });
    else if (name.starts_with("syscall"))
        check_command(at, words[row->least]);
}

void check_apply(const Attribute &at)
{
    for (const std::string &part : split_words(at.text, ",")) {
        const std::vector<std::string> words = split_words(part, kListSeparators);
        if (!words.empty())
            check_call(at, words);
    }
}

void check_add(const Attribute &at)
{
    constexpr std::size_t kMostGroups = 15;
    const std::vector<std::string> words = split_words(at.text, kListSeparators);
    const std::vector<std::string_view> known = add_functions();
    const std::string name = words.empty() ? "" : words.front();
    if (name == "undefined" || std::ranges::find(known, name) == known.end())
        return at.add(Kind::unknown_member_function, unknown("no add function", name, known));
    if (words.size() < 2 || words.size() > kMostGroups + 1)
        at.add(Kind::member_arguments,
               name + " takes 1 to 15 groups and has " + std::to_string(words.size() - 1));
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (!find_in_model(at.report.root(), words[i]))
            at.add(Kind::member_arguments, "there is no group or API " + quote(words[i]));
    }
}

void check_remove(const Attribute &at)
{
    const std::vector<std::string_view> known = remove_functions();
    const std::vector<std::string> words = split_words(at.text, kListSeparators);
    if (words.size() > 1 && std::ranges::find(known, words.front()) != known.end())
        at.add(Kind::member_arguments, words.front() + " takes no arguments: with them it is not found");
    else if (at.text == "undefined" || std::ranges::find(known, at.text) == known.end())
        at.add(Kind::unknown_member_function, unknown("no remove function", at.text, known));
}

void check_shadow(const Attribute &at)
{
    if (!at.text.starts_with('/'))
        at.add(Kind::bad_path, "shadow is " + quote(at.text) + ", not an absolute path");
    else if (at.report.options().root &&
             !is_folder_path(*at.report.options().root + at.text.substr(0, at.text.rfind('/') + 1)))
        at.add(Kind::no_folder, "the folder of " + at.text + " does not exist");
}

struct AttributeCheck {
    std::string_view name;
    void (*check)(const Attribute &at);
};

constexpr AttributeCheck kChecks[] = {
    {"type", check_type_text}, {"perm", check_perm},     {"dynamic", check_switch},
    {"private", check_switch}, {"read", check_read},     {"write", check_write},
    {"apply", check_apply},    {"apply2", check_apply},  {"timeout", check_timeout},
    {"add", check_add},        {"remove", check_remove}, {"introspect", check_introspect},
    {"shadow", check_shadow},
};

void check_place(const Attribute &at, const AttributeRow &row)
{
    if (row.counts == Counts::daemon)
        at.add(Kind::daemon_attribute, "the daemon writes " + quote(at.name) + " itself");
    const bool is_text = at.name == "help" || at.name == "desc"; // pages show those of groups too
    if (row.counts == Counts::own && !is_text && !at.owner.is_api())
        at.add(Kind::misplaced_attribute, quote(at.name) + " counts on an API only, and this is a group");
}

void check_attribute(const Attribute &at)
{
    const AttributeRow *row = find_row(attribute_rows(), at.name);
    if (!row)
        return at.add(Kind::unknown_attribute, unknown("no attribute", at.name, row_names(attribute_rows())));
    check_place(at, *row);
    if (at.text.size() > kMaxValueBytes || !is_one_line(at.text))
        return at.add(Kind::bad_value,
                      quote(at.name) + (is_one_line(at.text) ? " is longer than 1023 bytes"
                                        : at.text.find('\n') == std::string::npos ? " has control characters"
                                                                                  : " has several lines"));
    const AttributeCheck *found = find_row(kChecks, at.name);
    if (found && !at.text.empty())
        found->check(at);
}

} // namespace

void check_outside_groups(Report &report)
{
    for (const Node child : report.root()) {
        if (!child.first_child() && child.value())
            report.add(Kind::misplaced_attribute, child, "",
                       quote(child.name()) + " stands in no group: it counts for nothing");
    }
}

void check_attributes(Report &report, const ModelNode &node)
{
    for (const Node child : node.node()) {
        if (!child.first_child() && child.value())
            check_attribute({report, node, child, child.name(), node.in_first_copy(child.text())});
    }
}

} // namespace qvcd
