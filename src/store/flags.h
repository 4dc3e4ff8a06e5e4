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

/// What is known of an API with a raised flag: who changed it last (Caller::session), the value that its file
/// has, and the one that is in force. One that is not known is not there, or is "".
struct Pending {
    std::string session;
    std::optional<std::string> saved;   ///< while "mod" is raised
    std::optional<std::string> applied; ///< while "noapp" is raised
};
Pending pending_of(std::string_view api);

/// The session is about to change the API's value: raises "mod".
void flag_unsaved(Api &api, const std::string &session);

/// The session is about to change the API's value, which then waits to be applied: raises "noapp".
void flag_unapplied(Api &api, const std::string &session);

/// The API's file has this value: clears "mod", unless the API has another one by now.
void flag_saved(std::string_view api, std::string_view value);

/// The API's action is about to run with the value it has: clears "noapp".
void flag_applied(std::string_view api);

/// This value is in force: clears "noapp", unless the API has another one by now.
void flag_in_force(std::string_view api, std::string_view value);

/// Puts flags, and what is known with them, back as they were.
void flags_put_back(std::string_view api, bool mod, bool noapp, const Pending &pending);

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
