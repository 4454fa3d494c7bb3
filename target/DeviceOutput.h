// Plays on a sound device.
//
// The device is kept filled to its brim: what it plays makes room, and that room is what playout
// fills. So the device's clock rules, and nothing has to be measured. When it runs dry it is set up
// anew and goes on with silence, until the stream has enough for it again.
#pragma once

#include <memory>
#include <string>

#include "target/AudioOutput.h"
#include "target/DeviceFormats.h"
#include "target/PcmDevice.h"

namespace velmora_target {

class DeviceOutput final : public AudioOutput {
public:
    // `name` as the command line has it, behind "alsa:".
    DeviceOutput(std::string name, std::unique_ptr<PcmDevice> device, const PcmTimes& times);
    // What is still to be heard is waited for, but no longer than mostWait.
    ~DeviceOutput() override;

    std::string open(VELMORA::SinkConfig format) override;
    bool write(VELMORA::wire::ConstBytes frames) override;
    std::string close() override;
    std::string where() const override;

    std::optional<DeviceFill> device() override;
    void rest() override;
    std::string gone() const override { return gone_; }
    bool stillPlays(std::uint64_t now) override;

    static constexpr std::uint64_t mostWait = 300'000;  // µs

private:
    bool heal(std::int64_t error);
    void fail(std::int64_t error);
    std::uint64_t held();
    std::uint64_t pending() const noexcept { return (pending_.size() - sent_) / plan_.frameBytes; }
    void pump();
    void startWith(std::uint64_t least);

    const std::string name_;
    const std::unique_ptr<PcmDevice> device_;
    const PcmTimes times_;
    VELMORA::SinkConfig format_{};
    DevicePlan plan_;
    PcmRoom room_;
    std::uint64_t wanted_ = 0;  // frames of the device: what of its buffer is whole frames of ours
    ZENNO::Bytes pending_;      // frames of the device that it had no room for, from sent_ on
    std::size_t sent_ = 0;
    ZENNO::Bytes silence_;
    std::string gone_;
    std::uint64_t given_ = 0;  // frames of the device, since it began anew
    std::uint64_t underruns_ = 0;
    std::uint64_t deadline_ = 0;  // of what is played behind the end; 0 before that is known
    bool isOpen_ = false, isRunning_ = false, isSuspended_ = false, isEnding_ = false;
};

// What a device takes, by asking it. It is closed again.
TakenFormats formatsOf(const std::string& name, PcmDevice& device, const FormatMasks& allowed);

}  // namespace velmora_target
