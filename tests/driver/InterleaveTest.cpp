#include "driver/Interleave.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using VELMORA::SinkConfig;

struct Row {
    const char* why;
    InterleaveFormat format;
    std::size_t source, destination;
    // one source sample, and what becomes of it
    Bytes in, out;
};

InterleaveFormat pcm(std::int32_t sampleBytes, bool convertS32, std::uint64_t bit) {
    return {sampleBytes, convertS32, bit, false, SinkConfig(bit)};
}
InterleaveFormat dsd(std::uint64_t hostFormat) {
    // The PCM side says something of its own, and is not asked.
    return {3, true, SinkConfig::pcm16, true, SinkConfig(hostFormat)};
}

const Row rows[] = {
    {"8 bytes", pcm(8, false, 0x4000), 8, 8, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6, 7, 8}},
    {"4 bytes", pcm(4, false, 0x800), 4, 4, {1, 2, 3, 4}, {1, 2, 3, 4}},
    {"4 bytes of float", pcm(4, false, 0x2000), 4, 4, {1, 2, 3, 4}, {1, 2, 3, 4}},
    {"integers to 32 bits", pcm(4, true, 0x800), 4, 4, {1, 2, 3, 4}, {1, 2, 3, 4}},
    {"integers to 64 bits", pcm(4, true, 0x1000), 4, 8, {1, 2, 3, 4}, {0, 0, 0, 0, 1, 2, 3, 4}},
    {"integers to 24 bits", pcm(4, true, 0x400), 4, 3, {1, 2, 3, 4}, {2, 3, 4}},
    {"integers to 16 bits", pcm(4, true, 0x200), 4, 2, {1, 2, 3, 4}, {3, 4}},
    {"3 bytes", pcm(3, false, 0x400), 3, 3, {1, 2, 3}, {1, 2, 3}},
    {"2 bytes", pcm(2, false, 0x200), 2, 2, {1, 2}, {1, 2}},
    {"DSD words", dsd(SinkConfig::dsdMsbBig), 4, 4, {1, 2, 3, 4}, {1, 2, 3, 4}},
    {"DSD bytes", dsd(SinkConfig::dsd1), 1, 1, {0x69}, {0x69}},
    {"DSD mode on a PCM stream", dsd(SinkConfig::pcm16), 1, 1, {0x69}, {0x69}},
};

// The rule as one would tell it: sample i of channel c goes to place i x channels + c.
Bytes slowly(const Row& row, const std::vector<Bytes>& channels, std::size_t samples) {
    Bytes out(row.destination * channels.size() * samples, 0xee);
    for (std::size_t i = 0; i < samples; ++i) {
        for (std::size_t c = 0; c < channels.size(); ++c) {
            Bytes sample(row.destination, 0);
            for (std::size_t b = 0; b < row.destination; ++b) {
                // counted from the upper end
                if (b < row.source) {
                    sample[row.destination - 1 - b] =
                        channels[c][i * row.source + row.source - 1 - b];
                }
            }
            std::copy(sample.begin(), sample.end(),
                      out.begin() +
                          static_cast<std::ptrdiff_t>((i * channels.size() + c) * row.destination));
        }
    }
    return out;
}

TEST(Interleave, MakesOfOneSampleWhatItsRowSays) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        const Interleave& interleave = chooseInterleave(row.format);
        EXPECT_EQ(interleave.sourceBytes, row.source);
        EXPECT_EQ(interleave.destinationBytes, row.destination);
        Bytes out(row.out.size(), 0xee);
        const std::uint8_t* const channels[] = {row.in.data()};
        interleave.run(out.data(), channels, 1, 1);
        EXPECT_EQ(out, row.out);
    }
}

TEST(Interleave, PutsChannelsSideBySideLikeTheSlowRule) {
    const std::uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        for (std::size_t channelCount = 1; channelCount <= 8; ++channelCount) {
            const std::size_t samples = random() % 70;
            std::vector<Bytes> channels(channelCount, Bytes(samples * row.source));
            std::vector<const std::uint8_t*> from;
            for (Bytes& channel : channels) {
                for (std::uint8_t& b : channel) b = static_cast<std::uint8_t>(random());
                from.push_back(channel.data());
            }
            Bytes out(row.destination * channelCount * samples + 1, 0xee);
            chooseInterleave(row.format).run(out.data(), from.data(), channelCount, samples);
            EXPECT_EQ(out.back(), 0xee) << "behind the block";
            out.pop_back();
            EXPECT_EQ(out, slowly(row, channels, samples));
        }
    }
}

TEST(Interleave, OfNothingIsNothing) {
    for (const Row& row : rows) {
        const std::uint8_t* const channels[] = {nullptr};
        chooseInterleave(row.format).run(nullptr, channels, 0, 0);
    }
}

}  // namespace
