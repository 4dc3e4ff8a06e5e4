#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace qvcd::bench {

/// One figure, beside what the bare machine needed for the same in the same run.
struct Figure {
    std::string model; ///< "1000 APIs"
    std::string name;
    double value = 0;
    std::string unit;
    std::optional<double> bare; ///< in the same unit
    std::string bare_name;      ///< what `bare` did
};

/// A plain table, one block a model.
void print_table(const std::vector<Figure> &figures, std::FILE *out);

/// A JSON array of objects.
void print_json(const std::vector<Figure> &figures, std::FILE *out);

} // namespace qvcd::bench
