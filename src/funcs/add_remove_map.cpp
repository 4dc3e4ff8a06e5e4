#include "funcs/add_remove_map.h"

#include "base/text.h"
#include "funcs/func_map.h"
#include "platform/log.h"
#include "store/meta.h"

#include <vector>

namespace qvcd {

namespace {

int undefined_addfunc(std::string_view, std::string_view api, std::string_view value, std::FILE *)
{
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "Undefined add function: param=%s value=%s\n", std::string(api).c_str(),
                     log_value(api, value).c_str());
    return 0;
}

int undefined_removefunc(std::string_view, std::string_view api, std::string_view value, std::FILE *)
{
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "Undefined remove function: param=%s value=%s\n", std::string(api).c_str(),
                     log_value(api, value).c_str());
    return 0;
}

struct MemberRow {
    const char *name;
    MemberFunction function;
};

// Row 1 of each gets its function at start-up.
MemberRow addfuncCmdMap[] = {
    {"undefined", undefined_addfunc},
    {"profile_addfunc", undefined_addfunc},
};

MemberRow removefuncCmdMap[] = {
    {"undefined", undefined_removefunc},
    {"profile_removefunc", undefined_removefunc},
};

constexpr std::size_t kProfileRow = 1;

NameIndex addfuncCmdMapHDF;
NameIndex removefuncCmdMapHDF;

void log_call(const char *what, std::string_view api, std::string_view value)
{
    if (qv_log_wants(kLogTrace))
        qv_log_print(kLogTrace, "%s: %s %s\n", what, std::string(api).c_str(), log_value(api, value).c_str());
}

} // namespace

int cmd_create_addfuncmap_hdf()
{
    create_func_index(addfuncCmdMapHDF, std::span<const MemberRow>(addfuncCmdMap), "addfunc");
    return 0;
}

int cmd_destroy_addfuncmap_hdf()
{
    addfuncCmdMapHDF.destroy();
    return 0;
}

int cmd_create_removefuncmap_hdf()
{
    create_func_index(removefuncCmdMapHDF, std::span<const MemberRow>(removefuncCmdMap), "removefunc");
    return 0;
}

int cmd_destroy_removefuncmap_hdf()
{
    removefuncCmdMapHDF.destroy();
    return 0;
}

int addfuncmap_add(std::string_view file, std::string_view api, std::string_view value, std::FILE *out)
{
    const std::optional<std::string> call = meta_get(api, "add");
    if (!call)
        return 0;
    const std::vector<std::string> words = split_words(*call, kListSeparators);
    const std::size_t row = words.empty() ? 0 : addfuncCmdMapHDF.row(words.front());
    log_call("addfunc_add", api, value);
    return addfuncCmdMap[row].function(file, api, value, out);
}

int removefuncmap_remove(std::string_view file, std::string_view api, std::string_view value, std::FILE *out)
{
    // Unlike "add", the attribute is one name: with words behind it, it names no row.
    const std::size_t row = removefuncCmdMapHDF.row(meta_get(api, "remove").value_or(""));
    log_call("removefuncmap_remove", api, value);
    return removefuncCmdMap[row].function(file, api, value, out);
}

// The rows of both maps hold nothing that a command could leave behind.
void addfunc_clear_cache() {}
void removefuncmap_clear_cache() {}

void addfuncmap_set_profile(MemberFunction add)
{
    addfuncCmdMap[kProfileRow].function = add;
}

void removefuncmap_set_profile(MemberFunction remove)
{
    removefuncCmdMap[kProfileRow].function = remove;
}

} // namespace qvcd
