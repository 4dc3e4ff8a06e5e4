#include "store/api.h"

#include "store/database.h"

#include <deque>
#include <memory>
#include <set>
#include <span>
#include <vector>

namespace qvcd {

namespace {

// Records by name: a hash with open addressing, in which a look finds what it wants at the first place or
// two.
class NameTable {
  public:
    // The place of this name, or where it would come.
    Api *&place(std::string_view name)
    {
        const std::size_t hash = std::hash<std::string_view>()(name);
        for (std::size_t at = hash;; ++at) {
            Slot &slot = slots_[at & (slots_.size() - 1)];
            if (!slot.api)
                slot.hash = hash;
            if (!slot.api || (slot.hash == hash && slot.api->name() == name))
                return slot.api;
        }
    }

    // Before one more comes. Places move.
    void grow()
    {
        if (++count_ * 2 <= slots_.size())
            return;
        std::vector<Slot> more(slots_.size() * 2);
        for (const Slot &slot : slots_) {
            std::size_t at = slot.hash;
            while (slot.api && more[at & (more.size() - 1)].api)
                ++at;
            if (slot.api)
                more[at & (more.size() - 1)] = slot;
        }
        slots_ = std::move(more);
    }

  private:
    struct Slot {
        Api *api = nullptr;
        std::size_t hash = 0;
    };
    std::vector<Slot> slots_ = std::vector<Slot>(64); // a power of two, at least half of them free
    std::size_t count_ = 0;
};

} // namespace

Api::Api(std::string_view name, Node setting) : name_(name), setting_(setting)
{
    MetaApi meta(name);
    if (!meta)
        return;
    meta_ = meta.node();
    perm_ = static_cast<std::uint16_t>(meta.perm());
    is_private_ = meta.is_true("private");
    is_dynamic_ = meta.is_true("dynamic");
    is_password_ = meta.is_password();
    is_secret_ = is_password_ || meta.own("secret") == "true";
    has_link_ = meta.own("link").has_value();
}

Api *Api::linked() const
{
    return has_link_ ? find_api(meta_.child("link").text()) : nullptr;
}

bool Api::is_raised(Flag flag)
{
    Node &node = flags_[static_cast<std::size_t>(flag)];
    if (!node)
        node = meta_.child(flag == Flag::mod ? "mod" : "noapp");
    return node.text() == "1";
}

std::string_view Api::type()
{
    if (!type_.data())
        type_ = MetaApi(name()).get("type").value_or("");
    return type_;
}

bool Api::has_action()
{
    if (has_action_ == Asked::not_yet)
        has_action_ = MetaApi(name()).get("apply") ? Asked::yes : Asked::no;
    return has_action_ == Asked::yes;
}

// The records of one state of the trees. A walk keeps those that it began with.
class ApiIndex {
  public:
    ApiIndex() : metadata_(metaDB.marks().changed), settings_(hdfDB.marks().removed) {}

    bool is_current() const
    {
        return metadata_ == metaDB.marks().changed && settings_ == hdfDB.marks().removed;
    }

    Api *find(std::string_view name);
    void visit(std::string_view group, const ApiVisitor &visit);

  private:
    Api *make(std::string_view name, Node setting);
    bool is_in_order() const { return order_of_ == hdfDB.marks().nodes; }
    void put_in_order();
    std::size_t first_below(std::string_view group);
    static void visit_others(std::string_view group, std::span<Api *const> visited, const ApiVisitor &visit);

    std::uint64_t metadata_; // the marks of the trees that the records were made from
    std::uint64_t settings_;
    std::deque<Api> apis_;
    NameTable by_name_;
    // All APIs as they stand in the tree. A walk keeps the order that it began with.
    using Order = std::vector<Api *>;
    std::shared_ptr<const Order> order_ = std::make_shared<const Order>();
    std::uint64_t order_of_ = 0;

