#pragma once

#include "base/lookup.h"
#include "base/text.h"
#include "platform/log.h"
#include "store/meta.h"

#include <iterator>
#include <string>
#include <string_view>

namespace qvcd {

/// Logs a function map's size when the daemon starts: "<map> map created with <n> functions". 0.
template <class Rows>
int log_func_map(const char *map, const Rows &rows)
{
    qv_log_print(kLogInfo, "%s map created with %zu functions\n", map, std::size(rows));
    return 0;
}

/// What a log line shows of a value: nothing of a password, a blank for each control character.
inline std::string log_value(std::string_view api, std::string_view value)
{
    return one_line(std::string(meta_is_password(api) ? kHiddenPassword : value));
}

} // namespace qvcd
