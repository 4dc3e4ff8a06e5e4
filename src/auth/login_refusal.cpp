#include "auth/login_refusal.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/api_errors.h"
#include "platform/counters.h"
#include "platform/log.h"

namespace qvcd {

std::optional<std::string> login_refusal(const LoginResult &result, std::string_view name,
                                         const Caller &caller)
{
    const std::string who =
        cut(name, kMaxLoggedWordBytes) + (caller.trusted ? std::string() : " by " + caller.source);
    if (result.session < 0)
        ++counters.refused_logins;
    switch (result.session) {
    case kUnknownUser:
        qv_log_print(kLogWarning, "Failed login for nonuser %s\n", who.c_str());
        return API_E_INVALID_USER;
    case kWrongPassword:
        qv_log_print(kLogWarning, "Failed login for user %s\n", who.c_str());
        return API_E_INVALID_PASSWORD;
    case kTooEarly:
        return "##Try again in " + std::to_string(result.wait.count()) + " s#";
    case kBuiltInPassword:
        qv_log_print(kLogWarning, "Refused the built-in password of user %s\n", who.c_str());
        return "##Change the password of admin locally first#";
    case kNewPasswordRefused:
        qv_log_print(kLogWarning, "Refused another password for user %s\n", who.c_str());
        return result.error;
    default:
        return std::nullopt;
    }
}

} // namespace qvcd
