#include "apps/velmora-audio/Compare.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace velmora_audio {
namespace {

constexpr std::size_t chunkFrames = 1 << 14;

// Frames one at a time, over reads of many.
class Cursor {
public:
    explicit Cursor(Frames& from) : from_(from), buffer_(chunkFrames * from.channels()) {}

    // The next frame, or an empty span at the end. Valid until the next call.
    std::span<const double> next() {
        const std::size_t channels = from_.channels();
        if (at_ == filled_) {
            filled_ = from_.read(buffer_);
            at_ = 0;
            if (filled_ == 0) return {};
        }
        return std::span<const double>(buffer_).subspan(channels * at_++, channels);
    }

private:
    Frames& from_;
    std::vector<double> buffer_;
    std::size_t filled_ = 0, at_ = 0;
};

// Cuts a PCM sample to the width of the comparison: a step of that width, rounded down and within
// its range (floating point reaches further: full scale is one step more than integers have).
struct Narrow {
    double steps = 0.0;  // 0: as it is
    double operator()(double v) const {
        if (steps == 0.0) return v;
        return std::isnan(v) ? 0.0 : std::clamp(std::floor(v * steps), -steps, steps - 1.0);
    }
};

bool sounds(const Frames& file, const Narrow& narrow, std::span<const double> frame) {
    return std::any_of(frame.begin(), frame.end(),
                       [&](double v) { return !file.isSilence(v) && !file.isSilence(narrow(v)); });
}

std::span<const double> firstSounding(Cursor& cursor, const Frames& file, const Narrow& narrow,
                                      std::uint64_t& skipped) {
    for (;;) {
        const std::span<const double> frame = cursor.next();
        if (frame.empty() || sounds(file, narrow, frame)) return frame;
        ++skipped;
    }
}

}  // namespace

Comparison compare(Frames& played, Frames& written) {
    if (played.channels() != written.channels()) {
        throw std::runtime_error("what was written has " + std::to_string(written.channels()) +
                                 " channels, what was played " + std::to_string(played.channels()));
    }
    if (played.rate() != written.rate()) {
        throw std::runtime_error("what was written has a rate of " +
                                 std::to_string(written.rate()) + " Hz, what was played " +
                                 std::to_string(played.rate()) + " Hz");
    }
    if ((played.bits() == 1) != (written.bits() == 1)) {
        throw std::runtime_error("one file is DSD and the other PCM");
    }
    Comparison result;
    result.rate = played.rate();
    result.channels = played.channels();
    result.bits = std::min(played.bits(), written.bits());
    const Narrow narrow{result.bits < 64 && result.bits > 1 ? std::ldexp(1.0, result.bits - 1)
                                                            : 0.0};

    Cursor from(played), to(written);
    std::uint64_t ignored = 0;
    std::span<const double> a = firstSounding(from, played, narrow, ignored);
    std::span<const double> b = firstSounding(to, written, narrow, result.leading);
    while (!a.empty()) {
        if (b.empty()) {
            ++result.missing;
        } else {
            const bool same = std::equal(a.begin(), a.end(), b.begin(), [&](double x, double y) {
                return narrow(x) == narrow(y);
            });
            if (!same && result.wrong++ == 0) result.firstWrong = result.played;
            b = to.next();
        }
        ++result.played;
        a = from.next();
    }
    for (; !b.empty(); b = to.next()) result.trailingNoise += sounds(written, narrow, b) ? 1u : 0u;
    return result;
}

}  // namespace velmora_audio
