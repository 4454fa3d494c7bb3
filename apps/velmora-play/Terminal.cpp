#include "apps/velmora-play/Terminal.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>

#include "platform/Terminal.h"

namespace velmora_play {
namespace {

constexpr int barWidth = 24;
constexpr double plainEvery = 2.0;  // seconds of audio between two lines where there is no terminal

std::string clock(double seconds) {
    // A header may claim any length.
    const auto whole = static_cast<long long>(std::clamp(seconds, 0.0, 1e12));
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

}  // namespace

bool sameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

std::string progressText(const Progress& progress) {
    const double part =
        progress.total > 0 ? std::clamp(progress.seconds / progress.total, 0.0, 1.0) : 0.0;
    const auto filled = static_cast<std::size_t>(part * barWidth);
    return clock(progress.seconds) + " / " + clock(progress.total) + "  [" +
           std::string(filled, '#') + std::string(barWidth - filled, '-') + "]  " +
           std::to_string(progress.switches) + " switches, position " +
           std::to_string(progress.position);
}

ProgressLine::ProgressLine(bool quiet)
    : quiet_(quiet), isTerminal_(ZENNO::platform::errorIsTerminal()) {}

void ProgressLine::show(const std::string& title, const Progress& progress) {
    if (quiet_) return;
    if (!titled_) std::cerr << title << '\n';
    titled_ = true;
    last_ = progressText(progress);
    if (isTerminal_) {
        std::cerr << '\r' << last_ << std::flush;
        open_ = true;
    } else if (progress.seconds - lastShown_ >= plainEvery) {
        std::cerr << last_ << '\n';
        lastShown_ = progress.seconds;
        last_.clear();
    }
}

void ProgressLine::end() {
    if (quiet_) return;
    if (open_) {
        std::cerr << '\n';
    } else if (!last_.empty()) {
        std::cerr << last_ << '\n';
    }
    open_ = false;
}

}  // namespace velmora_play
