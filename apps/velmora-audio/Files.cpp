// WAV, RF64 and whatever else libsndfile reads, and DSF, as frames of numbers.
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "apps/audio/DsfFile.h"
#include "apps/velmora-audio/Compare.h"

namespace velmora_audio {
namespace {

class SoundFile final : public Frames {
public:
    explicit SoundFile(const std::string& path)
        : file_(sf_open(path.c_str(), SFM_READ, &info_), sf_close) {
        if (!file_) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    std::uint32_t channels() const override { return static_cast<std::uint32_t>(info_.channels); }
    std::uint32_t rate() const override { return static_cast<std::uint32_t>(info_.samplerate); }
    int bits() const override {
        switch (info_.format & SF_FORMAT_SUBMASK) {
            case SF_FORMAT_PCM_S8:
            case SF_FORMAT_PCM_U8:
                return 8;
            case SF_FORMAT_PCM_16:
                return 16;
            case SF_FORMAT_PCM_24:
                return 24;
            case SF_FORMAT_PCM_32:
                return 32;
            default:
                return 64;
        }
    }
    bool isSilence(double v) const override { return v == 0.0; }
    std::size_t read(std::span<double> samples) override {
        const auto frames = static_cast<sf_count_t>(samples.size() / channels());
        return static_cast<std::size_t>(sf_readf_double(file_.get(), samples.data(), frames));
    }

private:
    SF_INFO info_{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
};

class DsdFile final : public Frames {
public:
    explicit DsdFile(const std::string& path) {
        const Failure failure = file_.open(path);
        if (!failure.empty()) throw std::runtime_error(failure);
    }
    std::uint32_t channels() const override { return file_.format().channels; }
    std::uint32_t rate() const override { return file_.format().sampleRate; }
    int bits() const override { return 1; }
    // The pattern of silence in either bit order, and what fills a file's last block.
    bool isSilence(double v) const override { return v == 0x69 || v == 0x96 || v == 0; }
    std::size_t read(std::span<double> samples) override {
        raw_.resize(samples.size());
        const std::size_t got = file_.read(raw_);
        std::copy_n(raw_.begin(), got, samples.begin());
        return got / channels();
    }

private:
    DsfReader file_;
    std::vector<std::uint8_t> raw_;
};

}  // namespace

std::unique_ptr<Frames> openFrames(const std::string& path) {
    std::array<char, 4> magic{};
    std::ifstream(path, std::ios::binary).read(magic.data(), magic.size());
    if (std::string_view(magic.data(), magic.size()) == "DSD ")
        return std::make_unique<DsdFile>(path);
    return std::make_unique<SoundFile>(path);
}

}  // namespace velmora_audio
