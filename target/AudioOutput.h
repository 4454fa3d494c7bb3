// Where played audio goes. The target hands over whole frames of the stream's format, in order.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "driver/SinkConfig.h"
#include "target/FormatMasks.h"
#include "wire/Packet.h"

namespace velmora_target {

// What a device that plays at its own pace has in hand, in frames of the stream.
struct DeviceFill {
    std::uint64_t held = 0;    // given to it and not yet played
    std::uint64_t wanted = 0;  // to be held while it plays
    std::uint64_t least = 0;   // with no more than this it may be dry before it is looked at again
    std::uint64_t underruns = 0;  // since it was opened: times that it stopped by itself
};

class AudioOutput {
public:
    virtual ~AudioOutput() = default;
    // Before a stream starts. A text that says why it cannot be; empty when it can.
    virtual std::string open(VELMORA::SinkConfig format) = 0;
    // False when it failed; the stream goes on without it, and the failure is told once.
    virtual bool write(VELMORA::wire::ConstBytes frames) = 0;
    virtual std::string close() = 0;        // as open
    virtual std::string where() const = 0;  // a path, a device's name, or empty

    // Only a device with a clock of its own does anything about what follows. Its clock rules the
    // stream then; nothing means that the target's clock does.
    virtual std::optional<DeviceFill> device() { return std::nullopt; }
    // There is nothing to write for now: a device that has begun to play goes on with silence.
    virtual void rest() {}
    // Why nothing can be played on it any more, so that its stream has to end; empty while it can.
    virtual std::string gone() const { return {}; }
    // After close: whether something of the stream is still to be heard. Who closed it asks every
    // few milliseconds, and keeps it until then.
    virtual bool stillPlays(std::uint64_t /*now*/) { return false; }
};

// Takes everything and keeps nothing.
class NoOutput final : public AudioOutput {
public:
    std::string open(VELMORA::SinkConfig) override { return {}; }
    bool write(VELMORA::wire::ConstBytes) override { return true; }
    std::string close() override { return {}; }
    std::string where() const override { return {}; }
};

// What an output takes of the formats that are allowed; a text for the user when it takes none of
// them, or cannot be asked.
struct TakenFormats {
    FormatMasks formats;
    std::string failure;
};
using AskFormats =
    std::function<TakenFormats(const std::string& output, const FormatMasks& allowed)>;

// Called once a stream, with the output that is in force and the sink's number.
using MakeOutput =
    std::function<std::unique_ptr<AudioOutput>(const std::string& output, std::uint16_t sinkNo)>;

}  // namespace velmora_target
