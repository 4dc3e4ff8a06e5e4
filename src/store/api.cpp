#include "store/api.h"

#include "store/database.h"

#include <memory>
#include <unordered_map>
#include <vector>

namespace qvcd {

namespace {

bool is_api(Node setting)
{
    return setting.value() && !setting.first_child();
}

struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
};

} // namespace

Api::Api(const std::string &name, Node setting) : name_(&name), setting_(setting)
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

std::string_view Api::type()
{
    if (!type_)
        type_ = MetaApi(name()).get("type").value_or(std::string_view());
    return *type_;
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

    std::uint64_t metadata_; // the marks of the trees that the records were made from
    std::uint64_t settings_;
    std::unordered_map<std::string, Api, NameHash, std::equal_to<>> apis_;
    // All APIs as they stand in the tree. A walk keeps the order that it began with.
    using Order = std::vector<Api *>;
    std::shared_ptr<const Order> order_ = std::make_shared<const Order>();
    std::uint64_t order_of_ = 0;
    std::size_t visited_one_by_one_ = 0; // since the order was lost
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
    if (const auto known = apis_.find(name); known != apis_.end())
        return is_api(known->second.setting_) ? &known->second : nullptr;
    const Node setting = name.empty() ? Node() : hdfDB.find(name);
    return is_api(setting) ? make(name, setting) : nullptr;
}

Api *ApiIndex::make(std::string_view name, Node setting)
{
    std::string text(name);
    const Api api(text, setting); // whole, or without memory none
    const auto entry = apis_.insert_or_assign(std::move(text), api).first;
    entry->second.name_ = &entry->first;
    return &entry->second;
}

void ApiIndex::put_in_order()
{
    auto order = std::make_shared<Order>();
    hdfutils_traverse_tree(hdfDB.root(), {}, hdfutils_check_endnode,
                           [&](Node leaf, const std::string &parent) {
                               const std::string name = join_name(parent, leaf.name());
                               const auto known = apis_.find(name);
                               Api *api = known != apis_.end() ? &known->second : make(name, leaf);
                               api->position_ = static_cast<std::uint32_t>(order->size());
                               order->push_back(api);
                           });
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
        if (is_api(child) || append_first_api(child, path))
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

// To put all in order is worth it when as many were visited without it.
void ApiIndex::visit(std::string_view group, const ApiVisitor &visit)
{
    if (!is_in_order() && (group.empty() || visited_one_by_one_ >= order_->size() + apis_.size()))
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
    for (std::size_t i = first_below(group); i < order->size(); ++i) {
        Api *api = (*order)[i];
        if (!is_below(api->name(), group))
            break;
        if (!is_current() || order_of != hdfDB.marks().nodes)
            api = find_api(api->name());
        if (api)
            visit(*api);
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
