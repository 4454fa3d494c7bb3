// Which format goes on the wire for the host's format, and through which conversion.
#pragma once

#include <cstdint>
#include <optional>

#include "driver/SinkConfig.h"
#include "sync/Convert.h"

namespace VELMORA {

// What a target takes: one mask a family, every supported channel code, width and rate bit set.
struct SupportMasks {
    std::uint64_t pcm = 0;
    std::uint64_t dsdLsb = 0;
    std::uint64_t dsdMsb = 0;

    bool isSupported(SinkConfig format) const noexcept;
};

struct StreamFormat {
    SinkConfig hostFormat{};  // of the blocks that the driver delivers
    SinkConfig sinkConfig{};  // on the wire
    CopyStream copyStream = convertCopy;
};

// PCM is taken as it stands or refused; DSD may change its word or bit order, and says so in the
// log.
std::optional<StreamFormat> chooseStreamFormat(SinkConfig format, const SupportMasks& target);

}  // namespace VELMORA
