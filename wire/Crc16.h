// The checksum that closes a transfer: CRC-16/USB. Polynomial 0x8005 in its reflected form 0xa001,
// start value 0xffff, input and output reflected, result inverted; the catalogue's check value, of
// the nine characters "123456789", is 0xb4c8. Nothing at all has the checksum 0.
#pragma once

#include <array>
#include <cstdint>

#include "wire/Packet.h"

namespace VELMORA::wire {

class Crc16 {
public:
    constexpr void add(ConstBytes data) noexcept {
        for (const std::uint8_t byte : data) {
            rest_ = static_cast<std::uint16_t>(rest_ >> 8 ^ table[(rest_ ^ byte) & 0xff]);
        }
    }
    constexpr std::uint16_t value() const noexcept { return static_cast<std::uint16_t>(~rest_); }

private:
    static constexpr std::uint16_t polynomial = 0xa001;
    static constexpr std::array<std::uint16_t, 256> table = [] {
        std::array<std::uint16_t, 256> out{};
        for (std::size_t byte = 0; byte < out.size(); ++byte) {
            std::uint16_t rest = static_cast<std::uint16_t>(byte);
            for (int bit = 0; bit < 8; ++bit) {
                rest = static_cast<std::uint16_t>(rest >> 1 ^ ((rest & 1) != 0 ? polynomial : 0));
            }
            out[byte] = rest;
        }
        return out;
    }();

    std::uint16_t rest_ = 0xffff;
};

inline std::uint16_t crc16(ConstBytes data) noexcept {
    Crc16 crc;
    crc.add(data);
    return crc.value();
}

}  // namespace VELMORA::wire
