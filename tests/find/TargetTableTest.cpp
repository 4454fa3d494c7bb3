// What is known of the targets over time.
#include <thread>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class TargetTable : public FindTest {
protected:
    void SetUp() override {
        target.sinks = {{6000, 1, "one"}, {6001, 1, "two"}, {6002, 1, "three"}};
        find = &opened();
    }
    bool add() {
        log.clear();
        return find->addTarget(control(1), 77, "room");
    }
    TargetMap added() {
        TargetMap out;
        out[linkLocal(9)].sinkName = "left over";
        find->takeAdded(out);
        return out;
    }
    std::list<IPAddress> lost() {
        std::list<IPAddress> out = {linkLocal(9)};
        find->takeLost(out);
        return out;
    }

    ScriptedTarget target{network, control(1)};
    Find* find = nullptr;
};

TEST_F(TargetTable, IsEmptyAtFirst) {
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(TargetTable, HoldsEachSinkOfAnAddedTarget) {
    EXPECT_TRUE(add());
    EXPECT_EQ(find->targetCount(), 3u);
    EXPECT_THAT(log.texts(6),
                ElementsAre("add Target: room 1", "add Target: room 2", "add Target: room 3"));
    const TargetMap out = added();
    ASSERT_EQ(out.size(), 3u);
    const TargetInfo& info = out.at(linkLocal(1, 6001));
    EXPECT_EQ(info.productID, 77u);
    EXPECT_EQ(info.reserved, 0);
    EXPECT_EQ(info.sinkNo, 2);
    EXPECT_EQ(info.version, 1);
    EXPECT_EQ(info.targetName, "room");
    EXPECT_EQ(info.configText, "");
    EXPECT_EQ(info.findAddress, control(1));
    EXPECT_EQ(info.sinkName, "two");
    EXPECT_THAT(added(), IsEmpty()) << "handed out once";
    EXPECT_EQ(find->targetCount(), 3u) << "and still in the table";
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(TargetTable, AsksATargetForItsSinksAlone) {
    EXPECT_TRUE(add());
    EXPECT_THAT(target.order(),
                ElementsAre("SINK_REQ 0", "SINK_REQ 1", "SINK_REQ 2", "SINK_REQ 3"));
}

TEST_F(TargetTable, DoesNotChangeWhenTheSameTargetIsAddedAgain) {
    EXPECT_TRUE(add());
    added();
    target.sinks[0].name = "renamed";
    EXPECT_TRUE(find->addTarget(control(1), 78, "other room"));
    EXPECT_EQ(find->targetCount(), 3u);
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(lost(), IsEmpty());
    find->removeTarget(control(1));
    EXPECT_TRUE(log.has(6, "rem Target: room 1")) << "the entry was not refreshed";
}

TEST_F(TargetTable, LosesOneOfTwoVanishedSinksACall) {
    EXPECT_TRUE(add());
    target.sinks.resize(1);
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), ElementsAre("del Target: room 2"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6001)));
    EXPECT_EQ(find->targetCount(), 2u);
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), ElementsAre("del Target: room 3"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6002)));
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), IsEmpty());
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(TargetTable, LosesAndAddsASinkWhoseVersionChanges) {
    EXPECT_TRUE(add());
    added();
    target.sinks[1].version = 2;
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), ElementsAre("del Target: room 2", "add Target: room 2"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6001)));
    const TargetMap out = added();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.at(linkLocal(1, 6001)).version, 2);
}

TEST_F(TargetTable, LosesAndAddsASinkWhoseNumberChanges) {
    target.sinks.resize(2);
    EXPECT_TRUE(add());
    std::swap(target.sinks[0], target.sinks[1]);
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), ElementsAre("del Target: room 1", "add Target: room 2"));
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), ElementsAre("del Target: room 2", "add Target: room 1"));
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), IsEmpty());
}

// Of several changed sinks only the first is replaced in one call: the others stay as they were.
TEST_F(TargetTable, ReplacesOneChangedSinkACall) {
    EXPECT_TRUE(add());
    for (auto& sink : target.sinks) sink.version = 2;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(add());
        const std::string no = std::to_string(i);
        EXPECT_THAT(log.texts(6), ElementsAre("del Target: room " + no, "add Target: room " + no));
    }
    EXPECT_TRUE(add());
    EXPECT_THAT(log.texts(6), IsEmpty());
}

