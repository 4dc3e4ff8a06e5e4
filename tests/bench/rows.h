#pragma once

#include "client.h"
#include "servers.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qvcd::bench {

/// What a line of the table should reach.
struct Goal {
    enum Kind { none, ratio_at_least, ratio_at_most, value_at_most } kind = none;
    double bound = 0;
};

/// One line of the table: what was measured, and its ratio to another contender in the same run.
struct Line {
    std::string name; ///< "single get, 10000"
    double value = 0;
    std::string unit;
    std::string beside; ///< what the ratio refers to
    std::optional<double> ratio;
    std::optional<double> cpu_ratio; ///< the same of processor time
    Goal goal;

    bool judged() const { return goal.kind != Goal::none && (ratio || goal.kind == Goal::value_at_most); }
    bool falls_short() const;
};

/// Takes a finished line.
using Report = std::function<void(const Line &)>;

/// One entry of the benchmark; it starts all that it needs and ends it.
struct Row {
    const char *id; ///< of --only
    const char *what;
    void (*measure)(const Settings &, const Report &);
};

/// In the order in which they run.
std::span<const Row> rows();

// What the rows measure; see rows.cpp and README.md. Each throws when an answer is wrong.
void measure_get(const Settings &settings, const Report &report);
void measure_clients(const Settings &settings, const Report &report);
void measure_connection(const Settings &settings, const Report &report);
void measure_pipelined(const Settings &settings, const Report &report);
void measure_tree(const Settings &settings, const Report &report);
void measure_set(const Settings &settings, const Report &report);
void measure_sizes(const Settings &settings, const Report &report);
void measure_apply(const Settings &settings, const Report &report);
void measure_idle(const Settings &settings, const Report &report);

/// Runs works in turn, round by round, so that all meet the same disturbances.
class Comparison {
  public:
    explicit Comparison(const Settings &settings) : rounds_(settings.rounds) {}
    void add(std::function<Rate()> work) { works_.push_back(std::move(work)); }
    void run();
    Rate value(std::size_t work) const;                    ///< median
    Rate ratio(std::size_t work, std::size_t other) const; ///< median of the ratios of each round
    /// The first work beside another; `values`: what one exchange brings.
    Line line(const std::string &name, std::size_t other, const std::string &beside, Goal goal,
              double values = 1) const;

  private:
    int rounds_;
    std::vector<std::function<Rate()>> works_;
    std::vector<std::vector<Rate>> values_; // of each work
};

double median(std::vector<double> values);

} // namespace qvcd::bench
