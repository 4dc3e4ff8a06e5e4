#pragma once

#include "report.h"

#include <cstddef>
#include <string>
#include <vector>

namespace qvcd::bench {

/// What the command line asks for.
struct Settings {
    std::string program;                                    ///< path of qvcd
    std::string share;                                      ///< folder of the shipped model
    std::string folder = "/tmp";                            ///< where roots are made
    std::vector<std::size_t> sizes = {1000, 10000, 100000}; ///< APIs of the generated models
    int rounds = 5;                                         ///< the least disturbed one counts
    double slice = 0.1;                                     ///< seconds of one round of one measure
    std::size_t saved_apis = 1000;
    std::string write; ///< only write the first model below this folder
    bool json = false;
};

// Each starts its own daemon on its own root and throws when an answer is wrong.

/// Start-up, memory, get, pipelined get, whole-tree get, set, and commands that find nothing to do.
void measure_model(const Settings &settings, std::size_t apis, std::vector<Figure> &figures);

/// `save` of 1, 100 and 1,000 APIs in 1 and in 30 files.
void measure_save(const Settings &settings, std::vector<Figure> &figures);

/// `get Network` on the shipped model; nothing when the folder is not there.
void measure_shipped(const Settings &settings, std::vector<Figure> &figures);

} // namespace qvcd::bench
