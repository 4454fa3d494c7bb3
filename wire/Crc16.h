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
        // Eight bytes at a time, each through the table of its distance from the end.
        for (; data.size() >= 8; data = data.subspan(8)) {
            const unsigned low = (rest_ ^ data[0]) & 0xffu, high = rest_ >> 8 ^ data[1];
            rest_ = static_cast<std::uint16_t>(
                tables[7][low] ^ tables[6][high] ^ tables[5][data[2]] ^ tables[4][data[3]] ^
                tables[3][data[4]] ^ tables[2][data[5]] ^ tables[1][data[6]] ^ tables[0][data[7]]);
        }
        for (const std::uint8_t byte : data) rest_ = behind(rest_, byte);
    }
    constexpr std::uint16_t value() const noexcept { return static_cast<std::uint16_t>(~rest_); }

private:
    static constexpr std::uint16_t polynomial = 0xa001;
    using Table = std::array<std::uint16_t, 256>;
    // tables[0] is the rule itself, byte by byte; tables[k] what k zero bytes make of that.
    static constexpr std::array<Table, 8> tables = [] {
        std::array<Table, 8> out{};
        for (std::size_t byte = 0; byte < 256; ++byte) {
            auto rest = static_cast<std::uint16_t>(byte);
            for (int bit = 0; bit < 8; ++bit) {
                rest = static_cast<std::uint16_t>(rest >> 1 ^ ((rest & 1) != 0 ? polynomial : 0));
            }
            out[0][byte] = rest;
        }
        for (std::size_t k = 1; k < out.size(); ++k) {
            for (std::size_t byte = 0; byte < 256; ++byte) {
                const std::uint16_t rest = out[k - 1][byte];
                out[k][byte] = static_cast<std::uint16_t>(rest >> 8 ^ out[0][rest & 0xff]);
            }
        }
        return out;
    }();
    static constexpr std::uint16_t behind(std::uint16_t rest, std::uint8_t byte) noexcept {
        return static_cast<std::uint16_t>(rest >> 8 ^ tables[0][(rest ^ byte) & 0xff]);
    }

    std::uint16_t rest_ = 0xffff;
};

inline std::uint16_t crc16(ConstBytes data) noexcept {
    Crc16 crc;
    crc.add(data);
    return crc.value();
}

}  // namespace VELMORA::wire
