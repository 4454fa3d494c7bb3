#include "apps/velmora-target/alsa/AlsaDevice.h"

#include <alsa/asoundlib.h>
#include <time.h>

#include <cerrno>
#include <cstdlib>

namespace velmora_target {

namespace {

snd_pcm_format_t alsaFormat(PcmFormat format) {
    switch (format) {
        case PcmFormat::s8:
            return SND_PCM_FORMAT_S8;
        case PcmFormat::s16:
            return SND_PCM_FORMAT_S16_LE;
        case PcmFormat::s24in3:
            return SND_PCM_FORMAT_S24_3LE;
        case PcmFormat::s24in4:
            return SND_PCM_FORMAT_S24_LE;
        case PcmFormat::s32:
            return SND_PCM_FORMAT_S32_LE;
        case PcmFormat::float32:
            return SND_PCM_FORMAT_FLOAT_LE;
        case PcmFormat::float64:
            return SND_PCM_FORMAT_FLOAT64_LE;
        case PcmFormat::dsd8:
            return SND_PCM_FORMAT_DSD_U8;
        case PcmFormat::dsd16Little:
            return SND_PCM_FORMAT_DSD_U16_LE;
        case PcmFormat::dsd16Big:
            return SND_PCM_FORMAT_DSD_U16_BE;
        case PcmFormat::dsd32Little:
            return SND_PCM_FORMAT_DSD_U32_LE;
        case PcmFormat::dsd32Big:
            return SND_PCM_FORMAT_DSD_U32_BE;
    }
    return SND_PCM_FORMAT_UNKNOWN;
}

// The library would tell its own troubles on the standard error; ours are told in one sentence.
void sayNothing(const char*, int, const char*, int, const char*, ...) {}

class AlsaDevice final : public PcmDevice {
public:
    explicit AlsaDevice(std::string name) : name_(std::move(name)) {
        snd_lib_error_set_handler(sayNothing);
        snd_pcm_hw_params_malloc(&hardware_);
        snd_pcm_sw_params_malloc(&software_);
    }
    ~AlsaDevice() override {
        close();
        snd_pcm_hw_params_free(hardware_);
        snd_pcm_sw_params_free(software_);
    }
    AlsaDevice(const AlsaDevice&) = delete;
    AlsaDevice& operator=(const AlsaDevice&) = delete;

    int open() override {
        close();
        if (hardware_ == nullptr || software_ == nullptr) return -ENOMEM;
        const int error =
            snd_pcm_open(&pcm_, name_.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
        if (error < 0) pcm_ = nullptr;
        return error;
    }

    bool takes(const PcmShape& shape) override { return choose(shape) >= 0; }

    int setUp(const PcmShape& shape, const PcmTimes& times, PcmRoom& granted) override {
        int error = choose(shape);
        unsigned buffer = times.bufferMicros, period = times.periodMicros;
        if (error >= 0) {
            error = snd_pcm_hw_params_set_buffer_time_near(pcm_, hardware_, &buffer, nullptr);
        }
        if (error >= 0) {
            error = snd_pcm_hw_params_set_period_time_near(pcm_, hardware_, &period, nullptr);
        }
        if (error >= 0) error = snd_pcm_hw_params(pcm_, hardware_);
        snd_pcm_uframes_t bufferFrames = 0, periodFrames = 0;
        if (error >= 0) error = snd_pcm_get_params(pcm_, &bufferFrames, &periodFrames);
        if (error >= 0) error = startByHand();
        granted = {bufferFrames, periodFrames};
        isDraining_ = false;
        return error;
    }

    int prepare() override {
        isDraining_ = false;
        return snd_pcm_prepare(pcm_);
    }
    int start() override { return snd_pcm_start(pcm_); }
    int resume() override { return snd_pcm_resume(pcm_); }
    std::int64_t room() override { return snd_pcm_avail(pcm_); }
    std::int64_t write(const std::uint8_t* frames, std::size_t count) override {
        return snd_pcm_writei(pcm_, frames, count);
    }

    int drain() override {
        // Some devices that are software get on with it only when they are asked again.
        if (isDraining_ && snd_pcm_state(pcm_) != SND_PCM_STATE_DRAINING) return 0;
        isDraining_ = true;
        return snd_pcm_drain(pcm_);
    }

    void close() override {
        if (pcm_ == nullptr) return;
        snd_pcm_close(pcm_);
        pcm_ = nullptr;
    }

    void sleep(std::uint64_t micros) override {
        const timespec time{static_cast<time_t>(micros / 1'000'000),
                            static_cast<long>(micros % 1'000'000 * 1000)};
        ::nanosleep(&time, nullptr);
    }

    std::string others() override {
        std::string list;
        for (int card = -1; snd_card_next(&card) == 0 && card >= 0;) {
            char* name = nullptr;
            if (snd_card_get_name(card, &name) != 0) continue;
            list += (list.empty() ? "hw:" : ", hw:") + std::to_string(card) + " (" + name + ")";
            std::free(name);
        }
        return list;
    }

private:
    // All that the shape says, and no converting of rates behind it.
    int choose(const PcmShape& shape) {
        int error = snd_pcm_hw_params_any(pcm_, hardware_);
        if (error >= 0) error = snd_pcm_hw_params_set_rate_resample(pcm_, hardware_, 0);
        if (error >= 0) {
            error = snd_pcm_hw_params_set_access(pcm_, hardware_, SND_PCM_ACCESS_RW_INTERLEAVED);
        }
        if (error >= 0) {
            error = snd_pcm_hw_params_set_format(pcm_, hardware_, alsaFormat(shape.format));
        }
        if (error >= 0) {
            error = snd_pcm_hw_params_set_channels(pcm_, hardware_, shape.channels);
        }
        if (error >= 0) error = snd_pcm_hw_params_set_rate(pcm_, hardware_, shape.rate, 0);
        return error;
    }

    // Playing begins when it is told to, not when so much is there.
    int startByHand() {
        snd_pcm_uframes_t never = 0;
        int error = snd_pcm_sw_params_current(pcm_, software_);
        if (error >= 0) error = snd_pcm_sw_params_get_boundary(software_, &never);
        if (error >= 0) error = snd_pcm_sw_params_set_start_threshold(pcm_, software_, never);
        if (error >= 0) error = snd_pcm_sw_params(pcm_, software_);
        return error;
    }

    const std::string name_;
    snd_pcm_t* pcm_ = nullptr;
    snd_pcm_hw_params_t* hardware_ = nullptr;
    snd_pcm_sw_params_t* software_ = nullptr;
    bool isDraining_ = false;
};

}  // namespace

std::unique_ptr<PcmDevice> alsaDevice(const std::string& name) {
    return std::make_unique<AlsaDevice>(name);
}

}  // namespace velmora_target
