// The transfer arithmetic and its searches against a slow twin, and against bad will.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <random>
#include <string>

#include "tests/sync/TransferFixture.h"

namespace {

using namespace velmora_test;

// The trials and the sweeps as one would do them by hand: every step of 50 taken, no end foreseen
// but a count of steps.
struct Slow {
    TransferConfig t;
    long left = 8'000;  // trials

    static std::uint64_t frames(float bytes, std::uint32_t frame) {
        const auto up = static_cast<std::uint64_t>(std::ceil(bytes));
        return up % frame == 0 ? up : up + frame - up % frame;
    }
    std::uint64_t room(std::uint16_t count) const {
        return std::uint64_t{t.PackDataSize} *
               (count != 0 && count < t.PackDataCount ? count : t.PackDataCount);
    }
    bool fix(std::uint32_t& cycle, std::uint16_t count) {
        --left;
        const auto perSecond = static_cast<float>(t.bytesPerSecond());
        if (room(count) == 0) return false;
        t.fixedBytes = 0;
        std::uint64_t want = 0;
        auto signedCycle = static_cast<std::int64_t>(cycle);
        for (;; signedCycle -= 50) {
            if (signedCycle < 1) return false;
            const float rate = 1000000.0f / static_cast<float>(signedCycle);
            const float bytes = perSecond / rate;
            const float more = bytes * 1.03f;
            want = frames(more, t.frameBytes());
            if (want < room(count)) break;
        }
        cycle = static_cast<std::uint32_t>(signedCycle);
        t.cycle = cycle;
        std::uint64_t packets = 1;
        while (packets * t.PackDataSize < want) ++packets;
        t.packetCount = static_cast<std::uint16_t>(packets);
        const std::uint64_t q = std::uint64_t{t.bytesPerSecond() / t.frameBytes()} * 16384u *
                                (cycle / packets) / 1000000u;
        t.framesQ14 = static_cast<std::uint32_t>(q);
        t.packetBytes =
            static_cast<std::uint32_t>(t.frameBytes() * ((q + 16383 + q * 491 / 16384) / 16384));
        t.mode = 1;
        return true;
    }
    bool variable(std::uint32_t& cycle, std::uint16_t count) {
        --left;
        const auto perSecond = static_cast<float>(t.bytesPerSecond());
        if (room(count) == 0 || cycle == 0) return false;
        const float rate = 1000000.0f / static_cast<float>(cycle);
        std::uint64_t want = frames(perSecond / rate, t.frameBytes());
        if (want > room(count)) {
            want = room(count);
            const float bursts = perSecond / static_cast<float>(want);
            cycle = static_cast<std::uint32_t>(std::ceil(1000000.0f / bursts));
        }
        t.cycle = cycle;
        t.packetCount = static_cast<std::uint16_t>((want + t.PackDataSize - 1) / t.PackDataSize);
        t.fixedBytes = static_cast<std::uint32_t>(want / t.packetCount);
        t.fixedBytes -= t.fixedBytes % t.frameBytes();
        t.packetBytes = t.fixedBytes;
        t.framesQ14 = t.fixedBytes / t.frameBytes() * 16384;
        t.mode = 0;
        return true;
    }
    bool trial(bool isVar, std::uint32_t& cycle, std::uint16_t count) {
        return isVar ? variable(cycle, count) : fix(cycle, count);
    }
    std::optional<bool> automatic(bool isVar, std::uint32_t wanted) {
        std::uint32_t last = 0;
        for (std::uint16_t count = 1; left > 0; ++count) {
            std::uint32_t cycle = wanted;
            if (trial(isVar, cycle, count)) {
                if (cycle == wanted) return true;
                if (cycle == last) {
                    cycle = wanted;
                    trial(isVar, cycle, static_cast<std::uint16_t>(count - 1));
                    return true;
                }
            }
            last = t.cycle;
        }
        return std::nullopt;
    }
    std::optional<bool> attempt(bool isVar, bool free, std::uint32_t cycle) {
        if (free) return automatic(isVar, cycle);
        return trial(isVar, cycle, 1);
    }
    std::optional<bool> search() {
        t.cycle = 0;
        if (t.minCycle10 == 0 && t.maxCycle10 == 0 && t.profileFlags == 0) return false;
        const std::uint32_t min = t.minCycle10 * 10u, max = t.maxCycle10 * 10u;
        const bool only = (t.profileFlags & 1) != 0, isVar = (t.profileFlags & 2) != 0;
        const bool free = (t.profileFlags & 8) != 0 || t.forceAuto;
        const auto limit103 = static_cast<std::uint32_t>(static_cast<double>(t.limitCycle) * 1.03);
        const std::uint32_t bound = isVar ? limit103 : t.limitCycle;
        if ((t.profileFlags & 4) == 0) {
            const std::optional<bool> one = attempt(isVar, free, max);
            if (!one || !*one) return one;
            if (only) return isVar || t.cycle >= bound;
            return t.cycle >= bound && t.cycle >= min && t.cycle <= max;
        }
        std::uint32_t last = 0, cycle = std::max(min, t.limitCycle);
        if (!isVar && only) cycle = t.limitCycle;
        for (; left > 0; cycle += 50) {
            const std::optional<bool> one = attempt(isVar, free, cycle);
            if (!one) return one;
            if (!*one) continue;
            if (t.cycle >= bound && (only || (t.cycle >= min && (!isVar || t.cycle <= max)))) {
                return true;
            }
            if (t.cycle == last) return false;
            last = t.cycle;
        }
        return std::nullopt;
    }
    std::optional<bool> configTransferAuto(std::uint32_t wanted) {
        std::optional<bool> found = search();
        if (!found || *found) return found;
        t.forceAuto = true;
        found = search();
        t.forceAuto = false;
        if (!found || *found) return found;
        const auto limit103 = static_cast<std::uint32_t>(static_cast<double>(t.limitCycle) * 1.03);
        const std::uint16_t before = t.PackDataCount;
        t.PackDataCount = 65535;
        const bool isVar = (t.profileFlags & 2) != 0;
        for (std::uint32_t cycle = wanted != 0 ? wanted : t.limitCycle; left > 0; cycle += 50) {
            found = automatic(isVar, cycle);
            if (!found) break;
            if (*found && t.cycle >= limit103) {
                t.PackDataCount = before;
                return true;
            }
        }
        return std::nullopt;
    }
};

bool sameRecord(const TransferConfig& a, const TransferConfig& b) {
    return static_cast<const TransferProfile&>(a) == static_cast<const TransferProfile&>(b) &&
           a.PackDataCount == b.PackDataCount && a.forceAuto == b.forceAuto;
}

constexpr std::uint64_t sampleFormats[] = {
    SinkConfig::pcm8,    SinkConfig::pcm16,   SinkConfig::pcm24,     SinkConfig::pcm32,
    SinkConfig::float32, SinkConfig::float64, SinkConfig::dsdMsbBig, SinkConfig::dsdLsbLittle};
constexpr std::uint32_t channelCounts[] = {1, 2, 4, 6, 8, 16};

std::uint32_t upTo(std::mt19937& random, std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(0, most)(random);
}
// Small numbers as often as large ones.
std::uint32_t anySize(std::mt19937& random, unsigned bits) {
    const std::uint32_t width = upTo(random, bits);
    return width == 0 ? 0 : static_cast<std::uint32_t>(random() & 0xffff'ffffu) >> (32 - width);
}

std::string describe(const TransferConfig& t) {
    return "min " + std::to_string(t.minCycle10) + " max " + std::to_string(t.maxCycle10) +
           " flags " + std::to_string(t.profileFlags) + " config " + std::to_string(t.config.word) +
           " limit " + std::to_string(t.limitCycle) + " PackDataSize " +
           std::to_string(t.PackDataSize) + " PackDataCount " + std::to_string(t.PackDataCount);
}

TransferConfig plausible(std::mt19937& random) {
    TransferConfig t;
    const std::uint64_t sample = sampleFormats[upTo(random, std::size(sampleFormats) - 1)];
    const bool dsd = sample > 0xffff;
    const std::uint32_t rate = (upTo(random, 1) != 0 ? 44100u : 48000u)
                               << (dsd ? 6 + upTo(random, 3) : upTo(random, 4));
    t.config = format(sample, rate, channelCounts[upTo(random, 5)]);
    t.PackDataSize = static_cast<std::uint16_t>(200 + upTo(random, 8800));
    t.PackDataCount = static_cast<std::uint16_t>(1 + upTo(random, 30));
    t.limitCycle = 100 + upTo(random, 3000);
    t.minCycle10 = static_cast<std::uint16_t>(upTo(random, 1000));
    t.maxCycle10 = static_cast<std::uint16_t>(upTo(random, 1000));
    t.profileFlags = static_cast<std::uint16_t>(upTo(random, 31));
    return t;
}

TEST(TransferConfig, TrialsAgreeWithTheirSlowTwins) {
    const std::uint32_t seed = 4711;
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i) {
        Slow slow{plausible(random)};
        TransferConfig fast = slow.t;
        const std::uint32_t wanted = 1 + upTo(random, 20000);
        const auto count = static_cast<std::uint16_t>(upTo(random, 40));
        const bool isVar = upTo(random, 1) != 0;
        SCOPED_TRACE(describe(fast) + " cycle " + std::to_string(wanted) + " count " +
                     std::to_string(count) + " seed " + std::to_string(seed));
        std::uint32_t cycle = wanted, slowCycle = wanted;
        const bool good = isVar ? fast.trialVar(cycle, count) : fast.trialFix(cycle, count);
        ASSERT_EQ(good, slow.trial(isVar, slowCycle, count));
        ASSERT_TRUE(sameRecord(fast, slow.t));
        if (good) {
            ASSERT_EQ(cycle, slowCycle);
        }

        cycle = wanted;
        const auto slowly = slow.automatic(isVar, wanted);
        ASSERT_TRUE(slowly);
        ASSERT_EQ(isVar ? fast.trialVarAuto(cycle) : fast.trialFixAuto(cycle), *slowly);
        ASSERT_TRUE(sameRecord(fast, slow.t));
        if (*slowly) {
            ASSERT_EQ(cycle, fast.cycle);
        }
    }
}

TEST(ConfigTransferAuto, AgreesWithItsSlowTwin) {
    const std::uint32_t seed = 815;
    std::mt19937 random(seed);
    int undecided = 0;
    for (int i = 0; i < 300; ++i) {
        Slow slow{plausible(random)};
        TransferConfig fast = slow.t;
        const std::uint32_t wanted = upTo(random, 2) == 0 ? 0 : upTo(random, 5000);
        SCOPED_TRACE(describe(fast) + " cycle " + std::to_string(wanted) + " seed " +
                     std::to_string(seed));
        const auto slowly = slow.configTransferAuto(wanted);
        const bool found = fast.configTransferAuto(wanted);
        if (!slowly) {
            ++undecided;  // by hand it takes too long, or for ever
            continue;
        }
        ASSERT_EQ(found, *slowly);
        ASSERT_TRUE(sameRecord(fast, slow.t));
    }
    EXPECT_LT(undecided, 100);
}

TransferConfig hostile(std::mt19937& random, unsigned cycleBits) {
    TransferConfig t;
    t.config = upTo(random, 3) == 0
                   ? SinkConfig(std::uint64_t{random()} << 32 | random())
                   : format(sampleFormats[upTo(random, std::size(sampleFormats) - 1)],
                            (upTo(random, 1) != 0 ? 44100u : 48000u) << upTo(random, 12),
                            channelCounts[upTo(random, 5)]);
    t.PackDataSize = static_cast<std::uint16_t>(anySize(random, 16));
    t.PackDataCount = static_cast<std::uint16_t>(anySize(random, 16));
    t.limitCycle = anySize(random, cycleBits);
    t.minCycle10 = static_cast<std::uint16_t>(anySize(random, 16));
    t.maxCycle10 = static_cast<std::uint16_t>(anySize(random, 16));
    t.profileFlags = static_cast<std::uint16_t>(upTo(random, 31));
    return t;
}

TEST(TransferConfig, TrialsTakeAnyNumbers) {
    const std::uint32_t seed = 31337;
    std::mt19937 random(seed);
    for (int i = 0; i < 20'000; ++i) {
        TransferConfig t = hostile(random, 32);
        std::uint32_t cycle = anySize(random, 32);
        const auto count = static_cast<std::uint16_t>(anySize(random, 16));
        const std::uint32_t bytes = anySize(random, 32);
        SCOPED_TRACE(describe(t) + " cycle " + std::to_string(cycle) + " count " +
                     std::to_string(count) + " bytes " + std::to_string(bytes) + " seed " +
                     std::to_string(seed));
        std::uint32_t fix = cycle, variable = cycle, drawn = cycle;
        if (t.trialFix(fix, count)) {
            ASSERT_EQ(fix, t.cycle);
            ASSERT_NE(t.packetCount, 0);
        }
        if (t.trialVar(variable, count)) {
            ASSERT_EQ(variable, t.cycle);
            ASSERT_NE(t.packetCount, 0);
            ASSERT_NE(t.fixedBytes, 0u);
            ASSERT_LE(t.fixedBytes, t.PackDataSize);
        }
        if (t.trialRandom(bytes, drawn, count)) {
            ASSERT_NE(t.cycle, t.cycleMin);
        }
        if (t.trialBuffer(bytes)) {
            ASSERT_NE(t.packetCount, 0);
            ASSERT_NE(t.fixedBytes, 0u);
            ASSERT_LE(t.fixedBytes, t.PackDataSize);
        }
    }
}

TEST(ConfigTransferAuto, AlwaysEnds) {
    struct Case {
        const char* why;
        unsigned cycleBits;
        int rounds;
    };
    const Case cases[] = {
        {"cycles up to what a target can ask for", 16, 2000},
        {"cycles of an hour", 32, 25},
    };
    const std::uint32_t seed = 99;
    std::mt19937 random(seed);
    for (const Case& c : cases) {
        for (int i = 0; i < c.rounds; ++i) {
            TransferConfig t = hostile(random, c.cycleBits);
            const std::uint32_t wanted = anySize(random, c.cycleBits);
            SCOPED_TRACE(std::string(c.why) + ": " + describe(t) + " cycle " +
                         std::to_string(wanted) + " seed " + std::to_string(seed));
            const std::uint16_t countBefore = t.PackDataCount;
            if (t.configTransferAuto(wanted)) {
                ASSERT_NE(t.cycle, 0u);
                ASSERT_NE(t.packetCount, 0);
            }
            ASSERT_EQ(t.PackDataCount, countBefore);
            ASSERT_FALSE(t.forceAuto);
        }
    }
}

}  // namespace
