#include "auth/first_password.h"

#include "auth/stored_password.h"
#include "auth/user.h"
#include "platform/api_errors.h"

#include <optional>

namespace qvcd {

const char *replace_built_in_password(const std::string &user, const std::string &next)
{
    if (const char *error = user_passwd_error(next))
        return error;
    if (next.empty() || user_has_built_in_password(user, next))
        return "##Choose another password than the built-in one#";
    const std::optional<std::string> before = user_get_passwd(user);
    const std::optional<std::string> stored = stored_form(next);
    if (!stored)
        return kUserFileError;
    if (!before || user_get_passwd(user) != before) // somebody else chose one while this was hashed
        return API_E_INVALID_PASSWORD;
    return user_replace_stored(user, {{"passwd", *before, *stored}});
}

} // namespace qvcd
