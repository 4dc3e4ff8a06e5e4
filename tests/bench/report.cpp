#include "report.h"

#include <nlohmann/json.hpp>

namespace qvcd::bench {

namespace {

int decimals(double value)
{
    if (value >= 100)
        return 0;
    return value >= 10 ? 1 : 3;
}

std::string number(double value, const std::string &unit)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", decimals(value), value, unit.c_str());
    return text;
}

std::string bare_columns(const Figure &figure)
{
    if (!figure.bare)
        return {};
    char text[160];
    std::snprintf(text, sizeof text, "%16s %8.2f  %s", number(*figure.bare, figure.unit).c_str(),
                  *figure.bare > 0 ? figure.value / *figure.bare : 0.0, figure.bare_name.c_str());
    return text;
}

} // namespace

void print_table(const std::vector<Figure> &figures, std::FILE *out)
{
    std::string model;
    std::fprintf(out, "%-40s %16s %16s %8s\n", "", "qvcd", "bare", "ratio");
    for (const Figure &figure : figures) {
        if (figure.model != model)
            std::fprintf(out, "%s\n", figure.model.c_str());
        model = figure.model;
        std::fprintf(out, "  %-38s %16s %s\n", figure.name.c_str(), number(figure.value, figure.unit).c_str(),
                     bare_columns(figure).c_str());
    }
}

void print_json(const std::vector<Figure> &figures, std::FILE *out)
{
    nlohmann::json rows = nlohmann::json::array();
    for (const Figure &figure : figures) {
        nlohmann::json row = {
            {"model", figure.model}, {"name", figure.name}, {"value", figure.value}, {"unit", figure.unit}};
        if (figure.bare) {
            row["bare"] = *figure.bare;
            row["bare_name"] = figure.bare_name;
        }
        rows.push_back(std::move(row));
    }
    std::fprintf(out, "%s\n", rows.dump(2).c_str());
}

} // namespace qvcd::bench
