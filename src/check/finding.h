#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

enum class Severity { error, warning };

/// What can be wrong with a model.
enum class Kind {
    // The text
    unreadable,
    syntax,
    missing_brace,
    given_twice,
    no_api_at_all,
    // Nodes
    no_attr,
    empty_group,
    api_in_api,
    // Attributes
    unknown_attribute,
    misplaced_attribute,
    daemon_attribute,
    bad_value,
    bad_switch,
    bad_timeout,
    bad_metric,
    bad_path,
    // Types
    unknown_type,
    type_arguments,
    range_reversed,
    bad_member,
    member_twice,
    blank_behind,
    no_type,
    unknown_description,
    // Defaults
    bad_default,
    no_default,
    // Functions
    unknown_reader,
    reader_arguments,
    no_reader,
    unknown_writer,
    writer_arguments,
    no_writer,
    unsaveable,
    unlike_formats,
    unknown_action,
    action_arguments,
    outside_root,
    unknown_member_function,
    member_arguments,
    // Permissions
    bad_perm,
    nobody,
    nobody_sets,
    everybody_sets,
    nobody_applies,
    open_secret,
    untyped_secret,
    // Several APIs
    same_key,
    same_shadow,
    bad_link,
    bad_former_name,
    // Templates
    template_name,
    no_range,
    bad_range,
    unused_range,
    copies_share_key,
    // Files of the appliance
    no_folder,
    no_script,
    // Help
    no_help,
};

struct KindRow {
    Kind kind;
    std::string_view word; ///< for programs and for who looks it up
    Severity severity;
    std::string_view about; ///< one line
};

std::span<const KindRow> finding_kinds(); ///< all of them
const KindRow &row_of(Kind kind);

/// One thing that is wrong.
struct Finding {
    Kind kind = Kind::syntax;
    std::string file;
    std::size_t line = 0; ///< 0: the file as a whole
    std::string api;      ///< or group; empty: none
    std::string what;     ///< one line
};

/// "file:line: API: what", warnings with "warning: " in front of what they say. No control characters.
std::string finding_line(const Finding &finding);

/// By file, in the order in which they were given, and by line.
void put_in_order(std::vector<Finding> &findings, std::span<const std::string> files);

std::size_t count_errors(std::span<const Finding> findings);

} // namespace qvcd
