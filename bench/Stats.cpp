#include "bench/Stats.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace velmora_bench {

double percentile(std::vector<double> samples, double part) {
    if (samples.empty()) return 0;
    const double rank = part * static_cast<double>(samples.size() - 1);
    const auto at = std::min(static_cast<std::size_t>(rank + 0.5), samples.size() - 1);
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(at),
                     samples.end());
    return samples[at];
}

double median(std::vector<double> samples) {
    return percentile(std::move(samples), 0.5);
}

void Pairs::add(double ours, double limit) {
    ours_.push_back(ours);
    limits_.push_back(limit);
    ratios_.push_back(limit != 0 ? ours / limit : 0);
}

void Pairs::addRates(double ours, double limit) {
    ours_.push_back(ours);
    limits_.push_back(limit);
    ratios_.push_back(ours != 0 ? limit / ours : 0);
}

Figure Pairs::figure(std::string name, double allowed) const {
    return {std::move(name), median(ours_), median(limits_), median(ratios_), allowed};
}

Figure Pairs::worst(std::string name, double allowed) const {
    return {std::move(name), percentile(ours_, 1), percentile(limits_, 1), median(ratios_),
            allowed};
}

namespace {

// A grid that was begun on the way stands where its first burst was read to be due, which only the
// sender knows: it is moved so that its earliest burst is as late as that of the first grid, whose
// place is known.
void alignGrid(std::vector<double>& late, std::size_t begin, std::size_t firstEnd) {
    constexpr std::ptrdiff_t enough = 8;  // bursts; the earliest of fewer may be late itself
    const auto earliest = [&](std::size_t from, std::size_t to) {
        return *std::min_element(late.begin() + static_cast<std::ptrdiff_t>(from),
                                 late.begin() + static_cast<std::ptrdiff_t>(to));
    };
    if (begin == late.size()) return;
    const double here = earliest(begin, late.size());
    const bool tells = std::cmp_greater_equal(std::min(firstEnd, late.size() - begin), enough);
    const double shift = tells ? earliest(0, firstEnd) - here : std::max(0.0, -here);
    for (std::size_t i = begin; i < late.size(); ++i) late[i] += shift;
}

}  // namespace

std::vector<double> lateness(const std::vector<std::int64_t>& stampNanos, std::int64_t firstDue,
                             std::uint32_t cycleMicros) {
    std::vector<double> late;
    late.reserve(stampNanos.size());
    const std::int64_t cycle = std::int64_t{cycleMicros} * 1000;
    std::int64_t due = firstDue;
    std::size_t begin = 0, firstEnd = 0;  // of the present grid; end of the first one
    for (const std::int64_t stamp : stampNanos) {
        const std::int64_t nanos = stamp - due;
        late.push_back(static_cast<double>(nanos) / 1000.0);
        due += cycle;
        if (nanos < cycle) continue;
        // The last of its grid; the next burst is due a cycle behind it.
        if (begin == 0) {
            firstEnd = late.size();
        } else {
            alignGrid(late, begin, firstEnd);
        }
        begin = late.size();
        due = stamp + cycle;
    }
    if (begin != 0) alignGrid(late, begin, firstEnd);
    return late;
}

Line fitLine(const std::vector<Point>& points) {
    Line line;
    const auto n = static_cast<double>(points.size());
    if (points.empty()) return line;
    double x = 0, y = 0;
    for (const Point& p : points) {
        x += p.x / n;
        y += p.y / n;
    }
    double xx = 0, xy = 0, yy = 0;
    for (const Point& p : points) {
        xx += (p.x - x) * (p.x - x);
        xy += (p.x - x) * (p.y - y);
        yy += (p.y - y) * (p.y - y);
    }
    line.slope = xx != 0 ? xy / xx : 0;
    line.intercept = y - line.slope * x;
    double rest = 0;
    for (const Point& p : points) {
        rest += std::pow(p.y - line.intercept - line.slope * p.x, 2);
    }
    line.r2 = yy != 0 ? 1 - rest / yy : 1;
    return line;
}

}  // namespace velmora_bench
