// Which of the stream's formats a device takes, and how a frame of the stream becomes frames of the
// device: the same bits in the order and the width that the device has for them, nothing rounded.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "target/FormatMasks.h"
#include "target/PcmDevice.h"
#include "wire/Packet.h"

namespace velmora_target {

// How streams of one format lie in the device.
struct DevicePlan {
    PcmShape shape;
    std::uint32_t framesEach = 1;  // of the device, for one of the stream
    std::uint32_t frameBytes = 0;  // of the device
    std::uint8_t silence = 0;      // byte of the device
};

// The first way, of those that lose nothing, that `takes` approves of.
std::optional<DevicePlan> planFor(VELMORA::SinkConfig format,
                                  const std::function<bool(const PcmShape&)>& takes);

// Whole frames of the stream, as the plan has them, behind what is in `out`.
void convert(VELMORA::SinkConfig format, const DevicePlan& plan, VELMORA::wire::ConstBytes frames,
             ZENNO::Bytes& out);

// The part of `allowed` of which every format is taken. A mask is the union of its formats: where a
// device takes widths and rates in some combinations alone, what stands in most of the others is
// left out first; and channel counts that do not take what two channels take are left out.
FormatMasks formatsTaken(const FormatMasks& allowed,
                         const std::function<bool(VELMORA::SinkConfig)>& takes);

}  // namespace velmora_target
