#include "sync/Drain.h"

#include <gtest/gtest.h>

namespace {

using VELMORA::Drain;

TEST(Drain, DoesNotBeginByItself) {
    Drain drain;
    drain.onInfoRequest();
    drain.onInfo();
    EXPECT_EQ(drain.drainStage(), 0u);
    EXPECT_FALSE(drain.hasBegun());
    EXPECT_FALSE(drain.takesNoAudio());
}

TEST(Drain, GoesStepByStep) {
    Drain drain;
    drain.onClosingBuilt();
    EXPECT_EQ(drain.drainStage(), 1u);
    EXPECT_TRUE(drain.takesNoAudio());
    drain.onInfoRequest();  // not sent yet: this request tells nothing
    drain.onInfo();
    EXPECT_EQ(drain.drainStage(), 1u);
    drain.onClosingSent();
    EXPECT_EQ(drain.drainStage(), 2u);
    drain.onInfo();  // to an earlier request
    EXPECT_EQ(drain.drainStage(), 2u);
    drain.onInfoRequest();
    EXPECT_EQ(drain.drainStage(), 3u);
    EXPECT_TRUE(drain.takesNoAudio());
    EXPECT_FALSE(drain.isDone());
    drain.onInfo();
    EXPECT_EQ(drain.drainStage(), 4u);
    EXPECT_TRUE(drain.isDone());
    EXPECT_FALSE(drain.takesNoAudio());
}

TEST(Drain, AsksAnewWhenTheClosingPacketPassesAgain) {
    Drain drain;
    drain.onClosingBuilt();
    drain.onClosingSent();
    drain.onInfoRequest();
    drain.onClosingSent();
    EXPECT_EQ(drain.drainStage(), 2u);
    drain.onInfoRequest();
    EXPECT_EQ(drain.drainStage(), 3u);
}

}  // namespace
