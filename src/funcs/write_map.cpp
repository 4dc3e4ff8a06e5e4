// To add a writer: a function or a TextWriter in funcs/write_functions.{h,cpp}, a row here, a line in
// docs/model.md.

#include "funcs/write_map.h"

#include "base/save_lock.h"
#include "funcs/file_writes.h"
#include "funcs/func_map.h"

namespace qvcd {

namespace {

constexpr WriteRow wfuncCmdMap[] = {
    {"undefined", WriteKind::none, nullptr, nullptr},
    {"no_wfunc", WriteKind::none, nullptr, nullptr},
    {"kv_wfunc", WriteKind::text, &kv_writer, nullptr},
    {"io_wfunc", WriteKind::device, nullptr, nullptr},
    {"quotedkv_wfunc", WriteKind::text, &quoted_writer, nullptr},
    {"syncclock_wfunc", WriteKind::call, nullptr, syncclock_wfunc},
    {"ntp_wfunc", WriteKind::text, &ntp_writer, nullptr},
};

} // namespace

const WriteRow &write_row(std::string_view name)
{
    return row_or_first(wfuncCmdMap, name);
}

std::span<const WriteRow> write_rows()
{
    return wfuncCmdMap;
}

int cmd_create_wfuncmap_hdf()
{
    return log_func_map("wfunc", wfuncCmdMap);
}

int wfuncmap_write(std::string_view api, std::string_view value)
{
    FileWrites writes;
    writes.add(std::string(api), std::string(value));
    const SaveLock lock;
    writes.commit();
    writes.log_failures("write");
    return writes.result(0) == FileWrites::Result::failed ? 1 : 0;
}

} // namespace qvcd
