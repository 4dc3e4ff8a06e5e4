#pragma once

#include "base/request.h"
#include "store/api.h"

#include <optional>
#include <string>

namespace qvcd {

/// What an argument "name=value" with a URL-escaped value asks for. Used under the command lock.
struct Assignment {
    std::string name;            ///< the whole argument where there is no "="
    Api *api = nullptr;          ///< null: `error` says why
    std::string value;           ///< decoded
    const char *error = nullptr; ///< what makes the argument useless; null: nothing
};

Assignment parse_assignment(std::string_view argument);

/// What keeps the caller from giving the API this value, as the reply says it: a right, a byte or the length
/// that no value has, the API's type. Nothing when it may be set.
std::optional<std::string> assignment_error(const Request &request, Api &api, std::string_view value);

/// The same without the type, for values that the API had already: one of a file or a default need not be of
/// its type.
std::optional<std::string> write_error(const Request &request, const Api &api, std::string_view value);

/// The value that the API shows: that of the one which its "link" names, where there is one. Good as long as
/// `api`.
std::string_view shown_setting(const Api &api);

/// Stores a value in the settings, of the API and of the one that its "link" names.
void store_setting(Api &api, std::string_view value);

} // namespace qvcd
