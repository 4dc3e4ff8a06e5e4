#pragma once

#include "check/report.h"

#include <map>
#include <set>
#include <string>
#include <utility>

namespace qvcd {

/// What several APIs are together: is told of all, and reports those that do not fit.
class CheckedPairs {
  public:
    explicit CheckedPairs(Report &report) : report_(report) {}
    void add(const ModelNode &api);

  private:
    void check_key(const ModelNode &api);
    void check_copies(const ModelNode &api);
    void check_folder(const ModelNode &api, const std::string &file);
    void check_link(const ModelNode &api);
    void check_former_names(const ModelNode &api);

    struct First {
        std::string name;
        Node node;
    };
    Report &report_;
    std::map<std::pair<std::string, std::string>, First> keys_; // of files
    std::map<std::string, First, std::less<>> former_;
    std::set<std::string, std::less<>> folders_; // those that were looked for
};

} // namespace qvcd
