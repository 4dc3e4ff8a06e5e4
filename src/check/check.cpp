#include "check/check.h"

#include "check/check_pairs.h"
#include "check/report.h"

namespace qvcd {

std::vector<Finding> check_model(const Source &source, const CheckOptions &options)
{
    std::vector<Finding> findings = source.findings();
    if (source.is_whole()) {
        Report report(source, options, findings);
        CheckedPairs pairs(report);
        bool has_api = false;
        visit_model(source.root(), [&](const ModelNode &node) {
            if (options.stop.stop_requested())
                return;
            check_attributes(report, node);
            check_structure(report, node);
            if (!node.is_api())
                return;
            has_api = true;
            check_api(report, node);
            pairs.add(node);
        });
        if (options.stop.stop_requested())
            return {};
        check_outside_groups(report);
        if (!has_api && !source.files().empty())
            findings.push_back({Kind::no_api_at_all, source.files().front(), 0, "", "there is no API"});
    }
    put_in_order(findings, source.files());
    return findings;
}

} // namespace qvcd
