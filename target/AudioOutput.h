// Where played audio goes. The target hands over whole frames of the stream's format, in order.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "driver/SinkConfig.h"
#include "wire/Packet.h"

namespace velmora_target {

class AudioOutput {
public:
    virtual ~AudioOutput() = default;
    // Before a stream starts. A text that says why it cannot be; empty when it can.
    virtual std::string open(VELMORA::SinkConfig format) = 0;
    // False when it failed; the stream goes on without it, and the failure is told once.
    virtual bool write(VELMORA::wire::ConstBytes frames) = 0;
    // By how much the target's clock has to run faster to keep in step with a device that has a
    // clock of its own.
    virtual double clockCorrectionPpm() { return 0; }
    virtual std::string close() = 0;        // as open
    virtual std::string where() const = 0;  // a path, a device's name, or empty
};

// Takes everything and keeps nothing.
class NoOutput final : public AudioOutput {
public:
    std::string open(VELMORA::SinkConfig) override { return {}; }
    bool write(VELMORA::wire::ConstBytes) override { return true; }
    std::string close() override { return {}; }
    std::string where() const override { return {}; }
};

// Called once a stream, with the output that is in force and the sink's number.
using MakeOutput =
    std::function<std::unique_ptr<AudioOutput>(const std::string& output, std::uint16_t sinkNo)>;

}  // namespace velmora_target
