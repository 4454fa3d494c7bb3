#include "apps/audio/DsdWords.h"

#include <algorithm>

namespace velmora_audio {

namespace {

// Where the byte that holds samples 8k to 8k+7 of a word lies in memory.
constexpr std::size_t byteInWord(DsdOrder order, std::size_t k) noexcept {
    return order.oldestIsLsb == order.littleEndian ? k : dsdWordBytes - 1 - k;
}

constexpr std::uint8_t turned(DsdOrder order, std::uint8_t byte) noexcept {
    return order.oldestIsLsb ? byte : reverseBits(byte);
}

}  // namespace

std::size_t bytesFromDsdWords(DsdOrder order, std::size_t channels,
                              std::span<const std::uint8_t> words,
                              std::span<std::uint8_t> bytes) noexcept {
    const std::size_t frame = dsdWordBytes * channels;
    const std::size_t size = std::min(words.size(), bytes.size()) / frame * frame;
    for (std::size_t at = 0; at < size; at += frame) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            for (std::size_t k = 0; k < dsdWordBytes; ++k) {
                bytes[at + k * channels + channel] =
                    turned(order, words[at + channel * dsdWordBytes + byteInWord(order, k)]);
            }
        }
    }
    return size;
}

std::size_t dsdWordsFromBytes(DsdOrder order, std::size_t channels,
                              std::span<const std::uint8_t> bytes,
                              std::span<std::uint8_t> words) noexcept {
    const std::size_t frame = dsdWordBytes * channels;
    const std::size_t size = std::min(words.size(), bytes.size()) / frame * frame;
    for (std::size_t at = 0; at < size; at += frame) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            for (std::size_t k = 0; k < dsdWordBytes; ++k) {
                words[at + channel * dsdWordBytes + byteInWord(order, k)] =
                    turned(order, bytes[at + k * channels + channel]);
            }
        }
    }
    return size;
}

}  // namespace velmora_audio
