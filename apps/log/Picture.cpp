#include "apps/log/Picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "apps/plot/Svg.h"

namespace velmora_log {
namespace {

using velmora_plot::Point;
using velmora_plot::Svg;

constexpr const char *middleColour = "#1f6fb4", *highColour = "#d9822b", *worstColour = "#c23030",
                     *resendColour = "#7b3fa0", *grey = "#888", *pale = "#ddd";
constexpr const char* decadeNames[] = {"1 us", "10 us", "100 us", "1 ms", "10 ms", "100 ms", "1 s"};
constexpr double left = 70, width = 760, overTimeTop = 64, overTimeHeight = 300,
                 shareTop = overTimeTop + overTimeHeight + 80, shareHeight = 150;

// A lateness as a part of the scale from 1 µs to 1 s.
double partOf(double micros) {
    return std::clamp(std::log10(std::max(micros, 1.0)) / double(Timeline::decades), 0.0, 1.0);
}

double yOf(double micros) {
    return overTimeTop + overTimeHeight * (1 - partOf(micros));
}

// A place on an axis that is `whole` seconds long.
std::string secondsText(double seconds, double whole) {
    char text[32];
    std::snprintf(text, sizeof text,
                  whole < 10    ? "%.2f s"
                  : whole < 100 ? "%.1f s"
                                : "%.0f s",
                  seconds);
    return text;
}

void drawScale(Svg& svg, double seconds) {
    for (std::size_t d = 0; d <= Timeline::decades; ++d) {
        const double y = yOf(std::pow(10.0, double(d)));
        svg.line(left, y, left + width, y, pale);
        svg.label(left - 6, y + 4, decadeNames[d], grey, "end");
    }
    constexpr int marks = 5;
    for (int i = 0; i <= marks; ++i) {
        const double x = left + width * i / marks;
        svg.line(x, overTimeTop + overTimeHeight, x, overTimeTop + overTimeHeight + 4, grey);
        svg.label(x, overTimeTop + overTimeHeight + 17, secondsText(seconds * i / marks, seconds),
                  grey, "middle");
    }
}

void drawOverTime(Svg& svg, const Figures& figures) {
    const auto& pieces = figures.timeline.pieces();
    const double count = static_cast<double>(std::max<std::size_t>(pieces.size(), 1));
    drawScale(svg, count * static_cast<double>(figures.timeline.pieceMicros()) / 1e6);
    if (figures.cycle && figures.late.count() != 0) {
        const double y = yOf(*figures.cycle);
        svg.line(left, y, left + width, y, grey, " stroke-dasharray=\"6 4\"");
        svg.label(left + width + 4, y + 4, "a cycle", grey);
    }
    std::vector<Point> middle, high;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const Timeline::Piece& piece = pieces[i];
        const double x = left + width * (static_cast<double>(i) + 0.5) / count;
        if (piece.resends != 0) {
            svg.line(x, overTimeTop + overTimeHeight - 10, x, overTimeTop + overTimeHeight,
                     resendColour);
        }
        if (piece.count == 0) continue;
        svg.circle(x, yOf(piece.most), worstColour, 1.6);
        middle.push_back({x, yOf(piece.at(0.5))});
        high.push_back({x, yOf(piece.at(0.99))});
    }
    svg.path(high, highColour);
    svg.path(middle, middleColour);
}

// Below 10 µs some steps lie between two whole microseconds: they belong to the one in front.
std::size_t endOfStep(std::size_t step) {
    const auto begins = [](std::size_t s) {
        const double first = std::ceil(Timeline::latenessOf(static_cast<double>(s)));
        return Timeline::stepOf(static_cast<std::uint32_t>(first)) == s;
    };
    do {
        ++step;
    } while (step < Timeline::steps && !begins(step));
    return step;
}

void drawShares(Svg& svg, const Figures& figures) {
    std::array<double, Timeline::steps> shares{};
    for (const Timeline::Piece& piece : figures.timeline.pieces()) {
        for (std::size_t s = 0; s < shares.size(); ++s) shares[s] += piece.counts[s];
    }
    const double bottom = shareTop + shareHeight;
    const double most = *std::max_element(shares.begin(), shares.end());
    for (std::size_t d = 0; d <= Timeline::decades; ++d) {
        const double x = left + width * partOf(std::pow(10.0, double(d)));
        svg.line(x, bottom, x, bottom + 4, grey);
        svg.label(x, bottom + 17, decadeNames[d], grey, "middle");
    }
    svg.line(left, bottom, left + width, bottom, grey);
    svg.label(left, shareTop - 10, "How often a burst left so far behind its deadline");
    if (most == 0) return;
    const double all = static_cast<double>(figures.late.count());
    svg.label(left - 6, shareTop + 4, Svg::number(most / all * 100) + " %", grey, "end");
    std::vector<Point> steps;
    for (std::size_t s = 0; s < shares.size();) {
        const std::size_t end = endOfStep(s);
        const double y = bottom - shareHeight * shares[s] / most;
        for (const std::size_t edge : {s, end}) {
            steps.push_back({left + width * static_cast<double>(edge) / double(shares.size()), y});
        }
        s = end;
    }
    svg.path(steps, middleColour);
}

std::string captionOf(const Figures& f) {
    char text[256];
    if (f.late.count() == 0) {
        return f.packets == 0 ? "No packet trace was heard"
                              : "No deadlines are known: " + std::to_string(f.packets) + " packets";
    }
    std::snprintf(text, sizeof text,
                  "%llu bursts: p50 %u us, p99 %u us, worst %u us; late turns %llu, "
                  "resend requests %llu",
                  static_cast<unsigned long long>(f.late.count()), f.late.at(0.5), f.late.at(0.99),
                  f.late.most(), static_cast<unsigned long long>(f.lateTurns),
                  static_cast<unsigned long long>(f.resendRequests));
    return text;
}

}  // namespace

std::string pictureOf(const Figures& figures) {
    Svg svg(left + width + 50, shareTop + shareHeight + 34);
    svg.label(left, 22, captionOf(figures));
    double x = left;
    const auto key = [&](const char* words, const char* colour, double room) {
        svg.label(x, 44, words, colour);
        x += room;
    };
    key("Behind the deadline, over time:", "black", 190);
    key("half of the bursts below", middleColour, 150);
    key("99 % below", highColour, 85);
    key("the worst", worstColour, 75);
    if (figures.resendRequests != 0) key("resend requests", resendColour, 0);
    drawOverTime(svg, figures);
    drawShares(svg, figures);
    return svg.text();
}

}  // namespace velmora_log
