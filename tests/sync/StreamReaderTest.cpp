// How long a datagram of the target's may be.
#include <gtest/gtest.h>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;

// An INFO_ANS with so many bytes behind its header, all claimed by its sizeWord.
Bytes longFeedback(std::size_t bytes) {
    return datagram(11, 0, {0x8000}, Bytes(bytes - 16));
}

TEST(StreamReader, TakesDatagramsOf4096BytesAndNoLongerOnes) {
    struct Case {
        const char* why;
        std::size_t bytes;
        std::uint64_t livesUntil;  // µs: a second behind the last sign of life
    };
    constexpr Case cases[] = {
        {"the largest that fits", 4096, 1500000},
        {"one that arrives cut claims more than there is, and is no packet", 4104, 1000000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1));
        s.say(500000, longFeedback(c.bytes));
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.sync.state, Sync::Idle);
        const std::uint64_t lived = s.network.time.time() - s.begin;
        EXPECT_GE(lived, c.livesUntil);
        EXPECT_LT(lived, c.livesUntil + 2000);
    }
}

}  // namespace
