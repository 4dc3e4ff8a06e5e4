#include "commands/snapshot.h"

#include "commands/targets.h"
#include "store/profile_files.h"

#include <algorithm>

namespace qvcd {

namespace {

// Live values are the system's own, and a time is over when it is loaded.
bool can_be_loaded(const std::string &api)
{
    MetaApi meta(api);
    return name_kind(api) == NameKind::api && !api.starts_with(kUnitSelection) &&
           (meta.perm() & kUserWriteBits) != 0 && !meta.is_true("dynamic") && meta.get("type") != "timecode";
}

bool names_itself(const std::string &name, const std::string &api)
{
    return name == api || name == meta_get_parent(api);
}

} // namespace

int take_settings(const Request &request, const Args &names, std::FILE *out, Settings &taken)
{
    const auto take = [&](const std::string &name, const std::string &api) {
        if (!can_be_loaded(api) || !MetaApi(api).visible_to(request.mask))
            return;
        if (!is_profile_selection(api) || names_itself(name, api))
            taken.push_back({api, hdfDB.get_or(api, "")});
    };
    const auto group = [&](const std::string &name) {
        for (const std::string &api : hdfutils_names(hdfDB.find(name), name, hdfutils_check_endnode))
            take(name, api);
    };
    const auto api = [&](const std::string &name) {
        take(name, name);
        return 0;
    };
    return for_each_setting(names, out, group, api);
}

Tree document_of(const Settings &settings)
{
    Tree document = Tree::make();
    for (const Setting &setting : settings)
        document.set(setting.api, url_escape(setting.value));
    return document;
}

Settings settings_of(const Tree &document)
{
    Settings settings;
    for (const std::string &api : hdfutils_names(document.root(), "", hdfutils_check_endnode)) {
        auto value = url_unescape(document.get(api).value_or(""));
        if (value && can_be_loaded(api))
            settings.push_back({api, std::move(*value)});
    }
    return settings;
}

bool hold_password(const Settings &settings)
{
    return std::ranges::any_of(settings, [](const Setting &s) { return meta_is_password(s.api); });
}

int set_stored(Request &request, const Setting &setting, std::FILE *out, SetMode mode)
{
    if (name_kind(setting.api) != NameKind::api)
        return refuse(setting.api, API_E_PARAM_NOT_FOUND, out);
    if (!meta_is_password(setting.api))
        return set_param(request, setting.api, setting.value, out, mode);
    const bool changes = hdfDB.get(setting.api) != setting.value;
    if (set_param(request, setting.api, setting.value, nullptr, mode) != 0)
        return refuse(setting.api, API_E_INVALID_PASSWORD, out);
    if (changes)
        reply_value(out, setting.api, shown_value(setting.api, setting.value));
    return 0;
}

} // namespace qvcd
