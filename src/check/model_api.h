#pragma once

#include "store/meta.h"
#include "store/tree.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// A group or an API of a model as it is written, before templates are multiplied. What stands in a template
/// reads as in its first copy.
class ModelNode {
  public:
    ModelNode(Node root, std::string name, std::string number);

    const std::string &name() const { return name_; }
    Node node() const { return meta_.node(); }
    bool is_api() const { return static_cast<bool>(node().child("attr")); }
    const std::vector<std::string> &templates() const
    {
        return templates_;
    } ///< around it, the outermost first

    std::optional<std::string> get(std::string_view attribute) const; ///< inherited; none when it is empty
    std::optional<std::string> own(std::string_view attribute) const;
    Node source(std::string_view attribute) const { return meta_.source(attribute); }

    /// The name that has the attribute which get() gives.
    std::string source_name(std::string_view attribute) const;

    unsigned perm() const { return meta_.perm(); }
    bool is_dynamic() const { return meta_.is_true("dynamic"); }

    /// A text of the model as the first copy has it.
    std::string in_first_copy(std::string_view text) const;

  private:
    std::string name_;
    std::string number_;
    std::vector<std::string> templates_;
    MetaApi meta_;
};

/// All nodes that may have attributes below them, in the order of the files: groups, templates, APIs.
void visit_model(Node root, const std::function<void(const ModelNode &)> &visit);

/// The group or API of that name, which may be in a copy of a template. None when there is none.
Node find_in_model(Node root, std::string_view name);

} // namespace qvcd
