#include "commands/user_events.h"

#include "auth/user.h"
#include "base/notify.h"
#include "store/hdfutils.h"
#include "store/meta.h"

namespace qvcd {

namespace {

using Values = std::map<std::string, std::string>;

Values values()
{
    Values all;
    for (const Tree *tree : {&groupDB, &userDB}) {
        for (const std::string &name : hdfutils_names(tree->root(), "", hdfutils_check_endnode))
            all.emplace(name, tree->get_or(name, ""));
    }
    return all;
}

void publish_field(const std::string &name, const std::string &value, const std::string &old)
{
    const bool is_password = name.ends_with(".passwd") || name.ends_with(".default");
    notify_publish({"user", name, value, is_password ? Secret::yes : Secret::no, old, {kLevel1Bits}});
}

} // namespace

UserEvents::UserEvents()
{
    if (qvnotify_has_listeners())
        before_ = values();
}

void UserEvents::publish() const
{
    if (before_.empty())
        return;
    const Values after = values();
    for (const auto &[name, old] : before_) {
        if (!after.contains(name))
            publish_field(name, "", old);
    }
    for (const auto &[name, value] : after) {
        const auto before = before_.find(name);
        if (before == before_.end() || before->second != value)
            publish_field(name, value, before == before_.end() ? "" : before->second);
    }
}

} // namespace qvcd
