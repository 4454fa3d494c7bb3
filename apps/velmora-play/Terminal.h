// What the player shows while it plays.
#pragma once

#include <string>
#include <string_view>

#include "apps/velmora-play/Host.h"

namespace velmora_play {

// Names of drivers are compared without case, as hosts do.
bool sameName(std::string_view a, std::string_view b);

// "0:05 / 0:10  [############------------]  261 switches, position 133632"
std::string progressText(const Progress& progress);

// On a terminal one line that is written over; elsewhere a line every few seconds.
class ProgressLine {
public:
    explicit ProgressLine(bool quiet);
    void show(const std::string& title, const Progress& progress);
    void end();

private:
    bool quiet_, isTerminal_;
    bool titled_ = false, open_ = false;
    double lastShown_ = -1e9;
    std::string last_;
};

}  // namespace velmora_play
