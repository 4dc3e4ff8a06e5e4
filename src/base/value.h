#pragma once

#include "base/limits.h"
#include "base/text.h"
#include "platform/api_errors.h"

#include <string_view>

namespace qvcd {

/// What keeps a text from being the value of any API, whatever its type; null for one that may be. Whoever
/// takes values from outside asks before the type is asked.
inline const char *value_error(std::string_view value)
{
    if (value.size() > kMaxValueBytes)
        return API_E_INVALID_STRING_LENGTH_TOO_LONG;
    return is_one_line(value) ? nullptr : API_E_INVALID_CHARACTER;
}

} // namespace qvcd
