// When each packet went out and how large it was, for whoever studies a stream's punctuality: a
// record of raw bytes in the log, about every 50 ms.
//
//   word 0           | word 2k+1     | word 2k+2           (353 u32 words, little-endian)
//   (pairs|0x100)<<16| time sent, µs | size + 74, on the wire
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace VELMORA {

class PacketTrace {
public:
    static constexpr std::uint32_t mostPairs = 176;
    static constexpr std::uint32_t span = 50000;  // µs
    static constexpr std::uint32_t wireOverhead = 74;
    static constexpr std::size_t recordBytes = 353 * sizeof(std::uint32_t);

    void clear() noexcept;
    // True: the record is complete. The caller shows it, then clears.
    bool add(std::uint32_t time, std::uint64_t size) noexcept;
    std::string_view record() const noexcept {
        return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
    }

private:
    void store(std::size_t word, std::uint32_t value) noexcept;

    std::array<std::uint8_t, recordBytes> bytes_{};
    std::uint32_t pairs_ = 0;
    std::uint32_t first_ = 0;  // time of the first pair
};

}  // namespace VELMORA
