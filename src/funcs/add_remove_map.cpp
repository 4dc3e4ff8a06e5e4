#include "funcs/add_remove_map.h"

#include "base/text.h"
#include "funcs/func_map.h"
#include "platform/log.h"
#include "store/meta.h"

namespace qvcd {

namespace {

int undefined_addfunc(Request &, std::string_view, std::string_view api, std::string_view value, std::FILE *)
{
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "Undefined add function: param=%s value=%s\n", std::string(api).c_str(),
                     value_for_log(api, value).c_str());
    return 0;
}

int undefined_removefunc(Request &, std::string_view, std::string_view api, std::string_view value,
                         std::FILE *)
{
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "Undefined remove function: param=%s value=%s\n", std::string(api).c_str(),
                     value_for_log(api, value).c_str());
    return 0;
}

struct MemberRow {
    std::string_view name;
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

void log_call(const char *what, std::string_view api, std::string_view value)
{
    if (qv_log_wants(kLogTrace))
        qv_log_print(kLogTrace, "%s: %s %s\n", what, std::string(api).c_str(),
                     value_for_log(api, value).c_str());
}

} // namespace

std::vector<std::string_view> add_functions()
{
    return row_names(addfuncCmdMap);
}

std::vector<std::string_view> remove_functions()
{
    return row_names(removefuncCmdMap);
}

int cmd_create_addfuncmap_hdf()
{
    return log_func_map("addfunc", addfuncCmdMap);
}

int cmd_create_removefuncmap_hdf()
{
    return log_func_map("removefunc", removefuncCmdMap);
}

int addfuncmap_add(Request &request, std::string_view file, std::string_view api, std::string_view value,
                   std::FILE *out)
{
    const std::optional<std::string> call = meta_get(api, "add");
    if (!call)
        return 0;
    const std::vector<std::string> words = split_words(*call, kListSeparators);
    const MemberRow &row = row_or_first(addfuncCmdMap, words.empty() ? "" : words.front());
    log_call("addfunc_add", api, value);
    return row.function(request, file, api, value, out);
}

int removefuncmap_remove(Request &request, std::string_view file, std::string_view api,
                         std::string_view value, std::FILE *out)
{
    // Unlike "add", the attribute is one name: with words behind it, it names no row.
    const MemberRow &row = row_or_first(removefuncCmdMap, meta_get(api, "remove").value_or(""));
    log_call("removefuncmap_remove", api, value);
    return row.function(request, file, api, value, out);
}

void addfuncmap_set_profile(MemberFunction add)
{
    addfuncCmdMap[kProfileRow].function = add;
}

void removefuncmap_set_profile(MemberFunction remove)
{
    removefuncCmdMap[kProfileRow].function = remove;
}

} // namespace qvcd
