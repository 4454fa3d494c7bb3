#include "sync/WordLoops.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace VELMORA {
namespace {

using std::uint32_t;
using std::uint64_t;
using std::uint8_t;

// ---- every processor: two words at a time, by shifts and masks that compilers turn into vectors.
// A table of 256 bytes is three to five times slower ----

constexpr uint64_t exchange(uint64_t v, int by, uint64_t mask) noexcept {
    return (v >> by & mask) | (v & mask) << by;
}

constexpr uint64_t bytesTurned(uint64_t words) noexcept {
    return exchange(exchange(words, 8, 0x00ff00ff00ff00ff), 16, 0x0000ffff0000ffff);
}

constexpr uint64_t bitsTurned(uint64_t words) noexcept {
    words = exchange(words, 1, 0x5555555555555555);
    words = exchange(words, 2, 0x3333333333333333);
    return exchange(words, 4, 0x0f0f0f0f0f0f0f0f);
}

static_assert(bytesTurned(0x1122334455667788) == 0x4433221188776655);
static_assert(bitsTurned(0x0103) == 0x80c0);

template <bool turnsBytes, bool turnsBits, bool inverts>
constexpr uint64_t step(uint64_t words) noexcept {
    if constexpr (turnsBits) words = bitsTurned(words);
    if constexpr (turnsBytes) words = bytesTurned(words);
    return inverts ? ~words : words;
}

template <bool turnsBytes, bool turnsBits, bool inverts>
void plain(uint8_t* to, const uint8_t* from, uint64_t count) noexcept {
    const uint64_t pairs = count / 8;
    for (uint64_t i = 0; i < pairs; ++i) {
        uint64_t words;
        std::memcpy(&words, from + 8 * i, 8);
        words = step<turnsBytes, turnsBits, inverts>(words);
        std::memcpy(to + 8 * i, &words, 8);
    }
    if ((count & 4) == 0) return;
    uint32_t word;
    std::memcpy(&word, from + 8 * pairs, 4);
    word = static_cast<uint32_t>(step<turnsBytes, turnsBits, inverts>(word));
    std::memcpy(to + 8 * pairs, &word, 4);
}

template <template <bool, bool, bool> class Of>
constexpr WordLoops loopsOf() noexcept {
    return {Of<true, false, false>::run, Of<true, false, true>::run,  Of<true, true, false>::run,
            Of<true, true, true>::run,   Of<false, true, false>::run, Of<false, true, true>::run};
}

template <bool turnsBytes, bool turnsBits, bool inverts>
struct Plain {
    static constexpr WordLoops::Loop run = plain<turnsBytes, turnsBits, inverts>;
};

#if defined(__x86_64__)

// ---- processors of the last fifteen years: four words at a time. A half byte is turned by a
// shuffle of a table of sixteen, and so are the bytes of a word ----

template <bool turnsBytes, bool turnsBits, bool inverts>
[[gnu::target("ssse3")]] void wide(uint8_t* to, const uint8_t* from, uint64_t count) noexcept {
    const __m128i half = _mm_set1_epi8(0x0f);
    const __m128i turned = _mm_setr_epi8(0x0, 0x8, 0x4, 0xc, 0x2, 0xa, 0x6, 0xe, 0x1, 0x9, 0x5, 0xd,
                                         0x3, 0xb, 0x7, 0xf);
    const __m128i turnedUp = _mm_slli_epi16(turned, 4);  // no bit leaves its byte
    const __m128i order = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    uint64_t i = 0;
    for (; count - i >= 16; i += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
        if constexpr (turnsBits) {
            const __m128i low = _mm_and_si128(v, half);
            const __m128i high = _mm_and_si128(_mm_srli_epi16(v, 4), half);
            v = _mm_or_si128(_mm_shuffle_epi8(turnedUp, low), _mm_shuffle_epi8(turned, high));
        }
        if constexpr (turnsBytes) v = _mm_shuffle_epi8(v, order);
        if constexpr (inverts) v = _mm_xor_si128(v, _mm_set1_epi8(-1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), v);
    }
    plain<turnsBytes, turnsBits, inverts>(to + i, from + i, count - i);
}

template <bool turnsBytes, bool turnsBits, bool inverts>
struct Wide {
    static constexpr WordLoops::Loop run = wide<turnsBytes, turnsBits, inverts>;
};

#endif

}  // namespace

constexpr WordLoops plainWordLoops = loopsOf<Plain>();

const WordLoops* wideWordLoops() noexcept {
#if defined(__x86_64__)
    static constexpr WordLoops loops = loopsOf<Wide>();
    __builtin_cpu_init();
    return __builtin_cpu_supports("ssse3") ? &loops : nullptr;
#else
    return nullptr;
#endif
}

const WordLoops& bestWordLoops() noexcept {
    static const WordLoops* const wide = wideWordLoops();
    return wide != nullptr ? *wide : plainWordLoops;
}

}  // namespace VELMORA
