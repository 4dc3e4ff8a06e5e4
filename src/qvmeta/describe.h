#pragma once

#include "check/model_api.h"

#include <string>
#include <utility>
#include <vector>

namespace qvcd {

/// What a reference says of an API, in words of its reader. Any bytes but line ends.
struct ApiPage {
    std::string name;
    std::string help;
    std::string desc;
    struct Fact {
        std::string label;
        std::string text;
        bool is_literal; ///< as it is typed or stands in files
    };
    std::vector<Fact> facts;
};

/// The APIs of one group of the first level.
struct Chapter {
    std::string name;
    std::vector<ApiPage> apis;
};

/// All of a model. Copies of templates are described once; defaults of passwords are not shown.
std::vector<Chapter> describe_model(Node root);

} // namespace qvcd
