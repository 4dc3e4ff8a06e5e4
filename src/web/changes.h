#pragma once

#include "web/json.h"
#include "web/routes.h"

#include <string>
#include <vector>

namespace qvcd::web {

inline constexpr std::size_t kMostNames = 90; ///< that one command takes, options beside them

/// The command with so many of the arguments as it takes, as often as it has to be said; once without any.
std::vector<Words> in_commands(const Words &command, const std::vector<std::string> &arguments);

/// A value as the daemon knows it. Throws Problem for arrays and objects.
std::string text_of_value(const std::string &name, const Json &value);

/// The body's "values" as NAME=VALUE; none where there are none. Throws Problem.
std::vector<std::string> assignments_in(const Call &call, const Json &body);

/// Commits them, as "confirm", "message" and "all" of the body say.
Answer commit_values(const Call &call, const Json &body, const std::vector<std::string> &assignments);

/// 403 where the caller may do nothing of it, 404 where nothing is there, else 422.
int status_of(const std::vector<FieldError> &errors);

/// Without the marks that the wire puts around it.
std::string plain_error(const std::string &text);

/// A reply that is one line of JSON. A daemon that says something else says why: a Problem.
Json json_reply(const Reply &reply);

} // namespace qvcd::web
