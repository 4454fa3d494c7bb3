#include "bench/Progress.h"

#include <algorithm>
#include <cstdio>

#include "platform/Terminal.h"

namespace velmora_bench {

void Progress::begin(const std::string& group, double seconds) {
    group_ = group;
    present_ = seconds;
    part_ = 0;
    show(group);
}

void Progress::round(int k, int n) {
    part_ = static_cast<double>(k - 1) / n;
    char text[96];
    std::snprintf(text, sizeof text, "%s: round %d of %d, about %.0f s left", group_.c_str(), k, n,
                  secondsLeft());
    show(text);
}

void Progress::end() {
    done_ += present_;
    present_ = part_ = 0;
    if (ZENNO::platform::errorIsTerminal()) std::fprintf(stderr, "\r\033[K");
}

// By the plan, stretched as what is done has been.
double Progress::secondsLeft() const {
    const double done = done_ + present_ * part_;
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
    const double stretch = done > 5 ? std::clamp(took / done, 0.5, 4.0) : 1;
    return std::max(0.0, planned_ - done) * stretch;
}

void Progress::show(const std::string& text) const {
    if (ZENNO::platform::errorIsTerminal()) {
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
    } else {
        std::fprintf(stderr, "%s\n", text.c_str());
    }
}

}  // namespace velmora_bench
