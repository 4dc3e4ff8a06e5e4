#include "base/lookup.h"
#include "base/text.h"
#include "check/model_api.h"
#include "check/source.h"
#include "funcs/check_map.h"
#include "model/template.h"
#include "qvmeta/commands.h"
#include "qvmeta/print.h"
#include "store/former.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace qvcd {

namespace {

// What an upgrade sees of an API.
struct Facts {
    std::string type;
    std::optional<std::string> fallback;
    std::string file;
    std::string attr;
    std::string formats; // read and write functions
    unsigned perm = 0;
    bool is_setting = false; // users can have saved a value
    std::vector<Former> former;
};

struct Model {
    std::map<std::string, Facts> apis;
    std::map<std::string, std::string> ranges; // of templates
};

Model facts_of(const Source &source)
{
    Model model;
    visit_model(source.root(), [&](const ModelNode &node) {
        if (const auto range = node.node().get("range"); range && !range->empty())
            model.ranges[node.name()] = *range;
        if (!node.is_api())
            return;
        // As they are written: "__d" is the same in both models.
        const MetaApi meta(source.root(), node.name());
        const auto text = [&](const char *attribute) {
            return std::string(meta.get(attribute).value_or(""));
        };
        model.apis[node.name()] = {.type = text("type"),
                                   .fallback = own_copy(meta.own("default")),
                                   .file = text("file"),
                                   .attr = text("attr"),
                                   .formats = text("read") + " and " + text("write"),
                                   .perm = meta.perm(),
                                   .is_setting = !meta.is_true("dynamic") && (meta.perm() & kWriteBits),
                                   .former = parse_former(meta.own("was").value_or(""))};
    });
    return model;
}

// ---- Types ----

std::optional<std::pair<double, double>> bounds_of(const TypeWords &words)
{
    const CheckRow *row = find_row(type_rows(), words.front());
    const bool has_bounds =
        row && row->arguments != TypeArguments::none && row->arguments != TypeArguments::members;
    if (!has_bounds || words.size() != 3)
        return std::nullopt;
    return std::pair(std::strtod(words[1].c_str(), nullptr), std::strtod(words[2].c_str(), nullptr));
}

// What an argument allows that may be missing: all then.
bool allows(const TypeWords &by, const TypeWords &words, TypeArguments arguments)
{
    if (by.size() < 2)
        return true;
    if (words.size() < 2)
        return false;
    return arguments == TypeArguments::limit ? c_int64(by[1]) >= c_int64(words[1]) : by[1] == words[1];
}

// Whether every value that one alternative takes is taken by another, as far as their words tell.
bool is_covered(const TypeWords &by, const TypeWords &words)
{
    if (by == words)
        return true;
    if (by.front() == "string_ext")
        return words.front() == "string" || words.front() == "string_set" || words.front() == "string_length";
    if (by.front() == "string" && words.front().starts_with("string_") && words.front() != "string_ext")
        return true;
    if (by.front() != words.front())
        return false;
    const CheckRow *row = find_row(type_rows(), by.front());
    if (row && (row->arguments == TypeArguments::limit || row->arguments == TypeArguments::family))
        return allows(by, words, row->arguments);
    const auto outer = bounds_of(by);
    const auto inner = bounds_of(words);
    if (outer && inner)
        return outer->first <= inner->first && outer->second >= inner->second;
    return !outer && !inner && std::all_of(words.begin() + 1, words.end(), [&](const std::string &member) {
        return std::find(by.begin() + 1, by.end(), member) != by.end();
    });
}

// A value that was good may be refused now.
bool is_narrower(const std::string &before, const std::string &now)
{
    if (now.empty() || before == now)
        return false;
    if (before.empty())
        return true;
    const std::vector<TypeWords> allowed = parse_type(now);
    return !std::ranges::all_of(parse_type(before), [&](const TypeWords &words) {
        return std::ranges::any_of(allowed, [&](const TypeWords &by) { return is_covered(by, words); });
    });
}

// ---- Templates ----

// Of the copies; none when they depend on the appliance.
std::set<std::int64_t> numbers_of(const std::string &range)
{
    std::set<std::int64_t> numbers;
    const std::vector<std::string> words = split_words(range, " \t");
    const auto last = words.size() < 2 ? std::nullopt : parse_int64(words[1]);
    const std::int64_t step = words.size() < 3 ? 1 : std::max<std::int64_t>(c_int64(words[2]), 1);
    for (std::int64_t at = last ? c_int64(words[0]) : 1;
         at <= last.value_or(0) && numbers.size() < kMaxTemplateCopies; at += step)
        numbers.insert(at);
    return numbers;
}

// ---- What changes ----

class Comparison {
  public:
    Comparison(const Model &before, const Model &now) : before_(before), now_(now) {}

