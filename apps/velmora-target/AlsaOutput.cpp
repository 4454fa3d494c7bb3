// A sound device. Its clock is not the target's: the target's is trimmed to follow it, by how much
// the device still has to play.
#include <alsa/asoundlib.h>

#include <algorithm>

#include "apps/audio/DsdWords.h"
#include "apps/velmora-target/Outputs.h"
#include "target/FormatMasks.h"

namespace velmora_target {

namespace {

using VELMORA::SinkConfig;
using VELMORA::wire::ConstBytes;
using velmora_audio::DsdOrder;

constexpr unsigned deviceMicros = 200'000;  // room for what is left at the end of a stream
constexpr double aimMicros = 20'000;        // that the device is to have in hand
constexpr double ppmPerMicro = 0.5;         // 100 ppm of drift cost 0.2 ms of that
constexpr double mostPpm = 3'000;

snd_pcm_format_t pcmFormatOf(SinkConfig format) {
    switch (format.word & SinkConfig::formatMask) {
        case SinkConfig::pcm8:
            return SND_PCM_FORMAT_S8;
        case SinkConfig::pcm16:
            return SND_PCM_FORMAT_S16_LE;
        case SinkConfig::pcm24:
            return SND_PCM_FORMAT_S24_3LE;
        case SinkConfig::pcm32:
            return SND_PCM_FORMAT_S32_LE;
        case SinkConfig::float32:
            return SND_PCM_FORMAT_FLOAT_LE;
        case SinkConfig::float64:
            return SND_PCM_FORMAT_FLOAT64_LE;
        default:
            return SND_PCM_FORMAT_UNKNOWN;
    }
}

class AlsaOutput final : public AudioOutput {
public:
    explicit AlsaOutput(std::string device) : device_(std::move(device)) {}
    ~AlsaOutput() override { close(); }

    std::string open(SinkConfig format) override {
        const int error =
            snd_pcm_open(&pcm_, device_.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
        if (error < 0) {
            pcm_ = nullptr;
            return where() + ": " + snd_strerror(error);
        }
        const std::string failure = setFormat(format);
        if (!failure.empty()) close();
        return failure;
    }

    bool write(ConstBytes frames) override {
        ConstBytes left = frames;
        if (isDsd_) {
            // To bytes in the order of time, and from there to the device's words.
            bytes_.resize(frames.size());
            words_.resize(frames.size());
            velmora_audio::bytesFromDsdWords(streamOrder_, channels_, frames, bytes_);
            velmora_audio::dsdWordsFromBytes(deviceOrder_, channels_, bytes_, words_);
            left = words_;
        }
        if (snd_pcm_state(pcm_) == SND_PCM_STATE_PREPARED && !refill()) return false;
        while (!left.empty()) {
            const snd_pcm_sframes_t done =
                snd_pcm_writei(pcm_, left.data(), left.size() / frameBytes_);
            if (done == -EAGAIN) break;  // the device has stopped playing; it is not waited for
            if (done < 0) {
                if (snd_pcm_recover(pcm_, static_cast<int>(done), /*silent=*/1) < 0) return false;
                if (!refill()) return false;
                continue;
            }
            left = left.subspan(static_cast<std::size_t>(done) * frameBytes_);
        }
        return true;
    }

    double clockCorrectionPpm() override {
        snd_pcm_sframes_t delay = 0;
        if (snd_pcm_state(pcm_) != SND_PCM_STATE_RUNNING || snd_pcm_delay(pcm_, &delay) < 0) {
            return 0;
        }
        const double missing = aimMicros - static_cast<double>(delay) * 1e6 / rate_;
        return std::clamp(missing * ppmPerMicro, -mostPpm, mostPpm);
    }

    std::string close() override {
        if (pcm_ == nullptr) return {};
        snd_pcm_nonblock(pcm_, 0);
        snd_pcm_drain(pcm_);
        snd_pcm_close(pcm_);
        pcm_ = nullptr;
        return {};
    }
    std::string where() const override { return "alsa:" + device_; }

private:
    std::string setFormat(SinkConfig format) {
        channels_ = format.channels();
        frameBytes_ = format.frameBytes();
        rate_ = frameRate(format);
        isDsd_ = format.isDsd();
        silence_ = VELMORA::silenceByte(format, /*inverted=*/false);
        if (!isDsd_) {
            const snd_pcm_format_t wanted = pcmFormatOf(format);
            return wanted == SND_PCM_FORMAT_UNKNOWN ? cannot(format)
                                                    : setParameters(wanted, format);
        }
        if ((format.word & SinkConfig::formatMask) != SinkConfig::dsd1) return cannot(format);
        streamOrder_ = {format.has(SinkConfig::dsdLsb), format.has(SinkConfig::dsdLittle)};
        silence_ = 0x96;  // the device takes the oldest sample as the highest bit
        deviceOrder_ = {/*oldestIsLsb=*/false, /*littleEndian=*/false};
        std::string failure = setParameters(SND_PCM_FORMAT_DSD_U32_BE, format);
        if (failure.empty()) return failure;
        deviceOrder_.littleEndian = true;
        return setParameters(SND_PCM_FORMAT_DSD_U32_LE, format);
    }

    std::string setParameters(snd_pcm_format_t wanted, SinkConfig format) {
        const int error =
            snd_pcm_set_params(pcm_, wanted, SND_PCM_ACCESS_RW_INTERLEAVED, channels_,
                               static_cast<unsigned>(rate_), /*soft_resample=*/0, deviceMicros);
        return error < 0 ? cannot(format) + " (" + snd_strerror(error) + ")" : std::string();
    }

    std::string cannot(SinkConfig format) const {
        return where() + " does not take " + sampleFormatName(format) + ", " +
               std::to_string(format.channels()) + " channels, " + std::to_string(format.rate()) +
               " Hz";
    }

    // What the device is to have in hand, as silence, and off it goes.
    bool refill() {
        const auto frames = static_cast<std::size_t>(aimMicros * rate_ / 1e6);
        const std::vector<std::uint8_t> silence(frames * frameBytes_, silence_);
        if (snd_pcm_writei(pcm_, silence.data(), frames) < 0) return false;
        return snd_pcm_start(pcm_) == 0 || snd_pcm_state(pcm_) == SND_PCM_STATE_RUNNING;
    }

    std::string device_;
    snd_pcm_t* pcm_ = nullptr;
    unsigned channels_ = 2;
    std::size_t frameBytes_ = 1;
    double rate_ = 1;
    std::uint8_t silence_ = 0;
    bool isDsd_ = false;
    DsdOrder streamOrder_, deviceOrder_;
    std::vector<std::uint8_t> bytes_, words_;
};

}  // namespace

std::unique_ptr<AudioOutput> alsaOutput(const std::string& device) {
    return std::make_unique<AlsaOutput>(device);
}

}  // namespace velmora_target
