// Figures out of samples.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/plot/Svg.h"
#include "bench/Row.h"

namespace velmora_bench {

// The sample below which `part` of them lie, by the nearest rank; 0 of none.
double percentile(std::vector<double> samples, double part);
double median(std::vector<double> samples);

// Ours and the limit, taken in turn: each round adds a pair.
class Pairs {
public:
    void add(double ours, double limit);
    // A pair of throughputs, where more is better: the ratio stays one of cost.
    void addRates(double ours, double limit);
    // The medians of both and that of the ratios, each pair by itself.
    Figure figure(std::string name, double allowed = 0) const;
    // The largest of each; the ratio is still the median of the pairs.
    Figure worst(std::string name, double allowed = 0) const;
    bool isEmpty() const noexcept { return ours_.empty(); }

private:
    std::vector<double> ours_, limits_, ratios_;
};

// How late each burst came, µs. `stampNanos[i]` is when burst i was seen, `firstDue` when the first
// of them was due on the same clock. The next is due a cycle behind; behind a burst that was late
// by a cycle and more, a cycle after that burst left, which is known by the earliest that follow.
std::vector<double> lateness(const std::vector<std::int64_t>& stampNanos, std::int64_t firstDue,
                             std::uint32_t cycleMicros);

// y = intercept + slope x, by least squares.
struct Line {
    double slope = 0, intercept = 0;
    double r2 = 0;  // part of the variance of y that the line tells; 1 where y has none
};
using velmora_plot::Point;
Line fitLine(const std::vector<Point>& points);

}  // namespace velmora_bench
