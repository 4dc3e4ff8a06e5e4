#include "model/populate.h"

#include "base/command_lock.h"
#include "base/replace_files.h"
#include "base/replacement.h"
#include "base/save_lock.h"
#include "funcs/check_map.h"
#include "funcs/file_writes.h"
#include "funcs/generic_readers.h"
#include "funcs/read_map.h"
#include "model/template.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/former.h"
#include "store/hdf_file.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <sys/stat.h>
#include <utility>

namespace qvcd {

namespace {

std::vector<std::string> loaded_files;

// What population takes: the parents of nodes named "attr", outside templates.
Walk what_node(Node node)
{
    const std::string_view name = node.name();
    if (name == "attr")
        return Walk::visit;
    return name.starts_with("__") ? Walk::skip : Walk::descend;
}

// All files that "file" and "shadow" name, outside templates.
void collect_files(Node group, std::set<std::string, std::less<>> &names)
{
    for (const Node node : group) {
        const std::string_view name = node.name();
        if (name.starts_with("__"))
            continue;
        if ((name == "file" || name == "shadow") && node.text().starts_with('/'))
            names.emplace(node.text());
        collect_files(node, names);
    }
}

bool is_link(const std::string &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

class Population {
  public:
    explicit Population(Request &request) : request_(request), read_error_(read_error(request)) {}

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
    std::optional<std::string> take_over(const std::string &api, const MetaApi &meta);
    void use_default(const std::string &api, const std::string &fallback, FileWrites::When when);
    void read_again(const Default &kept);

    Request &request_;
    int &read_error_;
    std::vector<Default> defaults_;
    std::set<std::pair<std::string, std::string>> taken_over_; // files and keys
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
    if (const int error = when == FileWrites::When::absent ? read_error_ : 0)
        qv_log_print(kLogWarning, "Can not read %s: %s. It has its default, its file stays\n", api.c_str(),
                     std::strerror(error));
    else
        defaults_.push_back({api, fallback, when});
}

// The value of an API that had another name, where that was kept elsewhere. It stays there: until it stands
// in the new place too, every start takes it over again, and an older release finds it. When several APIs
// claim one place, the first one has it.
std::optional<std::string> Population::take_over(const std::string &api, const MetaApi &meta)
{
    const std::string file(meta.get("file").value_or(""));
    const std::string attr(meta.get("attr").value_or(""));
    for (const Former &former : parse_former(meta.own("was").value_or(""))) {
        const auto place =
            std::pair(former.file.empty() ? file : former.file, former.attr.empty() ? attr : former.attr);
        if (place == std::pair(file, attr) || !taken_over_.insert(place).second)
            continue;
        const std::optional<std::string> value = rfuncmap_read_from(request_, api, place.first, place.second);
        if (!value)
            continue;
        if (!cfuncmap_check(api, *value))
            return value;
        qv_log_print(kLogWarning, "Can not take over the value of %s: %s does not take it\n",
                     former.name.c_str(), api.c_str());
    }
    return std::nullopt;
}

void Population::add(const std::string &api)
{
    MetaApi meta(api);
    if (!meta) // deleted while the reader of another one waited
        return;
    const auto fallback = own_copy(meta.own("default"));
    const bool had_other_names = meta.own("was").has_value();
    if (meta.is_true("dynamic")) {
        hdfDB.set(api, fallback.value_or(""));
        qv_log_print(kLogDebug, "populate dynamic %s\n", api.c_str());
        return;
    }
    const auto before = own_copy(hdfDB.get(api));
    const std::uint64_t turns = command_lock_turns();
    read_error_ = 0;
    const std::optional<std::string> value = rfuncmap_read(request_, api);
    // While the reader waited the API may have been deleted, or set.
    if (turns != command_lock_turns() && (!metaDB.find(api) || own_copy(hdfDB.get(api)) != before))
        return;
    const std::optional<std::string> former =
        !value && read_error_ == 0 && had_other_names ? take_over(api, MetaApi(api)) : std::nullopt;
    if (value && !cfuncmap_check(api, *value)) {
        store(api, *value, "");
    } else if (former) {
        use_default(api, *former, FileWrites::When::absent);
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
    loaded_files.push_back(file.text);
    flags_forget();
    if (read.result != HdfResult::ok) {
        qv_report_failure("Can not load metadata " + file.text + ": " + read.detail);
        return 1;
    }
    return dyngroup_expand_meta(request);
}

bool model_has_api()
{
    return !hdfutils_parent_names(metaDB.root(), "", what_node).empty();
}

const std::vector<std::string> &model_files()
{
    return loaded_files;
}

void model_remove_left_overs()
{
    std::set<std::string, std::less<>> names;
    collect_files(metaDB.root(), names);
    std::set<std::string> folders;
    for (const std::string &name : names) {
        const std::string path = qv_sysroot_path(name);
        folders.insert(folder_of(path));
        std::string target; // a file is replaced where it is
        if (is_link(path) && real_file(path, target) == 0)
            folders.insert(folder_of(target));
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
        if (!wanted || wanted(api))
            population.add(api);
    }
    population.write_defaults();
    return 0;
}

} // namespace qvcd
