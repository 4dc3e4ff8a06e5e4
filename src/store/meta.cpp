#include "store/meta.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/password_type.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/names.h"

namespace qvcd {

namespace {

constexpr int kMaxLinks = 8;

// Links in a circle lead nowhere that could be shown.
bool is_or_leads_to_password(const MetaApi &api, int links)
{
    if (links == 0 || is_password_type(api.get("type").value_or("")))
        return true;
    const auto link = api.own("link");
    return link && is_or_leads_to_password(MetaApi(*link), links - 1);
}

} // namespace

MetaApi::MetaApi(std::string_view api) : MetaApi(metaDB.root(), api) {}

MetaApi::MetaApi(Node metadata, std::string_view api)
{
    if (api.size() > kMaxNameBytes)
        return;
    Node node = metadata;
    for (bool last = api.empty(); node && !last && depth_ < chain_.size();) {
        const std::size_t dot = api.find('.');
        last = dot == std::string_view::npos;
        node = node.child(api.substr(0, dot));
        chain_[depth_++] = node;
        api.remove_prefix(last ? api.size() : dot + 1);
    }
    if (!node || !api.empty())
        depth_ = 0;
}

// An attribute is a leaf with a value; a group may bear an attribute's name.
std::optional<std::string_view> MetaApi::find(std::string_view attribute, std::size_t &levels) const
{
    levels = 0;
    for (; levels < depth_; ++levels) {
        const Node found = chain_[depth_ - 1 - levels].child(attribute);
        if (found.is_leaf())
            return found.text().empty() ? std::nullopt : std::optional(found.text());
    }
    return std::nullopt;
}

std::size_t MetaApi::level_of(std::string_view attribute) const
{
    std::size_t levels = 0;
    find(attribute, levels);
    return levels;
}

Node MetaApi::source(std::string_view attribute) const
{
    const std::size_t levels = level_of(attribute);
    return levels < depth_ ? chain_[depth_ - 1 - levels].child(attribute) : Node();
}

std::optional<std::string_view> MetaApi::get(std::string_view attribute) const
{
    std::size_t levels = 0;
    return find(attribute, levels);
}

std::optional<std::string_view> MetaApi::adopted(std::string_view attribute) const
{
    std::size_t levels = 0;
    const auto found = find(attribute, levels);
    return levels > 1 ? found : std::nullopt;
}

std::optional<std::string_view> MetaApi::own(std::string_view attribute) const
{
    return node().get(attribute);
}

unsigned MetaApi::perm() const
{
    const auto text = get("perm");
    return text ? c_hex16(*text) : 0;
}

bool MetaApi::is_password() const
{
    return is_or_leads_to_password(*this, kMaxLinks);
}

bool MetaApi::visible_to(unsigned mask) const
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
    if (!node || node.is_leaf()) // clients may name attributes as if they were APIs
        return 1;
    if (!is_flag(attribute))
        return node.set(attribute, value) ? 0 : 1;
    const Tree::Unmarked no_record_has_it(metaDB);
    if (!node.set(attribute, value))
        return 1;
    if (value != "0")
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

void meta_visit_adopted(std::string_view api,
                        const std::function<void(std::string_view, std::string_view)> &visit)
{
    const MetaApi meta(api);
    for (const char *attribute :
         {"perm", "private", "dynamic", "type", "file", "shadow", "attr", "read", "write", "apply"}) {
        if (const auto value = meta.adopted(attribute))
            visit(attribute, *value);
    }
}

std::optional<std::string> meta_get_parent(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return std::nullopt;
    return cut(name.substr(0, dot), kMaxNameBytes);
}

bool meta_is_password(std::string_view api)
{
    return MetaApi(api).is_secret();
}

std::string shown_value(std::string_view api, std::string_view value)
{
    return std::string(hide(value, value.size() > 1 && meta_is_password(api)));
}

std::string value_for_log(std::string_view api, std::string_view value)
{
    const MetaApi meta(api);
    const bool known = name_kind(api) == NameKind::api || meta.own("attr"); // it may have no value yet
    return std::string(known && !meta.is_secret() ? value : kHiddenPassword);
}

std::string name_for_log(std::string_view name)
{
    return std::string(name_kind(name) == NameKind::nothing ? kHiddenPassword : name);
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
