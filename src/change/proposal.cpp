#include "change/proposal.h"

#include "change/assignment.h"
#include "funcs/read_map.h"
#include "platform/api_errors.h"
#include "store/api.h"
#include "store/database.h"

#include <map>

namespace qvcd {

namespace {

bool has_file(const Api &api)
{
    const MetaApi meta(api.name());
    return meta.get("file") && meta.get("write");
}

bool can_be_written(const Api &api)
{
    return write_row(MetaApi(api.name()).get("write").value_or("")).kind != WriteKind::none;
}

Proposed proposed(const Request &request, Api &api, std::string_view after)
{
    Proposed p;
    p.api = api.name();
    p.now = shown_setting(api);
    p.after = after;
    p.secret = api.is_secret();
    p.hidden = !api.visible_to(request.mask);
    p.dynamic = api.is_dynamic();
    p.mod = api.is_raised(Api::Flag::mod);
    p.noapp = api.is_raised(Api::Flag::noapp);
    p.pending = pending_of(p.api);
    const bool changes = p.now != after;
    p.saves = p.dynamic ? can_be_written(api) : has_file(api) && (p.mod || changes);
    p.applies = !p.dynamic && api.applicable_by(request.mask) && api.has_action() && (p.noapp || changes);
    p.before = p.mod                 ? p.pending.saved.value_or(p.now)
               : p.noapp && !p.saves ? p.pending.applied.value_or(p.now)
                                     : p.now;
    return p;
}

bool does_something(const Proposed &p)
{
    return p.now != p.after || p.saves || p.applies;
}

} // namespace

std::unique_ptr<FileWrites> Proposal::writes() const
{
    auto writes = std::make_unique<FileWrites>();
    for (const Proposed &p : values) {
        if (p.saves)
            writes->add(p.api, p.after);
    }
    return writes;
}

Actions Proposal::actions() const
{
    Actions actions;
    for (const Proposed &p : values) {
        if (p.applies && p.api.find("__d") == std::string::npos)
            actions.add(p.api);
    }
    return actions;
}

Proposal propose(const Request &request, const Args &assignments, Check check)
{
    Proposal proposal;
    std::map<std::string, std::size_t> known;
    for (const std::string &argument : assignments) {
        const Assignment asked = parse_assignment(argument);
        if (asked.error) {
            proposal.refused.push_back({asked.name, asked.error});
            continue;
        }
        const auto error = check == Check::full ? assignment_error(request, *asked.api, asked.value)
                                                : write_error(request, *asked.api, asked.value);
        if (error) {
            proposal.refused.push_back({asked.name, *error});
            continue;
        }
        Proposed p = proposed(request, *asked.api, asked.value);
        const auto [at, fresh] = known.try_emplace(p.api, proposal.values.size());
        if (fresh)
            proposal.values.push_back(std::move(p));
        else
            proposal.values[at->second] = std::move(p);
    }
    std::erase_if(proposal.values, [](const Proposed &p) { return !does_something(p); });
    return proposal;
}

Proposal propose_pending(const Request &request, Whose whose)
{
    Proposal proposal;
    for (const std::string &name : flagged_apis(metaDB.root(), "", flag_modified_or_unapplied)) {
        Api *api = find_api(name);
        if (!api)
            continue;
        const bool own = pending_of(name).session == request.caller.session;
        if (whose == Whose::own ? !own : !api->writable_by(request.mask))
            continue;
        Proposed p = proposed(request, *api, shown_setting(*api));
        if (const auto error = assignment_error(request, *api, p.after); error && p.saves)
            proposal.refused.push_back({name, *error});
        else if (does_something(p))
            proposal.values.push_back(std::move(p));
    }
    return proposal;
}

void refresh_live_values(Request &request, const Args &assignments)
{
    for (const std::string &argument : assignments) {
        const std::string name = argument.substr(0, argument.find('='));
        const Api *api = find_api(name);
        if (!api || !api->is_dynamic() || !api->writable_by(request.mask))
            continue;
        const auto value = rfuncmap_read(request, name);
        if (Api *read = find_api(name); read && value)
            read->store(*value);
    }
}

} // namespace qvcd
