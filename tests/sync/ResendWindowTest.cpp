#include "sync/ResendWindow.h"

#include <gtest/gtest.h>

namespace {

using VELMORA::ResendWindow;

struct ReachCase {
    const char* why;
    std::uint16_t pending;  // from an earlier request
    std::uint16_t sequence, from, ring;
    std::uint16_t wanted;
    bool lost;
    std::uint16_t more, left;
};
constexpr ReachCase reachCases[] = {
    {"nothing wanted", 0, 100, 100, 32, 0, false, 0, 0},
    {"resendFrom equal to sequence clears what was pending", 5, 100, 100, 32, 0, false, 0, 0},
    {"the newest alone", 0, 100, 99, 32, 1, false, 1, 1},
    {"across the wrap", 0, 2, 65534, 32, 4, false, 4, 4},
    {"a whole ring less one", 0, 100, 69, 32, 31, false, 31, 31},
    {"as many as the ring has", 0, 100, 68, 32, 32, true, 0, 0},
    {"beyond it", 3, 100, 50, 32, 50, true, 0, 3},
    {"what has not been sent yet", 0, 100, 101, 32, 65535, true, 0, 0},
    {"more than pending: the difference is new", 3, 100, 92, 32, 8, false, 5, 8},
    {"as many as pending", 8, 100, 92, 32, 8, false, 0, 8},
    {"fewer than pending: reduced, and nothing new", 8, 100, 97, 32, 3, false, 0, 3},
    {"the largest ring", 0, 40000, 7233, 32768, 32767, false, 32767, 32767},
};

TEST(ResendWindow, CountsFromTheOldestWantedToTheNewest) {
    for (const ReachCase& c : reachCases) {
        SCOPED_TRACE(c.why);
        ResendWindow window;
        window.onRequest(c.pending, 0, 32768);
        const auto request = window.onRequest(c.sequence, c.from, c.ring);
        EXPECT_EQ(request.wanted, c.wanted);
        EXPECT_EQ(request.lost, c.lost);
        EXPECT_EQ(request.more, c.more);
        EXPECT_EQ(window.resendCount(), c.left);
        EXPECT_EQ(window.pending(), c.left != 0);
    }
}

TEST(ResendWindow, GivesTheOldestFirst) {
    ResendWindow window;
    window.onRequest(/*sequence=*/1, /*resendFrom=*/65534, 32);
    std::uint16_t expected = 65534;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(window.oldest(1), expected++);
        window.onResent();
    }
    EXPECT_FALSE(window.pending());
}

}  // namespace
