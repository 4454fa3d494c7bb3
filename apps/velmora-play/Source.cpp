#include "apps/velmora-play/Source.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/audio/DsdWords.h"
#include "apps/audio/DsfFile.h"
#include "apps/audio/WavFile.h"

namespace velmora_play {
namespace {

class WavSource final : public Source {
public:
    bool open(const std::string& path, std::string& error) {
        if (!file_.open(path)) {
            error = path + ": " + file_.error() + ".";
            return false;
        }
        const velmora_audio::WavFormat& wav = file_.format();
        format_ = {.isDsd = false,
                   .rate = wav.rate,
                   .channels = wav.channels,
                   .bits = wav.isFloat ? 64 : wav.bits,
                   .frames = wav.frames};
        return true;
    }
    std::uint64_t readPcm(std::span<double> samples) override { return file_.read(samples); }
    std::uint64_t readDsd(std::span<std::uint8_t>) override { return 0; }

private:
    velmora_audio::WavFile file_;
};

class DsfSource final : public Source {
public:
    bool open(const std::string& path, std::string& error) {
        error = file_.open(path);
        if (!error.empty()) {
            error += ".";
            return false;
        }
        const velmora_audio::DsfFormat& dsf = file_.format();
        format_ = {.isDsd = true,
                   .rate = dsf.sampleRate,
                   .channels = dsf.channels,
                   .bits = 1,
                   .frames = dsf.samples};
        return true;
    }
    std::uint64_t readPcm(std::span<double>) override { return 0; }
    std::uint64_t readDsd(std::span<std::uint8_t> bytes) override {
        const std::size_t got = file_.read(bytes);
        for (std::uint8_t& b : bytes.first(got))
            b = velmora_audio::reverseBits(b);  // the file's oldest is bit 0
        return got / format_.channels;
    }

private:
    velmora_audio::DsfReader file_;
};

class ToneSource final : public Source {
public:
    explicit ToneSource(const Tone& tone)
        : phase_(tone.channels, 0.0), steps_(std::ldexp(1.0, static_cast<int>(tone.bits) - 1)) {
        format_ = {.isDsd = false,
                   .rate = tone.rate,
                   .channels = tone.channels,
                   .bits = tone.bits,
                   .frames = static_cast<std::uint64_t>(tone.seconds * tone.rate)};
        for (std::uint32_t c = 0; c < tone.channels; ++c) {
            const double hertz = std::min(tone.hertz * std::pow(1.5, c), tone.rate / 2.5);
            turn_.push_back(2.0 * std::numbers::pi * hertz / tone.rate);
        }
    }
    std::uint64_t readPcm(std::span<double> samples) override {
        const std::uint64_t frames =
            std::min<std::uint64_t>(samples.size() / format_.channels, format_.frames - next_);
        for (std::uint64_t n = 0; n < frames; ++n) {
            for (std::uint32_t c = 0; c < format_.channels; ++c) {
                samples[n * format_.channels + c] =
                    std::round(0.25 * std::sin(phase_[c]) * steps_) / steps_;
                phase_[c] = std::fmod(phase_[c] + turn_[c], 2.0 * std::numbers::pi);
            }
        }
        next_ += frames;
        return frames;
    }
    std::uint64_t readDsd(std::span<std::uint8_t>) override { return 0; }

private:
    std::vector<double> phase_, turn_;
    double steps_;
    std::uint64_t next_ = 0;
};

class Limited final : public Source {
public:
    Limited(std::unique_ptr<Source> source, std::uint32_t bits, double seconds)
        : source_(std::move(source)) {
        format_ = source_->format();
        if (!format_.isDsd && bits != 0 && bits < format_.bits) {
            format_.bits = bits;
            steps_ = std::ldexp(1.0, static_cast<int>(bits) - 1);
        }
        if (seconds > 0) {
            auto frames = static_cast<std::uint64_t>(seconds * format_.rate);
            if (format_.isDsd) frames -= frames % 8;
            format_.frames = std::min(format_.frames, frames);
        }
    }
    std::uint64_t readPcm(std::span<double> samples) override {
        const std::uint64_t left = format_.frames - done_;
        const std::uint64_t frames = source_->readPcm(
            samples.first(std::min<std::uint64_t>(samples.size(), left * format_.channels)));
        if (steps_ != 0.0) {
            for (double& v : samples.first(frames * format_.channels)) v = cut(v);
        }
        done_ += frames;
        return frames;
    }
    std::uint64_t readDsd(std::span<std::uint8_t> bytes) override {
        // The samples of a file may end inside a byte: it is played whole.
        const std::uint64_t frames = format_.frames - done_;
        const std::uint64_t left = frames / 8 + (frames % 8 != 0 ? 1 : 0);
        const std::uint64_t got = source_->readDsd(
            bytes.first(std::min<std::uint64_t>(bytes.size(), left * format_.channels)));
        done_ += std::min(got * 8, frames);
        return got;
    }

private:
    // Rounded down, and within the range of the width; what is no number stays none.
    double cut(double v) const {
        const double steps = std::floor(v * steps_);
        return std::isnan(steps) ? v : std::clamp(steps, -steps_, steps_ - 1.0) / steps_;
    }

    std::unique_ptr<Source> source_;
    double steps_ = 0.0;
    std::uint64_t done_ = 0;
};

}  // namespace

std::unique_ptr<Source> openFile(const std::string& path, std::string& error) {
    std::array<char, 4> magic{};
    std::ifstream file(std::filesystem::u8path(path), std::ios::binary);
    if (!file.read(magic.data(), magic.size())) {
        error = path + ": the file cannot be read.";
        return nullptr;
    }
    if (std::string_view(magic.data(), magic.size()) == "DSD ") {
        auto dsf = std::make_unique<DsfSource>();
        if (dsf->open(path, error)) return dsf;
        return nullptr;
    }
    auto wav = std::make_unique<WavSource>();
    if (wav->open(path, error)) return wav;
    return nullptr;
}

std::unique_ptr<Source> makeTone(const Tone& tone) {
    return std::make_unique<ToneSource>(tone);
}

std::unique_ptr<Source> limited(std::unique_ptr<Source> source, std::uint32_t bits,
                                double seconds) {
    return std::make_unique<Limited>(std::move(source), bits, seconds);
}

}  // namespace velmora_play
