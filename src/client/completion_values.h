#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/command_shapes.h"
#include "client/options.h"

namespace qvcd::client {

// What can stand for something that has a name, as far as this session may know it.

/// Users, groups of users, presets or profiles; none for what else a command takes.
std::vector<std::string> named_things(const Options &options, Takes takes);

/// "NAME=VALUE" for the values that a setting takes, or "NAME=@FILE" behind an "@"; `name` is the whole name
/// of the setting, `typed` as it stands in the line up to the "=".
std::vector<std::string> assignments_of(const Options &options, const std::string &name,
                                        const std::string &typed, const std::string &value);

/// Files and folders, which end in "/", whose names begin as `path`.
std::vector<std::string> files_like(const std::string &path);

/// The values in the answer to `introspect NAME`: those that it takes, else the one it has. For a password
/// "?", which asks for it.
std::vector<std::string> values_in(const std::vector<std::string> &lines, const std::string &name);

} // namespace qvcd::client
