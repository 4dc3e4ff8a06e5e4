#include "check/check_type.h"

#include "base/lookup.h"
#include "base/text.h"
#include "check/nearest.h"
#include "funcs/check_map.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace qvcd {

namespace {

using Mistakes = std::vector<std::pair<Kind, std::string>>;

std::optional<double> real(const std::string &text)
{
    char *end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return text.empty() || *end ? std::nullopt : std::optional(number);
}

// Two bounds, as `number` reads them.
void check_bounds(const TypeWords &words, bool may_be_missing, auto number, Mistakes &mistakes)
{
    const std::string &name = words.front();
    if (words.size() == 1 && may_be_missing)
        return;
    if (words.size() != 3) {
        mistakes.emplace_back(Kind::type_arguments, name + " takes a least and a most number and has " +
                                                        std::to_string(words.size() - 1) + " argument(s)");
        return;
    }
    for (std::size_t i = 1; i < 3; ++i) {
        if (!number(words[i])) {
            mistakes.emplace_back(Kind::type_arguments,
                                  "\"" + words[i] + "\" is no number for a bound of " + name);
            return;
        }
    }
    if (*number(words[1]) > *number(words[2]))
        mistakes.emplace_back(Kind::range_reversed, name + " " + words[1] + " " + words[2] +
                                                        ": the least number is more than the most");
}

void check_members(const CheckRow &row, const TypeWords &words, Mistakes &mistakes)
{
    if (words.size() < 2)
        mistakes.emplace_back(Kind::type_arguments, words.front() + " has no members: it takes no value");
    std::set<std::string_view> seen;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (row.check({}, std::span(words).subspan(1), words[i]))
            mistakes.emplace_back(Kind::bad_member,
                                  "\"" + words[i] + "\" is never taken as a member of " + words.front());
        if (!seen.insert(words[i]).second)
            mistakes.emplace_back(Kind::member_twice, "\"" + words[i] + "\" is a member twice");
    }
}

// One argument, or none.
void check_option(const TypeWords &words, const char *what, auto is_good, Mistakes &mistakes)
{
    if (words.size() > 2 || (words.size() == 2 && !is_good(words[1])))
        mistakes.emplace_back(Kind::type_arguments, words.front() + " takes " + what + ", or nothing");
}

void check_arguments(const CheckRow &row, const TypeWords &words, bool is_source, Mistakes &mistakes)
{
    switch (row.arguments) {
    case TypeArguments::none:
        if (words.size() > 1 && !is_source)
            mistakes.emplace_back(Kind::type_arguments, words.front() + " takes no arguments");
        break;
    case TypeArguments::members:
        check_members(row, words, mistakes);
        break;
    case TypeArguments::bounds:
        check_bounds(words, false, parse_int64, mistakes);
        break;
    case TypeArguments::lengths:
        check_bounds(words, true, parse_int64, mistakes);
        break;
    case TypeArguments::reals:
        check_bounds(words, false, real, mistakes);
        break;
    case TypeArguments::words:
        if (words.size() < 2)
            mistakes.emplace_back(Kind::type_arguments, words.front() + " has no words: it takes no value");
        break;
    case TypeArguments::limit:
        check_option(
            words, "a number above 0", [](const std::string &word) { return parse_int64(word) > 0; },
            mistakes);
        break;
    case TypeArguments::family:
        check_option(
            words, "4 or 6", [](const std::string &word) { return word == "4" || word == "6"; }, mistakes);
        break;
    }
}

const CheckRow *known_type(std::string_view name)
{
    return name == type_rows().front().name ? nullptr : find_row(type_rows(), name);
}

} // namespace

Mistakes type_mistakes(std::string_view type, bool is_source)
{
    Mistakes mistakes;
    for (const std::string &text : split_words(type, ",")) {
        if (split_words(text, kListSeparators).size() > kMaxTypeArgs + 1)
            mistakes.emplace_back(Kind::type_arguments, "more than " + std::to_string(kMaxTypeArgs) +
                                                            " arguments: the rest is ignored");
    }
    std::size_t number = 0;
    for (const TypeWords &words : parse_type(type)) {
        const std::string &name = words.front();
        if (const CheckRow *row = known_type(name))
            check_arguments(*row, words, is_source, mistakes);
        else
            mistakes.emplace_back(Kind::unknown_type,
                                  "no type \"" + name + "\"" + suggestion(name, row_names(type_rows())));
        if (name == "blank" && number++ > 0)
            mistakes.emplace_back(
                Kind::blank_behind,
                "write \"blank\" first: the last alternative says what is wrong with a value");
        else
            ++number;
    }
    return mistakes;
}

bool has_numbers(std::string_view type)
{
    return std::ranges::any_of(parse_type(type), [](const TypeWords &words) {
        const CheckRow *row = known_type(words.front());
        return row && row->takes == Takes::numbers;
    });
}

std::optional<std::string> type_refusal(std::string_view type, std::string_view api, std::string_view value)
{
    std::string error;
    for (const TypeWords &words : parse_type(type)) {
        const CheckRow *row = known_type(words.front());
        if (!row || row->check == check_profile || row->check == check_profile2)
            return std::nullopt;
        const char *why = row->check(api, std::span(words).subspan(1), value);
        if (!why)
            return std::nullopt;
        error = why;
    }
    return error;
}

} // namespace qvcd
