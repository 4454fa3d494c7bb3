// PCM to WAV by libsndfile, DSD to DSF by our own writer.
#include <sndfile.h>

#include "apps/audio/DsdWords.h"
#include "apps/audio/DsfFile.h"
#include "apps/velmora-target/Outputs.h"
#include "target/FormatMasks.h"

namespace velmora_target {

namespace {

using VELMORA::SinkConfig;
using VELMORA::wire::ConstBytes;

int subtypeOf(SinkConfig format) {
    switch (format.word & SinkConfig::formatMask) {
        case SinkConfig::pcm16:
            return SF_FORMAT_PCM_16;
        case SinkConfig::pcm24:
            return SF_FORMAT_PCM_24;
        case SinkConfig::pcm32:
            return SF_FORMAT_PCM_32;
        case SinkConfig::float32:
            return SF_FORMAT_FLOAT;
        case SinkConfig::float64:
            return SF_FORMAT_DOUBLE;
        default:
            return 0;
    }
}

class WavOutput final : public AudioOutput {
public:
    explicit WavOutput(std::string path) : path_(std::move(path)) {}
    ~WavOutput() override { close(); }

    std::string open(SinkConfig format) override {
        const int subtype = subtypeOf(format);
        if (subtype == 0) {
            return std::string("a WAV file cannot hold ") + sampleFormatName(format);
        }
        SF_INFO info{};
        info.samplerate = static_cast<int>(format.rate());
        info.channels = static_cast<int>(format.channels());
        // RF64 from the start, so that it may grow; closed as plain WAV while it fits into that.
        info.format = SF_FORMAT_RF64 | subtype;
        file_ = sf_open(path_.c_str(), SFM_WRITE, &info);
        if (file_ == nullptr) return "cannot write " + path_ + ": " + sf_strerror(nullptr);
        sf_command(file_, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        return {};
    }
    bool write(ConstBytes frames) override {
        const auto size = static_cast<sf_count_t>(frames.size());
        return sf_write_raw(file_, frames.data(), size) == size;
    }
    std::string close() override {
        if (file_ == nullptr) return {};
        const bool good = sf_close(file_) == 0;
        file_ = nullptr;
        return good ? std::string() : "cannot finish " + path_;
    }
    std::string where() const override { return path_; }

private:
    std::string path_;
    SNDFILE* file_ = nullptr;
};

class DsfOutput final : public AudioOutput {
public:
    explicit DsfOutput(std::string path) : path_(std::move(path)) {}

    std::string open(SinkConfig format) override {
        if ((format.word & SinkConfig::formatMask) != SinkConfig::dsd1) {
            return std::string("a DSF file cannot hold ") + sampleFormatName(format);
        }
        order_ = {format.has(SinkConfig::dsdLsb), format.has(SinkConfig::dsdLittle)};
        channels_ = format.channels();
        return file_.open(path_, format.channels(), format.rate());
    }
    bool write(ConstBytes frames) override {
        bytes_.resize(frames.size());
        const std::size_t size =
            velmora_audio::bytesFromDsdWords(order_, channels_, frames, bytes_);
        return file_.write(std::span(bytes_).first(size)).empty();
    }
    std::string close() override { return file_.close(); }
    std::string where() const override { return path_; }

private:
    std::string path_;
    velmora_audio::DsfWriter file_;
    velmora_audio::DsdOrder order_;
    std::size_t channels_ = 1;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::unique_ptr<AudioOutput> wavOutput(const std::string& path) {
    return std::make_unique<WavOutput>(path);
}

std::unique_ptr<AudioOutput> dsfOutput(const std::string& path) {
    return std::make_unique<DsfOutput>(path);
}

}  // namespace velmora_target
