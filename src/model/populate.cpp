#include "model/populate.h"

#include "base/replace_files.h"
#include "base/save_lock.h"
#include "funcs/check_map.h"
#include "funcs/file_writes.h"
#include "funcs/generic_readers.h"
#include "funcs/read_map.h"
#include "model/template.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/hdf_file.h"

#include <cstring>
#include <functional>
#include <set>

namespace qvcd {

namespace {

// What population takes: the parents of nodes named "attr", outside templates.
Walk what_node(Node node)
{
    if (node.name() == "attr")
        return Walk::visit;
    return node.name().starts_with("__") ? Walk::skip : Walk::descend;
}

class Population {
  public:
    explicit Population(Request &request) : request_(request) {}

    void add(const std::string &api);
    void write_defaults();

  private:
    // A default on its way into its file.
    struct Default {
        std::string api;
        std::string value;
        FileWrites::When when;
    };

    void store(const std::string &api, const std::string &value, const char *what);
    void use_default(const std::string &api, const std::string &fallback, FileWrites::When when);
    void read_again(const Default &kept);

    Request &request_;
    std::vector<Default> defaults_;
};

void Population::store(const std::string &api, const std::string &value, const char *what)
{
    hdfDB.set(api, value);
    if (qv_log_wants(kLogDebug))
        qv_log_print(kLogDebug, "populate %s%s=%s\n", what, api.c_str(), value_for_log(api, value).c_str());
}

// What is not valid is replaced in its file too, and what is missing is added. What could not be read stays
// as it is there.
void Population::use_default(const std::string &api, const std::string &fallback, FileWrites::When when)
{
    store(api, fallback, "default ");
    if (const int error = when == FileWrites::When::absent ? read_error(request_) : 0)
        qv_log_print(kLogWarning, "Can not read %s: %s. It has its default, its file stays\n", api.c_str(),
                     std::strerror(error));
    else
        defaults_.push_back({api, fallback, when});
}

void Population::add(const std::string &api)
{
    const auto before = own_copy(hdfDB.get(api));
    const auto fallback = meta_get_this_level(api, "default");
    if (meta_is_true(api, "dynamic")) {
        hdfDB.set(api, fallback.value_or(""));
        qv_log_print(kLogDebug, "populate dynamic %s\n", api.c_str());
        return;
    }
    read_error(request_) = 0;
    const std::optional<std::string> value = rfuncmap_read(request_, api);
    // While the reader waited the API may have been deleted, or set.
    if (!metaDB.find(api) || own_copy(hdfDB.get(api)) != before)
        return;
    if (value && !cfuncmap_check(api, *value)) {
        store(api, *value, "");
    } else if (fallback) {
        use_default(api, *fallback, value ? FileWrites::When::always : FileWrites::When::absent);
    } else {
        hdfDB.set(api, "");
        qv_log_print(kLogDebug, "populate blank %s\n", api.c_str());
    }
}

// Its reader found nothing, but a value stands in the file.
void Population::read_again(const Default &kept)
{
    const std::optional<std::string> value = rfuncmap_read(request_, kept.api);
    if (hdfDB.get(kept.api) != kept.value)
        return;
    if (value && !cfuncmap_check(kept.api, *value))
        store(kept.api, *value, "");
    else
        qv_log_print(kLogWarning, "Can not read %s. It has its default, its file stays\n", kept.api.c_str());
}

void Population::write_defaults()
{
    if (defaults_.empty())
        return;
    const SaveLock lock;
    // Meanwhile somebody may have set another value, and saved it.
    std::erase_if(defaults_, [](const Default &one) { return hdfDB.get(one.api) != one.value; });
    FileWrites writes;
    for (const Default &one : defaults_)
        writes.add(one.api, one.value, one.when);
    writes.commit();
    writes.log_failures("write");
    for (std::size_t i = 0; i < defaults_.size(); ++i) {
        if (writes.result(i) == FileWrites::Result::kept)
            read_again(defaults_[i]);
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

void model_remove_left_overs()
{
    const Classifier files = [](Node node) {
        if (node.name() == "file" || node.name() == "shadow")
            return Walk::visit;
        return node.name().starts_with("__") ? Walk::skip : Walk::descend;
    };
    std::set<std::string, std::less<>> names;
    hdfutils_traverse_tree(metaDB.root(), {}, files, [&](Node node, const std::string &) {
        if (node.text().starts_with('/'))
            names.emplace(node.text());
    });
    std::set<std::string> folders;
    std::string path;
    for (const std::string &name : names) {
        if (real_file(qv_sysroot_path(name), path) == 0)
            folders.insert(path.substr(0, path.rfind('/') + 1));
    }
    for (const std::string &folder : folders)
        remove_left_overs(folder);
}

int hdfdb_populate(Request &request, std::string_view name,
                   const std::function<bool(const std::string &api)> &wanted)
{
    // By name: a reader may let go of the command lock, and the tree may change meanwhile.
    Population population(request);
    for (const std::string &api : hdfutils_parent_names(metaDB.find(name), name, what_node)) {
        if (metaDB.find(api) && (!wanted || wanted(api)))
            population.add(api);
    }
    population.write_defaults();
    return 0;
}

} // namespace qvcd
