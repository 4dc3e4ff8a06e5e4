#pragma once

#include "check/check.h"
#include "check/model_api.h"

#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// Where those who check a model put what they find.
class Report {
  public:
    Report(const Source &source, const CheckOptions &options, std::vector<Finding> &findings)
        : source_(source), options_(options), findings_(findings)
    {
    }

    Node root() const { return source_.root(); }
    const CheckOptions &options() const { return options_; }

    /// About a node, which tells the line, for the group or API `name`.
    void add(Kind kind, Node node, const std::string &name, std::string what)
    {
        Finding finding = source_.at(kind, node, name);
        finding.what = std::move(what);
        findings_.push_back(std::move(finding));
    }

    /// "file:line" of a node.
    std::string place(Node node) const
    {
        const Finding at = source_.at(Kind::syntax, node, "");
        return at.file + ":" + std::to_string(at.line);
    }

  private:
    const Source &source_;
    const CheckOptions &options_;
    std::vector<Finding> &findings_;
};

inline std::string quote(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

// The parts of check_model(). Each is called for every node of the model.
void check_attributes(Report &report, const ModelNode &node); ///< each attribute for itself, where it stands
void check_outside_groups(Report &report);                    ///< values that are in no group
void check_structure(Report &report, const ModelNode &node);  ///< groups, templates
void check_api(Report &report, const ModelNode &api);         ///< what an API's attributes are together

} // namespace qvcd
