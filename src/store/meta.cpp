#include "store/meta.h"

#include "base/limits.h"
#include "base/text.h"
#include "store/database.h"
#include "store/flags.h"

namespace qvcd {

namespace {

constexpr std::size_t kUsualDepth = 8;

// Clients may name attributes as if they were APIs.
bool is_attribute(Node node)
{
    return node.value() && !node.first_child();
}

} // namespace

MetaApi::MetaApi(std::string_view api)
{
    if (api.size() > kMaxNameBytes)
        return;
    chain_.reserve(kUsualDepth);
    Node node = metaDB.root();
    for (bool last = api.empty(); node && !last;) {
        const std::size_t dot = api.find('.');
        last = dot == std::string_view::npos;
        node = node.child(api.substr(0, dot));
        chain_.push_back(node);
        api.remove_prefix(last ? api.size() : dot + 1);
    }
    if (!node)
        chain_.clear();
}

std::optional<std::string_view> MetaApi::get(std::string_view attribute)
{
    std::optional<std::string_view> found;
    std::size_t levels = 0; // steps above the API's own node
    for (auto node = chain_.rbegin(); node != chain_.rend(); ++node) {
        levels = static_cast<std::size_t>(node - chain_.rbegin());
        if (const Node attr = node->find(attribute)) {
            if (!attr.text().empty())
                found = attr.text();
            break;
        }
    }
    if (levels > 1 && !is_attribute(chain_.back())) {
        chain_.back().set(attribute, found.value_or(""));
        if (is_flag(attribute))
            flags_forget(); // a client looked up a flag that a group has: now the API has it too
    }
    return found;
}

std::optional<std::string_view> MetaApi::own(std::string_view attribute) const
{
    if (chain_.empty())
        return std::nullopt;
    return chain_.back().get(attribute);
}

unsigned MetaApi::perm()
{
    const auto text = get("perm");
    return text ? c_hex16(*text) : 0;
}

bool MetaApi::is_password()
{
    const auto speaks_of_it = [](MetaApi &api) {
        return api.get("type").value_or("").find("password") != std::string_view::npos;
    };
    if (speaks_of_it(*this))
        return true;
    MetaApi linked(own("link").value_or(""));
    return speaks_of_it(linked);
}

bool MetaApi::visible_to(unsigned mask)
{
    return readable_by(mask) && ((mask & kLevel0Bits) != 0 || !is_true("private"));
}

std::optional<std::string> meta_get(std::string_view api, std::string_view attribute)
{
    return own_copy(MetaApi(api).get(attribute));
}

std::optional<std::string> meta_get_this_level(std::string_view api, std::string_view attribute)
{
    return own_copy(MetaApi(api).own(attribute));
}

int meta_set(std::string_view api, std::string_view attribute, std::string_view value)
{
    Node node = api.empty() ? Node() : metaDB.find(api);
    if (!node || is_attribute(node) || !node.set(attribute, value))
        return 1;
    if (value != "0" && is_flag(attribute))
        flags_note(api);
    return 0;
}

unsigned meta_get_perm(std::string_view api)
{
    return MetaApi(api).perm();
}

bool meta_is_true(std::string_view api, std::string_view attribute)
{
    return MetaApi(api).is_true(attribute);
}

std::optional<std::string> meta_get_parent(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return std::nullopt;
    return cut(name.substr(0, dot), kMaxNameBytes);
}

std::optional<std::string> meta_get_prev_node(std::string_view name)
{
    const auto parent = meta_get_parent(name);
    if (!parent)
        return std::nullopt;
    return parent->substr(parent->rfind('.') + 1); // npos + 1 is 0: the parent is one component
}

bool meta_is_password(std::string_view api)
{
    return MetaApi(api).is_password();
}

bool meta_is_hidden(unsigned mask, std::string_view api)
{
    return (mask & kLevel0Bits) == 0 && meta_is_true(api, "private");
}

namespace {

bool is_raised(Node node, std::string_view flag)
{
    return node.name() == flag && node.get_int("", 0) != 0;
}

Walk visit_if(bool yes)
{
    return yes ? Walk::visit : Walk::descend;
}

} // namespace

Walk flag_apply_pending(Node node)
{
    return visit_if(is_raised(node, "noapp"));
}

Walk flag_modified(Node node)
{
    return visit_if(is_raised(node, "mod"));
}

Walk flag_modified_or_unapplied(Node node)
{
    return visit_if(is_raised(node, "mod") || is_raised(node, "noapp"));
}

Walk meta_has_default(Node node)
{
    return visit_if(node.name() == "default");
}

} // namespace qvcd
