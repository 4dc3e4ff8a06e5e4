#pragma once

#include "store/api.h"
#include "store/hdfutils.h"

#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Which APIs may have a raised flag ("mod", "noapp"): an index beside the metadata, so that a save or an
// apply of everything does not go through every attribute of every API to find the few that changed. It holds
// every API with a raised flag, and it may hold others. Used under the command lock.

/// What hdfutils_parent_names(node, name, flag) gives, for a node of the metadata and a classifier of flags.
std::vector<std::string> flagged_apis(Node node, std::string_view name, Classifier flag);

/// A flag of this API was raised.
void flags_note(std::string_view api);

/// The API's value is about to change: raises "mod".
void flag_unsaved(Api &api);

/// The API's value is about to change, and then waits to be applied: raises "noapp". What was in force when
/// it was raised is remembered.
void flag_unapplied(Api &api);

/// The API's action is about to run with the value it has: clears "noapp".
void flag_applied(std::string_view api);

/// The API was given back the value `restored`: clears "mod", and "noapp" where that value is the one in
/// force.
void flag_restored(std::string_view api, std::string_view restored);

/// The API was deleted.
void flags_drop(std::string_view api);

/// Flags may have been raised anywhere: metadata was read.
void flags_forget();

/// True for an attribute, as a name below an API, that is a flag.
bool is_flag(std::string_view attribute);

} // namespace qvcd
