// The library is no part of an installation beside whose programs modules could be looked for: the one that
// TLS takes is linked in.

#include "platform/module.h"

extern "C" const void *qvcd_module_table();

const void *qvcd::module_table(const char *)
{
    return qvcd_module_table();
}
