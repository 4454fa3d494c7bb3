// The socket on which targets tell of themselves.
#include <array>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

// Notes what is joined; what else is asked goes to the network in memory.
class JoinWitness final : public ZENNO::Environment {
public:
    explicit JoinWitness(FakeNetwork& network) : network_(network) {}
    ZENNO::Clock& clock() noexcept override { return network_.clock(); }
    std::unique_ptr<ZENNO::Link> makeLink() override { return std::make_unique<Witness>(*this); }
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override {
        return network_.localAddressesV6(out);
    }

    std::vector<IPAddress> joined, bound;
    std::size_t joinsThatWork = 100;

private:
    class Witness final : public ZENNO::Link {
    public:
        explicit Witness(JoinWitness& owner) : owner_(owner), link_(owner.network_.makeLink()) {}
        bool open(ZENNO::SocketKind kind) override { return link_->open(kind); }
        void close() override { link_->close(); }
        bool isOpen() const override { return link_->isOpen(); }
        bool bindV6(IPAddress& address) override {
            owner_.bound.push_back(address);
            return link_->bindV6(address);
        }
        bool joinV6(const IPAddress& group) override {
            if (owner_.joined.size() == owner_.joinsThatWork) return false;
            owner_.joined.push_back(group);
            return link_->joinV6(group);
        }
        bool setBlocking(bool on) override { return link_->setBlocking(on); }
        int waitReadable(std::uint32_t micros) override { return link_->waitReadable(micros); }
        bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override {
            return link_->receiveFrom(buffer, length, from);
        }
        std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to,
                              bool retried) noexcept override {
            const std::int64_t sent = link_->sendOnce(data, to, retried);
            lastError_ = link_->lastError();
            return sent;
        }

    private:
        JoinWitness& owner_;
        std::unique_ptr<ZENNO::Link> link_;
    };

    FakeNetwork& network_;
};

class OpenWatch : public FindTest {
protected:
    void SetUp() override {
        addInterface(linkLocal(9, 0, 5), "wlan0");
        ASSERT_TRUE(find.open());
        world.bound.clear();
        log.clear();
    }
    JoinWitness world{network};
    Find find{setting, world};
    const std::array<std::uint8_t, 16> group = {0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
};

TEST_F(OpenWatch, BindsTheNotifyPortAndJoinsTheGroupOnEachInterface) {
    EXPECT_TRUE(find.openWatch());
    ASSERT_EQ(world.bound.size(), 1u);
    EXPECT_TRUE(world.bound[0].isZeroAddress());
    EXPECT_EQ(world.bound[0].port, (std::array<std::uint8_t, 2>{0x4c, 0xbb}));
    EXPECT_EQ(world.bound[0].scope, 0u);
    ASSERT_EQ(world.joined.size(), 2u);
    EXPECT_EQ(world.joined[0].address, group);
    EXPECT_EQ(world.joined[0].scope, 5u);
    EXPECT_EQ(world.joined[1].address, group);
    EXPECT_EQ(world.joined[1].scope, eth0);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(OpenWatch, FailsInTheWordsOfOpen) {
    network.openFails = true;
    EXPECT_FALSE(find.openWatch());
    EXPECT_THAT(log.texts(3), ElementsAre("error socket open Find::open"));
    log.clear();
    network.openFails = false;
    network.bindFails = true;
    EXPECT_FALSE(find.openWatch());
    EXPECT_THAT(log.texts(3), ElementsAre("error socket bind Find::open"));
}

TEST_F(OpenWatch, TellsAFailedJoinByTheErrorThatTheUnicastSocketHadBefore) {
    world.joinsThatWork = 1;
    EXPECT_FALSE(find.openWatch());
    EXPECT_EQ(world.joined.size(), 1u);
    EXPECT_THAT(log.texts(3), ElementsAre("MULTI  member error:0"));
    EXPECT_EQ(network.openLinks(), 2) << "what was joined stays joined";

    log.clear();
    network.sendError = 10051;
    find.ping(control(1));
    world.joinsThatWork = 1;
    EXPECT_FALSE(find.openWatch());
    EXPECT_THAT(log.texts(), ElementsAre("MULTI  member error:10051"));
}

TEST_F(OpenWatch, EmptiesTheTargetTable) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}, {6001, 1, "two"}};
    ASSERT_TRUE(find.addTarget(control(1), 1, "t"));
    target.sinks.pop_back();
    ASSERT_TRUE(find.addTarget(control(1), 1, "t"));
    EXPECT_EQ(find.targetCount(), 1u);

    EXPECT_TRUE(find.openWatch());
    EXPECT_EQ(find.targetCount(), 0u);
    TargetMap added;
    find.takeAdded(added);
    EXPECT_THAT(added, IsEmpty());
    std::list<IPAddress> lost;
    find.takeLost(lost);
    EXPECT_THAT(lost, IsEmpty());
}

TEST_F(OpenWatch, KeepsTheTableWhenItFails) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}};
    ASSERT_TRUE(find.addTarget(control(1), 1, "t"));
    world.joinsThatWork = 0;
    EXPECT_FALSE(find.openWatch());
    EXPECT_EQ(find.targetCount(), 1u);
}

}  // namespace
}  // namespace velmora_test
