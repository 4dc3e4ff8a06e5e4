#include "funcs/check_functions.h"

#include "funcs/func_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/profile_files.h"

namespace qvcd {

namespace {

constexpr char kInvalidProfile[] = "##Invalid profile#";
constexpr char kUndefined[] = "Undefined check function"; // clients know it without hash marks

} // namespace

const char *check_undefined(std::string_view api, int, CheckArgs, std::string_view value)
{
    if (qv_log_wants(kLogInfo))
        qv_log_print(kLogInfo, "Undefined check function: param:%s value:%s\n", std::string(api).c_str(),
                     log_value(api, value).c_str());
    return kUndefined;
}

const char *check_blank(std::string_view, int, CheckArgs, std::string_view value)
{
    return value.empty() ? nullptr : API_E_INVALID_OPTION;
}

const char *check_profile(std::string_view, int, CheckArgs, std::string_view value)
{
    return check_valid_profile(value) ? nullptr : kInvalidProfile;
}

const char *check_profile2(std::string_view api, int, CheckArgs, std::string_view value)
{
    std::string group;
    const bool read = profile_read_group(value, group) == 0;
    return read && group == api ? nullptr : kInvalidProfile;
}

} // namespace qvcd