    // Of all indexes: how many APIs there were last, and how many were visited since without an order.
    static inline std::size_t count_ = 0;
    static inline std::size_t visited_one_by_one_ = 0;
};

namespace {

std::shared_ptr<ApiIndex> the_index; // used under the command lock

const std::shared_ptr<ApiIndex> &current_index()
{
    if (!the_index || !the_index->is_current())
        the_index = std::make_shared<ApiIndex>();
    return the_index;
}

} // namespace

Api *ApiIndex::find(std::string_view name)
{
    if (Api *known = by_name_.place(name))
        return known->setting_.is_leaf() ? known : nullptr;
    const Node setting = name.empty() ? Node() : hdfDB.find(name);
    return setting.is_leaf() ? make(name, setting) : nullptr;
}

Api *ApiIndex::make(std::string_view name, Node setting)
{
    by_name_.grow();
    Api &api = apis_.emplace_back(name, setting);
    return by_name_.place(name) = &api;
}

void ApiIndex::put_in_order()
{
    auto order = std::make_shared<Order>();
    hdfutils_traverse_tree(hdfDB.root(), {}, hdfutils_check_endnode,
                           [&](Node leaf, const std::string &parent) {
                               const std::string name = join_name(parent, leaf.name());
                               Api *known = by_name_.place(name);
                               Api *api = known ? known : make(name, leaf);
                               api->position_ = static_cast<std::uint32_t>(order->size());
                               order->push_back(api);
                           });
    count_ = order->size();
    order_ = std::move(order);
    order_of_ = hdfDB.marks().nodes;
    visited_one_by_one_ = 0;
}

namespace {

// Appends the way to the first API below; false when there is none.
bool append_first_api(Node node, std::string &path)
{
    for (const Node child : node) {
        const std::size_t size = path.size();
        path.append(size ? "." : "").append(child.name());
        if (child.is_leaf() || append_first_api(child, path))
            return true;
        path.resize(size);
    }
    return false;
}

bool is_below(std::string_view name, std::string_view group)
{
    return group.empty() ||
           (name.size() > group.size() && name[group.size()] == '.' && name.starts_with(group));
}

} // namespace

std::size_t ApiIndex::first_below(std::string_view group)
{
    std::string path(group);
    return append_first_api(hdfDB.find(group), path) ? find(path)->position_ : order_->size();
}

// A visit made or removed names: those that were not visited yet are looked for in the tree.
void ApiIndex::visit_others(std::string_view group, std::span<Api *const> visited, const ApiVisitor &visit)
{
    std::set<std::string_view> names;
    for (const Api *api : visited)
        names.insert(api->name());
    hdfutils_visit_leaves(hdfDB, group, [&](const std::string &name) {
        Api *api = names.contains(name) ? nullptr : find_api(name);
        if (api)
            visit(*api);
    });
}

// To put all in order is worth it when as many were visited without it.
void ApiIndex::visit(std::string_view group, const ApiVisitor &visit)
{
    if (!is_in_order() && (group.empty() || visited_one_by_one_ >= count_))
        put_in_order();
    if (!is_in_order()) {
        hdfutils_visit_leaves(hdfDB, group, [&](const std::string &name) {
            ++visited_one_by_one_;
            if (Api *api = find_api(name))
                visit(*api);
        });
        return;
    }
    const std::shared_ptr<const Order> order = order_;
    const std::uint64_t order_of = order_of_;
    const std::size_t first = first_below(group);
    for (std::size_t i = first; i < order->size() && is_below((*order)[i]->name(), group); ++i) {
        Api *api = is_current() ? (*order)[i] : find_api((*order)[i]->name());
        if (api)
            visit(*api);
        if (order_of != hdfDB.marks().nodes)
            return visit_others(group, std::span(*order).subspan(first, i + 1 - first), visit);
    }
}

Api *find_api(std::string_view name)
{
    return current_index()->find(name);
}

void visit_apis(std::string_view group, const ApiVisitor &visit)
{
    const std::shared_ptr<ApiIndex> kept = current_index();
    kept->visit(group, visit);
}

} // namespace qvcd
