#include "apps/velmora-play/Prefetch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <semaphore>
#include <thread>
#include <vector>

namespace {

using velmora_play::Prefetch;
using velmora_play::Source;

// Counts: every value is its place. Gives reads of uneven sizes, as files do.
class Counting final : public Source {
public:
    Counting(bool isDsd, std::uint32_t channels, std::uint64_t frames, std::uint32_t seed = 0)
        : random_(seed), uneven_(seed != 0) {
        format_ = {.isDsd = isDsd,
                   .rate = isDsd ? 64000u : 8000u,
                   .channels = channels,
                   .bits = isDsd ? 1u : 32u,
                   .frames = frames};
    }
    std::uint64_t readPcm(std::span<double> samples) override { return give(samples); }
    std::uint64_t readDsd(std::span<std::uint8_t> bytes) override { return give(bytes); }

private:
    template <class T>
    std::uint64_t give(std::span<T> out) {
        const std::uint64_t units = format_.isDsd ? format_.frames / 8 : format_.frames;
        std::uint64_t count = std::min<std::uint64_t>(out.size() / format_.channels, units - next_);
        if (uneven_ && count > 1) count = 1 + random_() % count;
        for (std::uint64_t i = 0; i < count * format_.channels; ++i)
            out[i] = static_cast<T>(next_ * format_.channels + i);
        next_ += count;
        return count;
    }
    std::mt19937 random_;
    bool uneven_;
    std::uint64_t next_ = 0;
};

TEST(Prefetch, KeepsTheOrderOverManyTurnsOfTheRing) {
    for (std::uint32_t seed = 0; seed < 8; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const std::uint32_t channels = 1 + seed % 3;
        const std::uint64_t frames = 100'003;  // the ring holds 16384
        Counting source(false, channels, frames, seed);
        Prefetch prefetch(source);
        std::vector<double> half(5000 * channels);
        std::uint64_t at = 0;
        for (;;) {
            const std::uint64_t wanted = 1 + random() % 5000;
            const std::uint64_t got = prefetch.takePcm(std::span(half).first(wanted * channels));
            for (std::uint64_t i = 0; i < got * channels; ++i)
                ASSERT_EQ(half[i], static_cast<double>(at * channels + i));
            at += got;
            // Never short before the end: a gap would be heard.
            if (got != wanted) break;
        }
        EXPECT_EQ(at, frames);
        EXPECT_EQ(prefetch.takePcm(half), 0u);
    }
}

TEST(Prefetch, CarriesBytesOfDsd) {
    Counting source(true, 2, 8 * 50'000, 3);
    Prefetch prefetch(source);
    std::vector<std::uint8_t> half(2 * 777);
    std::uint64_t at = 0;
    while (const std::uint64_t got = prefetch.takeDsd(half)) {
        for (std::uint64_t i = 0; i < got * 2; ++i)
            ASSERT_EQ(half[i], static_cast<std::uint8_t>(at * 2 + i));
        at += got;
    }
    EXPECT_EQ(at, 50'000u);
}

TEST(Prefetch, TakesMoreThanTheRingHoldsAtOnce) {
    Counting source(false, 2, 60'000);
    Prefetch prefetch(source);
    std::vector<double> all(2 * 70'000);
    EXPECT_EQ(prefetch.takePcm(all), 60'000u);
    EXPECT_EQ(all[119'999], 119'999.0);
}

TEST(Prefetch, OfAnEmptySourceEndsAtOnce) {
    Counting source(false, 2, 0);
    Prefetch prefetch(source);
    std::vector<double> half(64);
    EXPECT_EQ(prefetch.takePcm(half), 0u);
    EXPECT_EQ(prefetch.takePcm(half), 0u);
}

TEST(Prefetch, GivesWholeFramesAlone) {
    Counting source(false, 2, 10);
    Prefetch prefetch(source);
    std::vector<double> half(5);
    EXPECT_EQ(prefetch.takePcm(half), 2u);
    EXPECT_EQ(prefetch.takePcm(std::span(half).first(1)), 0u);
    EXPECT_EQ(prefetch.takePcm(half), 2u);
    EXPECT_EQ(half[0], 4.0);
}

TEST(Prefetch, GoesWhileItsThreadWaitsForRoom) {
    Counting source(false, 2, 1'000'000);
    auto prefetch = std::make_unique<Prefetch>(source);
    std::vector<double> one(2);
    EXPECT_EQ(prefetch->takePcm(one), 1u);  // the thread is up, and nobody takes any more
    prefetch.reset();
}

// Holds every read until it is let go.
class Held final : public Source {
public:
    Held() { format_ = {.isDsd = false, .rate = 8000, .channels = 1, .bits = 32, .frames = 100}; }
    std::uint64_t readPcm(std::span<double> samples) override {
        asked.release();
        goOn.acquire();
        samples[0] = 0.5;
        return reads++ == 0 ? 1 : 0;
    }
    std::uint64_t readDsd(std::span<std::uint8_t>) override { return 0; }
    std::binary_semaphore asked{0};
    std::counting_semaphore<8> goOn{0};
    int reads = 0;
};

TEST(Prefetch, WaitsForASlowSourceRatherThanLeaveAGap) {
    Held source;
    Prefetch prefetch(source);
    source.asked.acquire();
    std::thread later([&] { source.goOn.release(2); });
    std::vector<double> half(4);
    EXPECT_EQ(prefetch.takePcm(half), 1u);
    EXPECT_EQ(half[0], 0.5);
    later.join();
}

TEST(Prefetch, GoesWhenTheReadUnderWayReturns) {
    Held source;
    auto prefetch = std::make_unique<Prefetch>(source);
    source.asked.acquire();
    std::thread ending([&] { prefetch.reset(); });
    source.goOn.release(2);  // the thread may ask once more before it hears of the end
    ending.join();
    EXPECT_GE(source.reads, 1);
}

}  // namespace
