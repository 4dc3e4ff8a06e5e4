#include "change/assignment.h"

#include "base/value.h"
#include "funcs/check_map.h"
#include "platform/api_errors.h"
#include "platform/sysroot.h"

namespace qvcd {

Assignment parse_assignment(std::string_view argument)
{
    const std::size_t equals = argument.find('=');
    Assignment asked;
    asked.name = argument.substr(0, equals);
    if (equals == std::string_view::npos) {
        asked.error = API_E_INVALID_FORMAT;
        return asked;
    }
    auto value = url_unescape(argument.substr(equals + 1));
    asked.api = find_api(asked.name);
    if (!asked.api)
        asked.error = API_E_PARAM_NOT_FOUND;
    else if (!value)
        asked.error = API_E_INVALID_CHARACTER;
    else
        asked.value = std::move(*value);
    return asked;
}

std::optional<std::string> write_error(const Request &request, const Api &api, std::string_view value)
{
    if (!api.writable_by(request.mask))
        return API_E_INVALID_PERMISSION;
    const char *error = value_error(value);
    return error ? std::optional<std::string>(error) : std::nullopt;
}

std::optional<std::string> assignment_error(const Request &request, Api &api, std::string_view value)
{
    const auto error = write_error(request, api, value);
    return error ? error : cfuncmap_check(api, value);
}

std::string_view shown_setting(const Api &api)
{
    const Api *linked = api.linked();
    return linked ? linked->value() : api.value();
}

void store_setting(Api &api, std::string_view value)
{
    Api *linked = api.linked();
    api.store(value);
    if (linked)
        linked->store(value);
}

} // namespace qvcd
