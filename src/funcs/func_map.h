#pragma once

#include "base/lookup.h"
#include "platform/log.h"
#include "store/meta.h" // value_for_log

#include <iterator>

namespace qvcd {

/// Logs a function map's size when the daemon starts: "<map> map created with <n> functions". 0.
template <class Rows>
int log_func_map(const char *map, const Rows &rows)
{
    qv_log_print(kLogInfo, "%s map created with %zu functions\n", map, std::size(rows));
    return 0;
}

} // namespace qvcd
