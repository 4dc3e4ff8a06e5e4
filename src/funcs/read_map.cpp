// To add a reader: a function with the contract of funcs/read_map.h, a row here, a line in docs/model.md.

#include "funcs/read_map.h"

#include "base/limits.h"
#include "funcs/func_map.h"
#include "funcs/generic_readers.h"
#include "platform/log.h"
#include "store/database.h"

namespace qvcd {

namespace {

struct ReadRow {
    const char *name;
    ReadFunction function;
    bool called; // since the cache was cleared
};

// Writable: the rows carry the called flag, and the profile commands fill in their reader.
ReadRow rfuncCmdMap[] = {
    {"undefined", undefined_rfunc, false},
    {"na_rfunc", na_rfunc, false},
    {"hidden_rfunc", hidden_rfunc, false},
    {"password_rfunc", password_rfunc, false},
    {"no_rfunc", no_rfunc, false},
    {"zero_rfunc", zero_rfunc, false},
    {"model_rfunc", model_rfunc, false},
    {"kv_rfunc", kv_rfunc, false},
    {"quotedkv_rfunc", quoted_rfunc, false},
    {"eeprom_rfunc", eeprom_rfunc, false},
    {"ipc_rfunc", ipc_rfunc, false},
    {"ipc_attr_rfunc", ipc_attr_rfunc, false},
    {"syscall_rfunc", syscall_rfunc, false},
    {"ntp_rfunc", ntp_rfunc, false},
    {"profile_rfunc", undefined_rfunc, false},
};

NameIndex rfuncCmdMapHDF;

const char *or_null(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

const char *for_log(const std::optional<std::string> &text)
{
    return text ? text->c_str() : "(null)";
}

} // namespace

int cmd_create_rfuncmap_hdf()
{
    create_func_index(rfuncCmdMapHDF, std::span<const ReadRow>(rfuncCmdMap), "rfunc");
    rfuncmap_clear_cache();
    return 0;
}

int cmd_destroy_rfuncmap_hdf()
{
    rfuncCmdMapHDF.destroy();
    return 0;
}

bool rfuncmap_read(std::string_view api, std::string &out)
{
    // Copies: the function may let go of the command lock.
    const std::string name(api);
    const auto file = meta_get(name, "file");
    const auto read = meta_get(name, "read");
    const auto attr = meta_get(name, "attr");
    ReadRow &row = rfuncCmdMap[rfuncCmdMapHDF.row(read.value_or(""))];
    qv_log_print(kLogTrace, "rfuncmap_read: %s %s(%s, %s, %p, %d)\n", name.c_str(), for_log(read),
                 for_log(file), for_log(attr), static_cast<void *>(&out), row.called ? 1 : 0);
    const bool cached = row.called;
    const bool found = row.function(or_null(file), or_null(attr), out, cached);
    row.called = true;
    if (out.size() > kMaxValueBytes)
        out.resize(kMaxValueBytes);
    return found;
}

void rfuncmap_clear_cache()
{
    for (ReadRow &row : rfuncCmdMap)
        row.called = false;
}

void rfuncmap_set_profile_reader(ReadFunction reader)
{
    rfuncCmdMap[rfuncCmdMapHDF.row("profile_rfunc")].function = reader;
}

} // namespace qvcd
