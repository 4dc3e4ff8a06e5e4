#include "web/gate.h"

#include "web/message.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <unistd.h>

namespace qvcd::web {

namespace {

std::string lower(std::string_view text)
{
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

// Without the port.
std::string_view name_in(std::string_view host)
{
    const std::size_t end = host.starts_with('[') ? host.find(']') + 1 : host.find(':');
    return host.substr(0, end);
}

bool is_address(const std::string &name)
{
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    if (name.starts_with('[') && name.ends_with(']'))
        return ::inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), bytes.data()) == 1;
    return ::inet_pton(AF_INET, name.c_str(), bytes.data()) == 1;
}

std::string host_name()
{
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return lower(name.data());
}

} // namespace

Gate::Gate(std::set<std::string> names, bool is_encrypted)
    : any_(names.contains("any")), scheme_(is_encrypted ? "https://" : "http://")
{
    for (const std::string &name : names)
        names_.insert(lower(name));
    names_.insert("localhost");
}

// The host name may change while we run.
bool Gate::is_our_name(std::string_view host) const
{
    std::string name = lower(name_in(host));
    if (name.ends_with('.'))
        name.pop_back();
    if (any_ || is_address(name) || names_.contains(name))
        return true;
    const std::string ours = host_name();
    return !ours.empty() && (name == ours || name == ours.substr(0, ours.find('.')) + ".local");
}

void Gate::check(const Origin &o) const
{
    if (!is_our_name(o.host))
        throw Problem{421, "this is not the name of this machine: see option --name"};
    const bool is_foreign = o.fetch_site == "cross-site" || o.fetch_site == "same-site";
    const bool is_link = !o.changes && o.is_page && o.fetch_mode == "navigate";
    if (is_foreign && !is_link && !(o.is_public && !o.changes))
        throw Problem{403, "another site asks this"};
    if (!o.origin.empty() && lower(o.origin) != scheme_ + lower(o.host))
        throw Problem{403, "another site asks this"};
    if (o.changes && o.has_cookie && o.origin.empty() && o.fetch_site.empty())
        throw Problem{403, "nothing tells which site asks this: a script should use a token"};
}

} // namespace qvcd::web
