#include "store/flags.h"

#include "store/database.h"

#include <functional>
#include <map>
#include <set>

namespace qvcd {

namespace {

// With more than these the whole metadata is walked, as when nothing is known: each of them has work of its
// own.
constexpr std::size_t kMaxNoted = 1024;

std::set<std::string, std::less<>> noted;
std::map<std::string, Pending, std::less<>> pending; // of APIs with a flag
bool complete = false;

// "." sorts before all that names are made of, so what is below a name follows it at once.
bool leads_to_noted(std::string_view path)
{
    const auto at = noted.lower_bound(path);
    return at != noted.end() && at->starts_with(path) &&
           (at->size() == path.size() || (*at)[path.size()] == '.');
}

// The walk of hdfutils_parent_names, but only on the ways to noted APIs.
void visit_noted(Node node, std::string &path, Classifier flag, std::vector<std::string> &names)
{
    for (const Node child : node) {
        if (flag(child) == Walk::visit && (names.empty() || names.back() != path))
            names.push_back(path);
        const std::size_t size = path.size();
        path.append(size ? "." : "").append(child.name());
        if (child.first_child() && leads_to_noted(path))
            visit_noted(child, path, flag, names);
        path.resize(size);
    }
}

void take_stock()
{
    const std::vector<std::string> raised =
        hdfutils_parent_names(metaDB.root(), {}, flag_modified_or_unapplied);
    complete = raised.size() <= kMaxNoted;
    noted.clear();
    if (complete)
        noted.insert(raised.begin(), raised.end());
}

} // namespace

std::vector<std::string> flagged_apis(Node node, std::string_view name, Classifier flag)
{
    if (!complete)
        take_stock();
    if (!complete)
        return hdfutils_parent_names(node, name, flag);
    std::vector<std::string> names;
    std::string path(name);
    visit_noted(node, path, flag, names);
    return names;
}

void flags_note(std::string_view api)
{
    if (!complete || noted.contains(api))
        return;
    if (noted.size() == kMaxNoted)
        flags_forget(); // most of them may be clear again: the next search finds out
    else
        noted.emplace(api);
}

Pending pending_of(std::string_view api)
{
    const auto known = pending.find(api);
    return known == pending.end() ? Pending() : known->second;
}

void flag_unsaved(Api &api, const std::string &session)
{
    const bool raised = api.is_raised(Api::Flag::mod);
    Pending &its = pending[api.name()];
    its.session = session;
    if (raised)
        return;
    its.saved = api.value();
    meta_set(api.name(), "mod", "1");
}

void flag_unapplied(Api &api, const std::string &session)
{
    const bool raised = api.is_raised(Api::Flag::noapp);
    Pending &its = pending[api.name()];
    its.session = session;
    if (raised)
        return;
    its.applied = api.value();
    meta_set(api.name(), "noapp", "1");
}

namespace {

// One of the two is settled: forgets all when nothing else is known.
void settle(std::string_view api, std::optional<std::string> Pending::*value)
{
    const auto known = pending.find(api);
    if (known == pending.end())
        return;
    (known->second.*value).reset();
    if (!known->second.saved && !known->second.applied)
        pending.erase(known);
}

} // namespace

void flag_saved(std::string_view api, std::string_view value)
{
    if (hdfDB.get(api) == value) {
        meta_set(api, "mod", "0");
        settle(api, &Pending::saved);
    } else if (const auto known = pending.find(api); known != pending.end() && known->second.saved) {
        known->second.saved = value;
    }
}

void flag_applied(std::string_view api)
{
    meta_set(api, "noapp", "0");
    settle(api, &Pending::applied);
}

void flag_in_force(std::string_view api, std::string_view value)
{
    if (hdfDB.get(api) == value)
        flag_applied(api);
    else if (const auto known = pending.find(api); known != pending.end() && known->second.applied)
        known->second.applied = value;
}

void flag_restored(std::string_view api, std::string_view restored)
{
    meta_set(api, "mod", "0");
    settle(api, &Pending::saved);
    const auto applied = pending_of(api).applied;
    if (!applied || applied == restored)
        flag_applied(api);
}

void flags_put_back(std::string_view api, bool mod, bool noapp, const Pending &was)
{
    meta_set(api, "mod", mod ? "1" : "0");
    meta_set(api, "noapp", noapp ? "1" : "0");
    flags_drop(api);
    if (mod || noapp)
        pending.emplace(api, was);
}

void flags_drop(std::string_view api)
{
    if (const auto known = pending.find(api); known != pending.end())
        pending.erase(known);
}

void flags_forget()
{
    complete = false;
    noted.clear();
}

bool is_flag(std::string_view attribute)
{
    const std::string_view last = attribute.substr(attribute.rfind('.') + 1); // npos + 1 is 0
    return last == "mod" || last == "noapp";
}

} // namespace qvcd
