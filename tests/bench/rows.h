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
    std::string beside{}; ///< what the ratio refers to
    std::optional<double> ratio{};
    std::optional<double> cpu_ratio{}; ///< the same of processor time
    Goal goal{};

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

// What the rows measure; see rows.cpp and docs/performance.md. Each throws when an answer is wrong.
void measure_get(const Settings &settings, const Report &report);
void measure_clients(const Settings &settings, const Report &report);
void measure_connection(const Settings &settings, const Report &report);
void measure_pipelined(const Settings &settings, const Report &report);
void measure_tree(const Settings &settings, const Report &report);
void measure_set(const Settings &settings, const Report &report);
void measure_sizes(const Settings &settings, const Report &report);
void measure_apply(const Settings &settings, const Report &report);
void measure_idle(const Settings &settings, const Report &report);
void measure_flood(const Settings &settings, const Report &report);
void measure_save(const Settings &settings, const Report &report);
void measure_start(const Settings &settings, const Report &report);
void measure_memory(const Settings &settings, const Report &report);
void measure_qvc(const Settings &settings, const Report &report);

/// Runs works in turn, round by round, so that all meet the same disturbances.
class Comparison {
  public:
    explicit Comparison(const Settings &settings) : rounds_(settings.rounds) {}
    void add(std::function<Sample()> work) { works_.push_back(std::move(work)); }
    void run();
    Sample value(std::size_t work) const;                    ///< median
    Sample ratio(std::size_t work, std::size_t other) const; ///< median of the ratios of each round
    /// The first work beside another. What works gave, times `factor`, is in `unit`.
    Line line(const std::string &name, std::size_t other, const std::string &beside, Goal goal,
              double factor = 1, const char *unit = "/s") const;

  private:
    int rounds_;
    std::vector<std::function<Sample()>> works_;
    std::vector<std::vector<Sample>> values_; // of each work
};

double median(std::vector<double> values);

} // namespace qvcd::bench
