#include "report.h"

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace qvcd::bench {

namespace {

std::string number(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string bound(const Line &line)
{
    switch (line.goal.kind) {
    case Goal::ratio_at_least:
        return ">= " + number(line.goal.bound, 2);
    case Goal::ratio_at_most:
        return "<= " + number(line.goal.bound, 2);
    case Goal::value_at_most:
        return "<= " + number(line.goal.bound, 1) + " " + line.unit;
    case Goal::none:
        break;
    }
    return {};
}

} // namespace

void print_heading(std::FILE *out)
{
    double load = 0;
    getloadavg(&load, 1);
    std::fprintf(out, "%ld processors, load %.1f before\n", sysconf(_SC_NPROCESSORS_ONLN), load);
    std::fprintf(out, "%-34s %15s  %-20s %6s %6s  %-13s\n", "", "measured", "beside", "ratio", "cpu", "goal");
}

void print_line(const Line &line, std::FILE *out)
{
    const std::string value = number(line.value, line.value < 100 ? 2 : 0) + " " + line.unit;
    const auto text = [](const std::optional<double> &ratio) {
        return ratio && !std::isnan(*ratio) ? number(*ratio, 2) : "";
    };
    std::fprintf(out, "%-34s %15s  %-20s %6s %6s  %-13s%s\n", line.name.c_str(), value.c_str(),
                 line.beside.c_str(), text(line.ratio).c_str(), text(line.cpu_ratio).c_str(),
                 bound(line).c_str(), line.falls_short() ? "  falls short" : "");
    std::fflush(out);
}

void print_json(const std::vector<Line> &lines, std::FILE *out)
{
    nlohmann::json rows = nlohmann::json::array();
    for (const Line &line : lines) {
        nlohmann::json row = {{"name", line.name}, {"value", line.value}, {"unit", line.unit}};
        if (!line.beside.empty())
            row["beside"] = line.beside;
        if (line.ratio)
            row["ratio"] = *line.ratio;
        if (line.cpu_ratio && !std::isnan(*line.cpu_ratio))
            row["cpu_ratio"] = *line.cpu_ratio;
        if (line.goal.kind != Goal::none)
            row["goal"] = bound(line);
        if (line.judged())
            row["falls_short"] = line.falls_short();
        rows.push_back(std::move(row));
    }
    std::fprintf(out, "%s\n", rows.dump(2).c_str());
}

} // namespace qvcd::bench
