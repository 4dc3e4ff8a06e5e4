#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::web {

struct Request;

/// The name of an API or a group as it is; else throws the Problem that there is none. What is no name could
/// be something else on the daemon's wire.
const std::string &checked_name(const std::string &name);

/// The values of the query's "name".
std::vector<std::string> asked_names(const Request &request);

/// The first value of the query's `key`; empty without one.
std::string asked(const Request &request, const char *key);

/// The same as a whole number from `least` to `most`; `fallback` without one. Throws Problem.
long long asked_number(const Request &request, const char *key, long long fallback, long long least,
                       long long most);

} // namespace qvcd::web
