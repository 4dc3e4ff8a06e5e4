// To add a writer: a function in funcs/write_functions.{h,cpp}, a row here, a line in docs/model.md.

#include "funcs/write_map.h"

#include "base/text.h"
#include "funcs/func_map.h"
#include "funcs/working_copies.h"
#include "funcs/write_functions.h"
#include "platform/log.h"
#include "store/database.h"

namespace qvcd {

namespace {

struct WriteRow {
    std::string_view name;
    int (*function)(const std::string &src, const std::string &dst, const std::string &attr,
                    const std::string &value);
};

constexpr WriteRow wfuncCmdMap[] = {
    {"undefined", undefined_wfunc}, {"no_wfunc", no_wfunc},           {"kv_wfunc", kv_wfunc},
    {"io_wfunc", io_wfunc},         {"quotedkv_wfunc", quoted_wfunc}, {"syncclock_wfunc", syncclock_wfunc},
    {"ntp_wfunc", ntp_wfunc},
};

const WriteRow &row_of(const std::string &write)
{
    return row_or_first(wfuncCmdMap, write);
}

} // namespace

int cmd_create_wfuncmap_hdf()
{
    return log_func_map("wfunc", wfuncCmdMap);
}

int wfuncmap_write(std::string_view api, std::string_view value)
{
    const std::string name(api);
    const std::string text(value);
    const std::string file = meta_get(name, "file").value_or("");
    const std::string attr = meta_get(name, "attr").value_or("");
    const std::string write = meta_get(name, "write").value_or("");
    const auto shadow = meta_get(name, "shadow");
    const WriteRow &row = row_of(write);
    if (shadow)
        row.function(file, *shadow, attr, text);
    qv_log_print(kLogTrace, "wfuncmap_write: %s %s(%s %s %s)\n", name.c_str(), write.c_str(), file.c_str(),
                 attr.c_str(), value_for_log(name, text).c_str());
    return row.function(file, file, attr, text);
}

int wfuncmap_cached_write(const std::string &source, const std::string &destination, std::string_view api,
                          std::string_view value)
{
    const std::string name(api);
    const std::string text(value);
    const std::string attr = meta_get(name, "attr").value_or("");
    const std::string write = meta_get(name, "write").value_or("");
    qv_log_print(kLogTrace, "wfuncmap_cached_write: %s %s(%s %s %s %s)\n", name.c_str(), write.c_str(),
                 source.c_str(), destination.c_str(), attr.c_str(), value_for_log(name, text).c_str());
    return row_of(write).function(source, destination, attr, text);
}

} // namespace qvcd
