#include "model/populate.h"

#include "funcs/check_map.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "model/template.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/hdf_file.h"

namespace qvcd {

namespace {

// What population takes: the parents of nodes named "attr", outside templates.
Walk what_node(Node node)
{
    if (node.name() == "attr")
        return Walk::visit;
    return node.name().starts_with("__") ? Walk::skip : Walk::descend;
}

const char *for_log(bool secret, const std::string &value)
{
    return secret ? "*******" : value.c_str();
}

void add_param_to_db(Request &request, const std::string &api)
{
    MetaApi meta(api);
    const auto fallback = own_copy(meta.own("default"));
    if (meta.is_true("dynamic")) {
        hdfDB.set(api, fallback.value_or(""));
        qv_log_print(kLogDebug, "populate dynamic %s\n", api.c_str());
        return;
    }
    const bool secret = meta.is_password();
    const std::optional<std::string> value = rfuncmap_read(request, api);
    if (value && !cfuncmap_check(api, *value)) {
        hdfDB.set(api, *value);
        qv_log_print(kLogDebug, "populate %s=%s\n", api.c_str(), for_log(secret, *value));
    } else if (fallback) {
        // What cannot be read or is not valid is replaced in its file too.
        wfuncmap_write(api, *fallback);
        hdfDB.set(api, *fallback);
        qv_log_print(kLogDebug, "populate default %s=%s\n", api.c_str(), for_log(secret, *fallback));
    } else {
        hdfDB.set(api, "");
        qv_log_print(kLogDebug, "populate blank %s\n", api.c_str());
    }
}

} // namespace

int hdfdb_load_meta_file(Request &request, const FileName &file)
{
    const HdfRead read = hdf_read_own_file(file.path, metaDB);
    flags_forget();
    if (read.result != HdfResult::ok) {
        qv_log_print(kLogError, "Can not load metadata %s: %s\n", file.text.c_str(), read.detail.c_str());
        return 1;
    }
    return dyngroup_expand_meta(request);
}

int hdfdb_populate(Request &request, std::string_view name)
{
    // By name: a reader may let go of the command lock, and the tree may change meanwhile.
    for (const std::string &api : hdfutils_parent_names(metaDB.find(name), name, what_node)) {
        if (metaDB.find(api))
            add_param_to_db(request, api);
    }
    return 0;
}

} // namespace qvcd
