#include "auth/stored_password.h"

#include "base/options.h"
#include "platform/password_hash.h"

namespace qvcd {

std::optional<std::string> stored_form(const std::string &password)
{
    if (!hash_passwords && !qv_is_password_hash(password))
        return password;
    const HashTurn turn;
    return qv_hash_password(password);
}

} // namespace qvcd
