// How many whole frames go into each packet, so that no frame is lost by rounding in the long run:
// 1.14 fixed point, the fraction carried from packet to packet.
#pragma once

#include <algorithm>
#include <cstdint>

#include "sync/TransferProfile.h"

namespace VELMORA {

class FrameCounter {
public:
    // `framesQ14` frames x 16384 are due; whole frames come out.
    std::uint32_t next(std::uint32_t framesQ14) noexcept {
        const std::uint32_t frames = fraction_ + framesQ14;
        fraction_ = frames & 0x3fff;
        return frames >> 14;
    }
    std::uint32_t fraction() const noexcept { return fraction_; }

    // Frames for a cycle that was drawn `factor` times as long. Single precision for the product,
    // double for the rounding.
    static std::uint32_t scaled(std::uint32_t framesQ14, float factor) noexcept {
        const double frames = static_cast<double>(static_cast<float>(framesQ14) * factor) + 0.5;
        return static_cast<std::uint32_t>(std::min(frames, 4294967295.0));
    }

    // Bytes of the next packet by the row in use: fixedBytes in Var; else the frames that are due,
    // cut to whole frames where they would be too many for one packet.
    std::uint32_t nextPayload(const TransferProfile& row, std::uint32_t framesQ14, float factor,
                              std::uint16_t frameBytes, std::uint16_t maxPacketSize) noexcept {
        if (row.fixedBytes != 0) return row.fixedBytes;
        const std::uint64_t bytes =
            std::uint64_t{next(row.mode == modeRandom ? scaled(framesQ14, factor) : framesQ14)} *
            frameBytes;
        if (bytes <= maxPacketSize) return static_cast<std::uint32_t>(bytes);
        return maxPacketSize - (frameBytes == 0 ? 0u : maxPacketSize % frameBytes);
    }

private:
    std::uint32_t fraction_ = 0;  // of a frame, 14 bits
};

}  // namespace VELMORA