    // How many settings lose what users have saved, or may.
    int run()
    {
        for (const auto &[name, facts] : now_.apis) {
            for (const Former &former : facts.former)
                renamed_.emplace(former.name, name);
        }
        for (const auto &[name, old] : before_.apis) {
            if (const auto same = now_.apis.find(name); same != now_.apis.end())
                compare(name, old, same->second, nullptr);
            else if (const auto renamed = renamed_.find(name); renamed != renamed_.end())
                compare_renamed(name, old, renamed->second);
            else
                say(old.is_setting, name,
                    "gone" + std::string(old.is_setting ? ", with what users have saved" : ""));
        }
        for (const auto &[name, facts] : now_.apis) {
            const bool is_new =
                !before_.apis.contains(name) && std::ranges::none_of(facts.former, [&](const Former &one) {
                    return before_.apis.contains(one.name);
                });
            if (is_new)
                say(false, name, "new");
        }
        for (const auto &[name, range] : before_.ranges) {
            if (const auto found = now_.ranges.find(name); found != now_.ranges.end())
                compare_ranges(name, range, found->second);
        }
        return losses_;
    }

  private:
    void say(bool is_loss, const std::string &name, const std::string &what)
    {
        losses_ += is_loss;
        print_line(stdout, name + ": " + (is_loss ? "LOST: " : "") + what);
    }

    void compare_ranges(const std::string &name, const std::string &old, const std::string &now)
    {
        if (old == now)
            return;
        const std::set<std::int64_t> has = numbers_of(now);
        const auto is_gone = [&](std::int64_t number) { return !has.contains(number); };
        const bool loses = !has.empty() && std::ranges::any_of(numbers_of(old), is_gone);
        say(loses, name,
            std::string(loses ? "what users have saved in copies that are gone: " : "") + "range " +
                in_quotes(now) + ", was " + in_quotes(old));
    }

    void compare_renamed(const std::string &name, const Facts &old, const std::string &new_name)
    {
        const Facts &now = now_.apis.at(new_name);
        say(false, name, "renamed to " + new_name);
        const auto former = std::ranges::find(now.former, name, &Former::name);
        compare(new_name, old, now, &*former);
    }

    void compare(const std::string &name, const Facts &old, const Facts &now, const Former *former)
    {
        if (old.is_setting && !now.is_setting)
            say(true, name, "is no setting any more");
        if (old.is_setting && now.is_setting) {
            compare_places(name, old, now, former);
            if (old.formats != now.formats)
                say(false, name, "read and written by " + now.formats + ", was " + old.formats);
            if (is_narrower(old.type, now.type))
                say(true, name,
                    "values that the new type does not take get the default: type " + in_quotes(now.type) +
                        ", was " + in_quotes(old.type));
            else if (old.type != now.type)
                say(false, name, "type " + in_quotes(now.type) + ", was " + in_quotes(old.type));
        } else if (old.type != now.type) {
            say(false, name, "type " + in_quotes(now.type) + ", was " + in_quotes(old.type));
        }
        if (old.fallback != now.fallback)
            say(false, name, "default " + shown(now.fallback) + ", was " + shown(old.fallback));
        if (old.perm != now.perm)
            say(false, name, "perm " + hex(now.perm) + ", was " + hex(old.perm));
    }

    void compare_places(const std::string &name, const Facts &old, const Facts &now, const Former *former)
    {
        if (old.file == now.file && old.attr == now.attr)
            return;
        const std::string place =
            in_quotes(now.attr) + " of " + now.file + ", was " + in_quotes(old.attr) + " of " + old.file;
        const bool is_taken_over = former && (former->attr.empty() ? now.attr : former->attr) == old.attr &&
                                   (former->file.empty() ? now.file : former->file) == old.file;
        if (is_taken_over)
            return say(false, name, "the value is taken over: " + place);
        std::string hint = name + " " + old.attr + (old.file == now.file ? "" : " " + old.file);
        if (former)
            hint = former->name + hint.substr(name.size());
        say(true, name, "the value stays behind: " + place + "; write \"was = " + hint + "\"");
    }

    static std::string in_quotes(const std::string &text) { return "\"" + text + "\""; }
    static std::string shown(const std::optional<std::string> &text)
    {
        return text ? in_quotes(*text) : "none";
    }
    static std::string hex(unsigned perm)
    {
        char text[8];
        std::snprintf(text, sizeof text, "%04x", perm & 0xffff);
        return text;
    }

    const Model &before_;
    const Model &now_;
    std::map<std::string, std::string> renamed_; // old names, and the first API that claims each
    int losses_ = 0;
};

} // namespace

int diff_command(Words words)
{
    if (words.size() != 2 || words[0][0] == '-')
        return usage_error("diff wants two metadata files, the old one and the new one");
    Source before;
    Source now;
    if (!load_whole(before, words[0]) || !load_whole(now, words[1]))
        return 1;
    const Model old_model = facts_of(before);
    const Model new_model = facts_of(now);
    const int losses = Comparison(old_model, new_model).run();
    return losses ? 1 : 0;
}

} // namespace qvcd
