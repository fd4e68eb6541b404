#pragma once

#include <limits>
#include <string>
#include <vector>

namespace tarvo_bench {

inline constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

// One benchmark figure: the daemon's side against its floor, measured in the same run. A figure
// whose goal is a ratio carries the ratio; one whose goal is an absolute value (idle ticks, soak
// growth) has no floor or ratio. NaN means "none" and is written as null.
struct Figure {
    std::string name;
    double value = kNone;
    std::string unit;
    double floor = kNone;
    double ratio = kNone;
    std::string goal;  // as printed, e.g. ">= 0.8"; empty for a figure shown for information
    bool met = false;
    std::string note;
};

// The ratio value / floor, held against a lower or an upper bound.
Figure RatioAtLeast(std::string name, std::string unit, double value, double floor, double bound);
Figure RatioAtMost(std::string name, std::string unit, double value, double floor, double bound);
// An absolute value held against a bound of its own.
Figure ValueAtMost(std::string name, std::string unit, double value, double bound);
// A ratio shown for information, with no goal.
Figure RatioInfo(std::string name, std::string unit, double value, double floor, std::string note);
// Shown for information, with no goal.
Figure Info(std::string name, std::string unit, double value, std::string note = {});
// A figure that could not be measured in this build, with the reason.
Figure Pending(std::string name, std::string unit, std::string goal, std::string reason);

// One line of the table.
std::string FigureRow(const Figure& figure);
std::string FigureTable(const std::vector<Figure>& figures);
// A JSON list of {"name","value","unit","floor","ratio","goal","met","note"}.
std::string FiguresJson(const std::vector<Figure>& figures);

}  // namespace tarvo_bench
