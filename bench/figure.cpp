#include "figure.h"

#include <cmath>

#include <android-base/stringprintf.h>
#include <nlohmann/json.hpp>

using android::base::StringPrintf;

namespace tarvo_bench {

namespace {

Figure Ratio(std::string name, std::string unit, double value, double floor) {
    Figure figure;
    figure.name = std::move(name);
    figure.unit = std::move(unit);
    figure.value = value;
    figure.floor = floor;
    figure.ratio = floor > 0 ? value / floor : kNone;
    return figure;
}

// Enough digits for any figure here, and no exponent for the usual ones.
std::string Number(double value) {
    if (std::isnan(value)) return "-";
    const double magnitude = std::fabs(value);
    if (magnitude >= 1e6) return StringPrintf("%.4g", value);
    if (magnitude >= 100 || value == std::floor(value)) return StringPrintf("%.0f", value);
    if (magnitude >= 1) return StringPrintf("%.3g", value);
    return StringPrintf("%.3f", value);
}

}  // namespace

Figure RatioAtLeast(std::string name, std::string unit, double value, double floor, double bound) {
    Figure figure = Ratio(std::move(name), std::move(unit), value, floor);
    figure.goal = StringPrintf(">= %g", bound);
    figure.met = figure.ratio >= bound;
    return figure;
}

Figure RatioAtMost(std::string name, std::string unit, double value, double floor, double bound) {
    Figure figure = Ratio(std::move(name), std::move(unit), value, floor);
    figure.goal = StringPrintf("<= %g", bound);
    figure.met = figure.ratio <= bound;
    return figure;
}

Figure ValueAtMost(std::string name, std::string unit, double value, double bound) {
    Figure figure;
    figure.name = std::move(name);
    figure.unit = std::move(unit);
    figure.value = value;
    figure.goal = StringPrintf("<= %g", bound);
    figure.met = value <= bound;
    return figure;
}

Figure RatioInfo(std::string name, std::string unit, double value, double floor, std::string note) {
    Figure figure = Ratio(std::move(name), std::move(unit), value, floor);
    figure.note = std::move(note);
    return figure;
}

Figure Info(std::string name, std::string unit, double value, std::string note) {
    Figure figure;
    figure.name = std::move(name);
    figure.unit = std::move(unit);
    figure.value = value;
    figure.note = std::move(note);
    return figure;
}

Figure Pending(std::string name, std::string unit, std::string goal, std::string reason) {
    Figure figure;
    figure.name = std::move(name);
    figure.unit = std::move(unit);
    figure.goal = std::move(goal);
    figure.note = "PENDING: " + std::move(reason);
    return figure;
}

std::string FigureRow(const Figure& figure) {
    const char* met = figure.goal.empty() ? "" : figure.met ? "yes" : "NO";
    return StringPrintf("%-48s %10s %-8s %10s %7s %7s %-4s %s\n", figure.name.c_str(),
                        Number(figure.value).c_str(), figure.unit.c_str(),
                        Number(figure.floor).c_str(), Number(figure.ratio).c_str(),
                        figure.goal.c_str(), met, figure.note.c_str());
}

std::string FigureTable(const std::vector<Figure>& figures) {
    std::string table = StringPrintf("%-48s %10s %-8s %10s %7s %7s %-4s %s\n", "figure", "value",
                                     "unit", "floor", "ratio", "goal", "met", "note");
    table += std::string(120, '-') + "\n";
    for (const Figure& figure : figures) table += FigureRow(figure);
    return table;
}

std::string FiguresJson(const std::vector<Figure>& figures) {
    // NaN stands for "none" and is written as null.
    const auto number = [](double value) {
        return std::isfinite(value) ? nlohmann::json(value) : nlohmann::json(nullptr);
    };
    nlohmann::json list = nlohmann::json::array();
    for (const Figure& figure : figures) {
        list.push_back(
            {{"name", figure.name},
             {"value", number(figure.value)},
             {"unit", figure.unit},
             {"floor", number(figure.floor)},
             {"ratio", number(figure.ratio)},
             {"goal", figure.goal},
             {"met", figure.goal.empty() ? nlohmann::json(nullptr) : nlohmann::json(figure.met)},
             {"note", figure.note}});
    }
    return list.dump(2) + "\n";
}

}  // namespace tarvo_bench
