// To add a kind: a row here, a report() where it is found, a row in tests/unit/check_findings_test.cpp.

#include "check/finding.h"

#include "base/text.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr Severity kError = Severity::error;
constexpr Severity kWarning = Severity::warning;

constexpr KindRow kKinds[] = {
    {Kind::unreadable, "unreadable", kError, "a file that cannot be read"},
    {Kind::syntax, "syntax", kError, "a line that is none of the format's, text behind a brace"},
    {Kind::missing_brace, "missing-brace", kError, "a group without its closing brace"},
    {Kind::given_twice, "given-twice", kError, "the same attribute of the same node twice in one file"},
    {Kind::no_api_at_all, "no-api-at-all", kError, "files that define nothing"},
    {Kind::no_attr, "no-attr", kError, "what looks like an API, without \"attr\""},
    {Kind::empty_group, "empty-group", kWarning, "a group without an API"},
    {Kind::api_in_api, "api-in-api", kError, "an API below an API"},
    {Kind::unknown_attribute, "unknown-attribute", kError, "a misspelt attribute"},
    {Kind::misplaced_attribute, "misplaced-attribute", kWarning,
     "an attribute that counts for APIs only, on a group"},
    {Kind::daemon_attribute, "daemon-attribute", kWarning, "an attribute that the daemon writes itself"},
    {Kind::bad_value, "bad-value", kError, "a value that is too long or has several lines"},
    {Kind::bad_switch, "bad-switch", kError, "\"dynamic\" or \"private\" that is neither true nor false"},
    {Kind::bad_timeout, "bad-timeout", kError, "a \"timeout\" that is no number of seconds"},
    {Kind::bad_metric, "bad-metric", kError,
     "a \"metric\" that is neither gauge nor counter, or whose API has no numbers"},
    {Kind::bad_path, "bad-path", kError, "a file that is no absolute path"},
    {Kind::unknown_type, "unknown-type", kError, "a type that does not exist: it refuses every value"},
    {Kind::type_arguments, "type-arguments", kError, "missing, superfluous or wrong arguments of a type"},
    {Kind::range_reversed, "range-reversed", kError, "bounds the wrong way round: no value is good"},
    {Kind::bad_member, "bad-member", kError, "a member of a set that its type never takes"},
    {Kind::member_twice, "member-twice", kWarning, "a member that stands in its set twice"},
    {Kind::blank_behind, "blank-behind", kWarning, "\"blank\" that is not the first alternative"},
    {Kind::no_type, "no-type", kWarning, "an API that takes every value"},
    {Kind::unknown_description, "unknown-description", kError, "an \"introspect\" that describes nothing"},
    {Kind::bad_default, "bad-default", kError, "a default that its own type refuses"},
    {Kind::no_default, "no-default", kError, "a setting without the default that its type demands"},
    {Kind::unknown_reader, "unknown-reader", kError, "a read function that does not exist"},
    {Kind::reader_arguments, "reader-arguments", kError, "a read function without what it reads"},
    {Kind::no_reader, "no-reader", kError, "an API that nothing reads"},
    {Kind::unknown_writer, "unknown-writer", kError, "a write function that does not exist"},
    {Kind::writer_arguments, "writer-arguments", kError, "a write function without a place to write to"},
    {Kind::no_writer, "no-writer", kError, "an API that may be set and that nothing writes"},
    {Kind::unsaveable, "unsaveable", kError, "a setting with \"no_wfunc\": it can never be saved"},
    {Kind::unlike_formats, "unlike-formats", kError, "read and write functions of different formats"},
    {Kind::unknown_action, "unknown-action", kError, "an apply function that does not exist"},
    {Kind::action_arguments, "action-arguments", kError,
     "missing, superfluous or wrong arguments of an action"},
    {Kind::outside_root, "outside-root", kWarning, "an action's program that is not below $QV_SYSROOT"},
    {Kind::unknown_member_function, "unknown-member-function", kError,
     "an \"add\" or \"remove\" function that does not exist"},
    {Kind::member_arguments, "member-arguments", kError, "wrong arguments of \"add\" or \"remove\""},
    {Kind::bad_perm, "bad-perm", kError, "a \"perm\" that is no hexadecimal number of four digits"},
    {Kind::nobody, "nobody", kError, "an API that nobody may do anything with"},
    {Kind::nobody_sets, "nobody-sets", kWarning, "a setting with a write function that nobody may set"},
    {Kind::everybody_sets, "everybody-sets", kWarning, "a \"perm\" by which those who look on may set"},
    {Kind::nobody_applies, "nobody-applies", kWarning, "who may set it may not apply it"},
    {Kind::open_secret, "open-secret", kWarning, "a password that others than administrators may read"},
    {Kind::untyped_secret, "untyped-secret", kWarning, "what is called a secret and is no password"},
    {Kind::same_key, "same-key", kError, "two APIs on one key of one file"},
    {Kind::same_shadow, "same-shadow", kError, "a \"shadow\" that is the file itself"},
    {Kind::bad_link, "bad-link", kError, "a link to nothing, to itself or in a circle"},
    {Kind::bad_former_name, "bad-former-name", kError,
     "a \"was\" that is no name, still exists, or is claimed twice"},
    {Kind::template_name, "template-name", kError, "a template whose name does not begin with \"__\""},
    {Kind::no_range, "no-range", kError, "a template without a range: there are no copies"},
    {Kind::bad_range, "bad-range", kError, "a range with a mistake"},
    {Kind::unused_range, "unused-range", kWarning, "a range without a template"},
    {Kind::copies_share_key, "copies-share-key", kError, "copies of a template with one key of one file"},
    {Kind::no_folder, "no-folder", kError, "a file in a folder that the appliance does not have (--root)"},
    {Kind::no_script, "no-script", kError, "a script that the appliance does not have (--root)"},
    {Kind::no_help, "no-help", kWarning, "an API without \"help\""},
};

} // namespace

std::span<const KindRow> finding_kinds()
{
    return kKinds;
}

const KindRow &row_of(Kind kind)
{
    return *std::ranges::find(kKinds, kind, &KindRow::kind);
}

std::string finding_line(const Finding &finding)
{
    std::string text = finding.file;
    if (finding.line)
        text.append(":").append(std::to_string(finding.line));
    if (!finding.api.empty())
        text.append(": ").append(finding.api);
    text.append(row_of(finding.kind).severity == Severity::warning ? ": warning: " : ": ");
    return one_line(text.append(finding.what));
}

void put_in_order(std::vector<Finding> &findings, std::span<const std::string> files)
{
    const auto key = [&](const Finding &one) {
        return std::pair(std::ranges::find(files, one.file) - files.begin(), one.line);
    };
    std::ranges::stable_sort(findings, {}, key);
}

std::size_t count_errors(std::span<const Finding> findings)
{
    return static_cast<std::size_t>(std::ranges::count_if(
        findings, [](const Finding &one) { return row_of(one.kind).severity == Severity::error; }));
}

} // namespace qvcd
