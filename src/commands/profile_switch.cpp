#include "commands/profile_switch.h"

#include "commands/apply.h"
#include "commands/change.h"
#include "commands/save.h"
#include "commands/snapshot.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/names.h"
#include "store/profile_files.h"

#include <array>

namespace qvcd {

namespace {

// Keeps an API out of what goes over everything that is flagged.
class FlagsLowered {
  public:
    explicit FlagsLowered(std::string api) : api_(std::move(api))
    {
        for (Flag &flag : flags_) {
            flag.raised = meta_get_this_level(api_, flag.name).value_or("0") != "0";
            if (flag.raised)
                meta_set(api_, flag.name, "0");
        }
    }
    ~FlagsLowered()
    {
        for (const Flag &flag : flags_) {
            if (flag.raised)
                meta_set(api_, flag.name, "1");
        }
    }
    FlagsLowered(const FlagsLowered &) = delete;
    FlagsLowered &operator=(const FlagsLowered &) = delete;

  private:
    struct Flag {
        const char *name;
        bool raised = false;
    };
    std::string api_;
    std::array<Flag, 2> flags_ = {{{"mod"}, {"noapp"}}};
};

void revert_all_but(Request &request, const std::string &selected_by, std::FILE *out)
{
    const FlagsLowered unit(kCurrentProfileApi);
    const FlagsLowered group(selected_by);
    Request internal = request.as(kInternalMask);
    Args everything;
    command_revert(internal, everything, out);
    // A revert may wait for the system, and what others set meanwhile goes, too.
    Args later = flagged_apis(metaDB.root(), "", flag_modified);
    if (!later.empty())
        command_revert(internal, later, out);
}

int save_names(Request &internal, Args names)
{
    return names.empty() || command_save(internal, names, nullptr) == 0 ? 0 : 1; // no name is not all names
}

// The group's description goes with the selection. What was loaded takes effect now: the apply that selected
// the profile settles it.
int load_into_group(Request &internal, const std::string &api, const std::string &name)
{
    const std::string description = join_name(meta_get_parent(api).value_or(""), "desc");
    std::optional<Args> names = Args();
    if (name.empty())
        set_stored(internal, {description, ""}, nullptr, SetMode::sets);
    else
        names = switch_to_profile(internal, name, api, SetMode::set, nullptr);
    if (!names)
        return 1;
    if (!names->empty())
        command_apply(internal, *names, nullptr);
    return name_kind(description) == NameKind::api ? save_names(internal, {description}) : 0;
}

} // namespace

std::optional<Args> switch_to_profile(Request &request, const std::string &name,
                                      const std::string &selected_by, SetMode mode, std::FILE *out)
{
    Tree document;
    if (profile_exists(name) != 0 || profile_read_hdf(name, document) != 0)
        return std::nullopt;
    if (!document.root().first_child()) {
        qv_log_print(kLogError, "Error reading profile %s: it is empty\n", name.c_str());
        return std::nullopt;
    }
    profiledb_enter(name, document);
    revert_all_but(request, selected_by, out);
    Args names;
    for (const Setting &setting : settings_of(document)) {
        if (setting.api == selected_by || (request.mask & meta_get_perm(setting.api) & kWriteBits) == 0)
            continue;
        set_stored(request, setting, out, is_profile_selection(setting.api) ? SetMode::sets : mode);
        names.push_back(setting.api);
    }
    return names;
}

int load_selected_profile(Request &request, const std::string &api)
{
    const auto value = hdfDB.get(api);
    if (!value)
        return 1;
    const std::string name(*value);
    Request internal = request.as(kInternalMask);
    if (api != kCurrentProfileApi)
        return load_into_group(internal, api, name);
    if (name.empty() || name == kDefaultProfile)
        return 0;
    const std::optional<Args> names = switch_to_profile(internal, name, api, SetMode::sets, nullptr);
    return names ? save_names(internal, *names) : 1;
}

} // namespace qvcd
