#include "rows.h"

#include <algorithm>

namespace qvcd::bench {

namespace {

constexpr Row kRows[] = {
    {"get", "one client, one get after the other", measure_get},
    {"clients", "ten clients, each with one get under way", measure_clients},
    {"connection", "connect, one get, close", measure_connection},
    {"pipelined", "one client, a hundred gets a write", measure_pipelined},
    {"tree", "get of everything", measure_tree},
    {"set", "one client, one set of a changed value after the other", measure_set},
    {"sizes", "a get in the large model beside one in the small", measure_sizes},
    {"apply", "apply with nothing pending beside a get", measure_apply},
    {"idle", "the same with idle connections beside without", measure_idle},
    {"flood", "99th percentile of connect, get, close while others connect, dribble and flood",
     measure_flood},
    {"save", "save beside the same files written by hand", measure_save},
    {"start", "from exec to the first answered get", measure_start},
    {"memory", "resident memory of an API", measure_memory},
    {"qvc", "qvc get beside a static C client", measure_qvc},
};

Sample medians(const std::vector<Sample> &rates)
{
    std::vector<double> wall;
    std::vector<double> cpu;
    for (const Sample &rate : rates) {
        wall.push_back(rate.wall);
        cpu.push_back(rate.cpu);
    }
    return {median(wall), median(cpu)};
}

} // namespace

std::span<const Row> rows()
{
    return kRows;
}

bool Line::falls_short() const
{
    switch (goal.kind) {
    case Goal::ratio_at_least:
        return ratio && *ratio < goal.bound;
    case Goal::ratio_at_most:
        return ratio && *ratio > goal.bound;
    case Goal::value_at_most:
        return value > goal.bound;
    case Goal::none:
        break;
    }
    return false;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void Comparison::run()
{
    values_.resize(works_.size());
    for (const auto &work : works_) // warm up
        work();
    for (int round = 0; round < rounds_; ++round) {
        for (std::size_t i = 0; i < works_.size(); ++i)
            values_[i].push_back(works_[i]());
    }
}

Sample Comparison::value(std::size_t work) const
{
    return medians(values_[work]);
}

Sample Comparison::ratio(std::size_t work, std::size_t other) const
{
    std::vector<Sample> ratios;
    for (std::size_t round = 0; round < values_[work].size(); ++round) {
        const Sample &ours = values_[work][round];
        const Sample &theirs = values_[other][round];
        ratios.push_back({ours.wall / theirs.wall, ours.cpu / theirs.cpu});
    }
    return medians(ratios);
}

Line Comparison::line(const std::string &name, std::size_t other, const std::string &beside, Goal goal,
                      double factor, const char *unit) const
{
    const Sample compared = ratio(0, other);
    return {name, value(0).wall * factor, unit, beside, compared.wall, compared.cpu, goal};
}

} // namespace qvcd::bench