TEST_F(TargetTable, LosesNothingOfAnotherTarget) {
    ScriptedTarget other(network, control(2));
    other.sinks = {{6000, 1, "o"}};
    EXPECT_TRUE(add());
    EXPECT_TRUE(find->addTarget(control(2), 1, "other"));
    EXPECT_EQ(find->targetCount(), 4u);
    EXPECT_THAT(lost(), IsEmpty());
    find->removeTarget(control(1));
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(TargetTable, KnowsATargetByPortAndScopeToo) {
    EXPECT_TRUE(add());
    find->removeTarget(control(1, 4));
    find->removeTarget(linkLocal(1, 19643));
    EXPECT_EQ(find->targetCount(), 3u);
}

TEST_F(TargetTable, LosesAllSinksOfARemovedTargetInOrder) {
    EXPECT_TRUE(add());
    log.clear();
    find->removeTarget(control(1));
    EXPECT_THAT(log.texts(6),
                ElementsAre("rem Target: room 1", "rem Target: room 2", "rem Target: room 3"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6000), linkLocal(1, 6001), linkLocal(1, 6002)));
    EXPECT_THAT(lost(), IsEmpty()) << "handed out once";
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_THAT(added(), IsEmpty()) << "what came and went leaves nothing";
}

TEST_F(TargetTable, ErasesAKeyWithoutAWord) {
    EXPECT_TRUE(add());
    log.clear();
    find->eraseTarget(linkLocal(1, 6001));
    find->eraseTarget(linkLocal(1, 7000));
    EXPECT_EQ(find->targetCount(), 2u);
    EXPECT_THAT(lost(), IsEmpty());
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(added().size(), 2u);
}

TEST_F(TargetTable, StaysWhenTheTargetCannotBeAsked) {
    EXPECT_TRUE(add());
    network.waitFails = true;
    EXPECT_FALSE(add());
    EXPECT_EQ(find->targetCount(), 3u);
    EXPECT_THAT(log.texts(6), IsEmpty());
}

// Silence means no sinks: they go, one a call.
TEST_F(TargetTable, LosesTheSinksOfATargetThatFellSilent) {
    EXPECT_TRUE(add());
    target.behaveToAll(Manner::silent);
    for (std::uint64_t left : {2u, 1u, 0u, 0u}) {
        EXPECT_TRUE(add());
        EXPECT_EQ(find->targetCount(), left);
    }
}

TEST_F(TargetTable, IsNotTouchedBySearchAndReFind) {
    TargetMap out;
    EXPECT_TRUE(find->search(out));
    IPAddress address;
    TargetInfo info;
    EXPECT_TRUE(find->reFind(control(1), 1, address, info));
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(TargetTable, IsKeptByOpenAndClose) {
    EXPECT_TRUE(add());
    EXPECT_TRUE(find->open());
    find->close();
    EXPECT_EQ(find->targetCount(), 3u);
}

// The watch writes while its user reads.
TEST(SharedTargetTable, MayBeReadWhileItIsWritten) {
    const LogCapture quiet(-1);
    VELMORA::TargetTable table;
    const VELMORA::SinkMap sinks = {{linkLocal(1, 6000), {1, 1, "s"}},
                                    {linkLocal(1, 6001), {2, 1, "t"}}};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            table.update(control(1), 1, "room", sinks);
            table.remove(control(1));
        }
    });
    std::size_t lost = 0;
    for (int i = 0; i < 2000; ++i) {
        TargetMap added;
        table.takeAdded(added);
        std::list<IPAddress> gone;
        table.takeLost(gone);
        lost += gone.size();
        EXPECT_LE(table.size(), 2u);
    }
    writer.join();
    std::list<IPAddress> gone;
    table.takeLost(gone);
    EXPECT_EQ(lost + gone.size(), 4000u);
}

}  // namespace
}  // namespace velmora_test
