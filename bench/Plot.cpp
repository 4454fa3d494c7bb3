#include "bench/Plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "apps/plot/Svg.h"

namespace velmora_bench {

using velmora_plot::Svg;

namespace {

constexpr const char *oursColour = "#1f6fb4", *limitColour = "#d9822b", *grey = "#888";

// Lateness from 0.1 µs to 100 ms, eight bins a decade; what lies outside goes to the ends.
constexpr double firstDecade = -1, decades = 6;
constexpr const char* decadeNames[] = {"0.1 us", "1 us",  "10 us", "100 us",
                                       "1 ms",   "10 ms", "100 ms"};
constexpr std::size_t bins = 48;

std::array<double, bins> sharesOf(const std::vector<double>& samples) {
    std::array<double, bins> shares{};
    for (const double sample : samples) {
        const double at = (std::log10(std::max(sample, 0.1)) - firstDecade) / decades * bins;
        const auto bin = static_cast<std::size_t>(std::clamp(at, 0.0, bins - 1.0));
        shares[bin] += 1.0 / static_cast<double>(samples.size());
    }
    return shares;
}

constexpr double left = 60, panelWidth = 640, panelHeight = 150, gap = 50;

void drawPanel(Svg& svg, const Pictures::Histogram& h, double top) {
    const auto ours = sharesOf(h.ours), limit = sharesOf(h.limit);
    const double most = std::max(*std::max_element(ours.begin(), ours.end()),
                                 *std::max_element(limit.begin(), limit.end()));
    const double bottom = top + panelHeight;
    svg.label(left, top - 6, h.title + ": ours");
    svg.label(left + panelWidth, top - 6, h.limitName, limitColour, "end");
    for (int d = 0; d <= static_cast<int>(decades); ++d) {
        const double x = left + panelWidth * d / decades;
        svg.line(x, bottom, x, bottom + 4, grey);
        svg.label(x, bottom + 16, decadeNames[d], grey, "middle");
    }
    svg.line(left, bottom, left + panelWidth, bottom, grey);
    svg.label(left - 6, top + 10, Svg::number(most * 100) + " %", grey, "end");
    const auto curve = [&](const std::array<double, bins>& shares) {
        std::vector<Point> points;
        for (std::size_t i = 0; i < bins; ++i) {
            const double y = most > 0 ? bottom - panelHeight * shares[i] / most : bottom;
            for (const std::size_t edge : {i, i + 1}) {
                points.push_back({left + panelWidth * static_cast<double>(edge) / bins, y});
            }
        }
        return points;
    };
    svg.path(curve(limit), limitColour);
    svg.path(curve(ours), oursColour);
}

void drawLateness(const Pictures& pictures, const std::string& file) {
    const auto panels = static_cast<double>(pictures.lateness.size());
    Svg svg(left + panelWidth + 40, 40 + panels * (panelHeight + gap));
    svg.label(left, 18, "Lateness of bursts at the receiver: share of all bursts", oursColour);
    double top = 50;
    for (const Pictures::Histogram& h : pictures.lateness) {
        drawPanel(svg, h, top);
        top += panelHeight + gap;
    }
    svg.write(file);
}

void drawCpu(const Pictures& pictures, const std::string& file) {
    constexpr double height = 360, top = 40, bottom = top + height;
    double mostX = 0, mostY = 0;
    for (const Point& p : pictures.cpu) {
        mostX = std::max(mostX, p.x * 1.05);
        mostY = std::max(mostY, p.y * 1.15);
    }
    const Line& fit = pictures.cpuLine;
    const auto at = [&](double x, double y) {
        return Point{left + panelWidth * x / mostX, bottom - height * y / mostY};
    };
    Svg svg(left + panelWidth + 40, bottom + 50);
    char title[128];
    std::snprintf(title, sizeof title,
                  "ms of processor time a second = %.2f + %.3f for each 1000 ch x kHz, R2 %.4f",
                  fit.intercept, fit.slope * 1000, fit.r2);
    svg.label(left, 20, title);
    svg.line(left, top, left, bottom, grey);
    svg.line(left, bottom, left + panelWidth, bottom, grey);
    svg.label(left - 6, top + 4, Svg::number(mostY), grey, "end");
    svg.label(left + panelWidth, bottom + 34, "channels x kHz", grey, "end");
    const Point a = at(0, fit.intercept), b = at(mostX, fit.intercept + fit.slope * mostX);
    svg.line(a.x, a.y, b.x, b.y, limitColour);
    for (const Point& p : pictures.cpu) {
        const Point where = at(p.x, p.y);
        svg.circle(where.x, where.y, oursColour);
        // Two streams of one load: the cheaper one's figure stands below it.
        const bool isCovered = std::ranges::any_of(
            pictures.cpu, [&p](const Point& q) { return q.x == p.x && q.y > p.y; });
        svg.label(where.x, where.y + (isCovered ? 18 : -8), Svg::number(p.y), oursColour, "middle");
    }
    constexpr double step = 500;  // channels x kHz
    for (double x = 0; x <= mostX; x += step) {
        svg.label(at(x, 0).x, bottom + 16, Svg::number(x), grey, "middle");
    }
    svg.write(file);
}

}  // namespace

void drawPictures(const Pictures& pictures, const std::string& folder) {
    std::filesystem::create_directories(folder);
    if (!pictures.lateness.empty()) drawLateness(pictures, folder + "/lateness.svg");
    if (!pictures.cpu.empty()) drawCpu(pictures, folder + "/cpu.svg");
}

}  // namespace velmora_bench
