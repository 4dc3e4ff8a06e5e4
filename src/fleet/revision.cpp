#include "fleet/revision.h"

#include "base/command_lock.h"
#include "platform/crypto.h"
#include "store/api.h"
#include "store/flags.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <thread>
#include <vector>

namespace qvcd {

namespace {

constexpr std::size_t kAtOnce = 64;             // APIs that are looked at with the lock
constexpr std::chrono::milliseconds kBreath{1}; // in which others get the lock
constexpr unsigned kUserWriteBits = 0x222;      // as an export: what somebody may restore
constexpr std::size_t kRevisionDigits = 16;

std::optional<std::vector<std::string>> names_of_all()
{
    const CommandLock lock;
    if (!lock.held())
        return std::nullopt;
    std::vector<std::string> names;
    visit_apis("", [&](const Api &api) { names.push_back(api.name()); });
    return names;
}

// A length in front of each value: no two settings together look like others.
void add(Api &api, Survey &survey, std::string &text)
{
    const bool modified = api.is_raised(Api::Flag::mod);
    survey.modified += modified ? 1 : 0;
    survey.unapplied += api.is_raised(Api::Flag::noapp) ? 1 : 0;
    if (api.is_dynamic() || api.is_secret() || (api.perm() & kUserWriteBits) == 0)
        return;
    const std::optional<std::string> saved = modified ? pending_of(api.name()).saved : std::nullopt;
    const std::string value = saved.value_or(std::string(api.value()));
    text += api.name() + "=" + std::to_string(value.size()) + ":" + value + "\n";
}

// False when the daemon stops.
bool look_at(std::span<const std::string> names, Survey &survey, std::string &text)
{
    const CommandLock lock;
    for (const std::string &name : names) {
        if (Api *const api = lock.held() ? find_api(name) : nullptr)
            add(*api, survey, text);
    }
    return lock.held();
}

} // namespace

std::optional<Survey> survey_settings()
{
    const std::optional<std::vector<std::string>> names = names_of_all();
    if (!names)
        return std::nullopt;
    Survey survey;
    std::string text;
    for (std::size_t i = 0; i < names->size(); i += kAtOnce) {
        if (!look_at(std::span(*names).subspan(i, std::min(kAtOnce, names->size() - i)), survey, text))
            return std::nullopt;
        std::this_thread::sleep_for(kBreath);
    }
    survey.revision = qvcrypto_sha256(text).substr(0, kRevisionDigits);
    return survey;
}

} // namespace qvcd
