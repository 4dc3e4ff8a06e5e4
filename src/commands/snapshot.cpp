#include "commands/snapshot.h"

#include "commands/targets.h"
#include "store/profile_files.h"

#include <algorithm>

namespace qvcd {

namespace {

// Live values are the system's own, and a time is over when it is loaded.
bool can_be_loaded(Api &api)
{
    return !api.name().starts_with(kUnitSelection) && (api.perm() & kUserWriteBits) != 0 &&
           !api.is_dynamic() && api.type() != "timecode";
}

bool names_itself(const std::string &name, const std::string &api)
{
    return name == api || name == meta_get_parent(api);
}

} // namespace

int take_settings(const Request &request, const Args &names, std::FILE *out, Settings &taken)
{
    const auto take = [&](const std::string &name, Api &api) {
        if (!can_be_loaded(api) || !api.visible_to(request.mask))
            return;
        if (!is_profile_selection(api.name()) || names_itself(name, api.name()))
            taken.push_back({api.name(), std::string(api.value())});
    };
    const auto group = [&](const std::string &name) { visit_apis(name, [&](Api &api) { take(name, api); }); };
    const auto one = [&](Api &api) {
        take(api.name(), api);
        return 0;
    };
    return for_each_setting(names, out, group, one);
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
        Api *known = find_api(api);
        if (value && known && can_be_loaded(*known))
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
    Api *api = find_api(setting.api);
    if (!api)
        return refuse(setting.api, API_E_PARAM_NOT_FOUND, out);
    if (!api->is_secret())
        return set_param(request, *api, setting.value, out, mode);
    const bool changes = api->value() != setting.value;
    const std::string shown(api->shown(setting.value));
    if (set_param(request, *api, setting.value, nullptr, mode) != 0)
        return refuse(setting.api, API_E_INVALID_PASSWORD, out);
    if (changes)
        reply_value(out, setting.api, shown);
    return 0;
}

} // namespace qvcd
