#include "apps/velmora-audio/Music.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace velmora_audio {
namespace {

// A plucked string after Karplus and Strong (Computer Music Journal 7/2, 1983): a burst of noise
// that goes round in a delay line and loses its edges on the way.
void pluck(std::vector<double>& out, std::uint64_t at, double hertz, double rate, double level,
           std::mt19937& noise) {
    const auto period = static_cast<std::size_t>(std::max(2.0, rate / hertz));
    std::vector<double> line(period);
    // Not a standard distribution: its output may differ from library to library.
    for (double& v : line) v = static_cast<double>(noise()) / 2147483648.0 - 1.0;
    const double keep =
        0.5 * std::pow(0.001, 1.0 / (hertz * 2.5));  // 60 dB in two and a half seconds
    const std::uint64_t end =
        std::min<std::uint64_t>(out.size(), at + static_cast<std::uint64_t>(rate * 3));
    std::size_t i = 0;
    for (std::uint64_t n = at; n < end; ++n) {
        out[n] += level * line[i];
        const std::size_t next = i + 1 == period ? 0 : i + 1;
        line[i] = keep * (line[i] + line[next]);
        i = next;
    }
}

}  // namespace

std::vector<std::vector<double>> makeMusic(std::uint32_t rate, std::uint32_t channels,
                                           std::uint64_t frames, std::uint32_t seed) {
    constexpr std::array<int, 10> scale = {0,  3,  5,  7,  10,
                                           12, 15, 17, 19, 22};  // minor, five tones
    std::vector<std::vector<double>> music(channels, std::vector<double>(frames, 0.0));
    const double rateHz = rate;
    for (std::uint32_t c = 0; c < channels; ++c) {
        std::mt19937 noise(seed + 7919 * c);
        std::vector<double>& out = music[c];
        // A slow bass with a little vibrato, its phase and pitch the channel's own.
        double phase = 0.37 * (c + 1);
        for (std::uint64_t n = 0; n < frames; ++n) {
            const double t = static_cast<double>(n) / rateHz;
            const double hertz = 55.0 * (1.0 + 0.11 * c) * (1.0 + 0.004 * std::sin(5.1 * t + c));
            phase += 2.0 * std::numbers::pi * hertz / rateHz;
            out[n] = 0.30 * std::sin(phase) + 0.07 * std::sin(3.0 * phase + t);
        }
        // Eight notes a second, from the first frame on.
        const auto step = std::max<std::uint64_t>(1, rate / 8);
        for (std::uint64_t at = 0; at < frames; at += step) {
            const int tone = scale[noise() % scale.size()];
            const double level = 0.25 + 0.5 * (static_cast<double>(noise() % 1000) / 1000.0);
            pluck(out, at, 220.0 * std::pow(2.0, tone / 12.0), rateHz, level, noise);
        }
        double loudest = 0;
        for (const double v : out) loudest = std::max(loudest, std::abs(v));
        if (loudest > 0) {
            for (double& v : out) v /= loudest;
        }
    }
    return music;
}

std::vector<std::uint8_t> modulate(const std::vector<double>& samples, std::uint32_t ratio) {
    std::vector<std::uint8_t> out(samples.size() * ratio / 8, 0);
    double first = 0, second = 0;
    std::uint64_t bit = 0;
    for (const double sample : samples) {
        for (std::uint32_t i = 0; i < ratio && bit / 8 < out.size(); ++i, ++bit) {
            const double fed = second >= 0 ? 1.0 : -1.0;
            first +=
                0.5 * sample - fed;  // half scale: what the modulator takes without running away
            second += first - fed;
            first = std::clamp(first, -8.0, 8.0);
            second = std::clamp(second, -8.0, 8.0);
            if (fed > 0) out[bit / 8] = static_cast<std::uint8_t>(out[bit / 8] | 1u << (bit % 8));
        }
    }
    return out;
}

}  // namespace velmora_audio
