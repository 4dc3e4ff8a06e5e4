#include "web/types.h"

#include "qvclient/typed_value.h"

namespace qvcd::web {

namespace {

constexpr std::chrono::minutes kKept{5}; // a new model comes with a new daemon
constexpr std::size_t kMostAtOnce = 90;  // names that one command takes
constexpr std::size_t kMostKept = 200'000;

} // namespace

void Types::expire()
{
    const Time now = std::chrono::steady_clock::now();
    if (now - made_ <= kKept && types_.size() <= kMostKept)
        return;
    types_.clear();
    restart_signs_.clear();
    made_ = now;
}

std::vector<std::string> Types::known_types(const std::vector<NamedValue> &values, Words &missing)
{
    const std::lock_guard lock(mutex_);
    expire();
    std::vector<std::string> known;
    for (const NamedValue &value : values) {
        const auto found = types_.find(value.name);
        known.push_back(found == types_.end() ? "" : found->second);
        if (found == types_.end())
            missing.push_back(value.name);
    }
    return known;
}

void Types::learn(const Who &who, const Words &names)
{
    std::vector<Words> commands;
    for (const std::string &name : names) {
        if (commands.empty() || commands.back().size() > kMostAtOnce)
            commands.push_back({"describe"});
        commands.back().push_back(name);
    }
    const Reply reply = daemon_.run_all(who, commands);
    const std::lock_guard lock(mutex_);
    for (const std::string &name : names) // also of those that have none
        types_.try_emplace(name, "");
    for (const std::string &line : reply.lines) {
        const Json api = Json::parse(line, nullptr, false);
        if (api.is_object())
            types_[api.value("name", "")] = api.value("type", "");
    }
}

Words Types::restart_signs(const Who &who)
{
    {
        const std::lock_guard lock(mutex_);
        expire();
        const auto found = restart_signs_.find(who.group);
        if (found != restart_signs_.end())
            return found->second;
    }
    Words signs;
    for (const std::string &line : daemon_.run(who, {"describe"}).lines) {
        if (line.find(kRestartNeeded) == std::string::npos)
            continue;
        const Json api = Json::parse(line, nullptr, false);
        if (api.is_object() && api.value("status", false) && signs.size() < kMostAtOnce)
            signs.push_back(api.value("name", ""));
    }
    const std::lock_guard lock(mutex_);
    return restart_signs_[who.group] = signs;
}

Json Types::typed(const Who &who, const std::vector<NamedValue> &values)
{
    Words missing;
    std::vector<std::string> types = known_types(values, missing);
    if (!missing.empty()) {
        learn(who, missing);
        types = known_types(values, missing);
    }
    Json json = Json::object();
    for (std::size_t i = 0; i < values.size(); ++i)
        json[values[i].name] = client::typed_value(types[i], values[i].value);
    return json;
}

} // namespace qvcd::web
