// The running stream takes nothing from the heap: its network here takes nothing either.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>

#include "sync/ThreadMode.h"
#include "tests/support/AllocationWatch.h"
#include "tests/support/FakeClock.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;

// A target without memory of its own: it answers CONNECT_REQ at once and each request for feedback
// after 100 µs, and every third time with a resend request instead.
class QuietLink final : public ZENNO::Link {
public:
    explicit QuietLink(FakeClock& clock) : clock_(clock) {}

    bool open(ZENNO::SocketKind) override { return open_ = true; }
    void close() override { open_ = false; }
    bool isOpen() const override { return open_; }
    bool bindV6(IPAddress&) override { return true; }
    bool joinV6(const IPAddress&) override { return true; }
    bool setBlocking(bool on) override {
        blocking_ = on;
        return true;
    }
    int waitReadable(std::uint32_t micros) override {
        const std::uint64_t end = clock_.time() + micros;
        if (!answer_ || due_ > end) {
            clock_.advanceTo(end);
            return ZENNO::waitTimedOut;
        }
        clock_.advanceTo(due_);
        return ZENNO::waitReady;
    }
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override {
        length = 16;
        std::copy(answer_->begin(), answer_->end(), buffer.data);
        answer_.reset();
        from = from_;
        return true;
    }
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to, bool) noexcept override {
        const std::uint8_t id = data.data[4];
        if (id == 10) ++packets;
        from_ = to;
        if (answer_) return static_cast<std::int64_t>(data.size);
        due_ = clock_.time() + 100;
        if (id == 8) answer_ = {100, 0, 16, 0, 9, 0, 1, 0, 0x70, 0x17, 0, 0, 0, 0, 0, 0};
        if (id == 10 && (data.data[6] & 0x20) != 0) {
            ++asked;
            const auto from = static_cast<std::uint8_t>(data.data[8] - 4);
            if (asked % 3 == 0) {
                answer_ = {100, 0, 16, 0, 11, 0, 8, 0, 0, 0, from, data.data[9], 0, 0, 0, 0};
            } else {
                answer_ = {100, 0, 16, 0, 11, 0, 0, 0, 0x10, 0x80, 0, 0, 0, 0, 0, 0};
            }
        }
        return static_cast<std::int64_t>(data.size);
    }

    int packets = 0, asked = 0;

private:
    FakeClock& clock_;
    bool open_ = false;
    std::optional<std::array<std::uint8_t, 16>> answer_;
    std::uint64_t due_ = 0;
    IPAddress from_{};
};

class QuietEnvironment final : public ZENNO::Environment {
public:
    ZENNO::Clock& clock() noexcept override { return time; }
    std::unique_ptr<ZENNO::Link> makeLink() override {
        auto link = std::make_unique<QuietLink>(time);
        links.push_back(link.get());
        return link;
    }
    bool localAddressesV6(ZENNO::LocalInterfaceMap&) override { return true; }

    FakeClock time;
    std::vector<QuietLink*> links;
};

struct SendingCase {
    const char* why;
    std::uint32_t mode;
    VELMORA::TransferProfile row;
};

TEST(StreamWorker, AllocatesNothingWhilePlaying) {
    const SendingCase cases[] = {
        {"Fix, three packets a turn", 1, Session::fixRow(1000, 3, 722534)},
        {"Var, one packet a turn", 1, Session::varRow(1000, 1, 1424)},
        {"payloads whose longer form is longer", 1, Session::varRow(1000, 2, 1423)},
        {"polling", VELMORA::NOSLEEPFORCE, Session::fixRow(1000, 2)},
    };
    for (const SendingCase& c : cases) {
        SCOPED_TRACE(c.why);
        QuietEnvironment world;
        world.time.tickPerRead = 1;
        TestSync sync(world);
        sync.open(c.mode, 10000, 3, "host", 1);
        sync.sinkConfig = Session::stereo16;
        sync.target = IPAddress::loopbackV6(5000);
        sync.profiles[0] = c.row;
        sync.profileCount = 1;
        sync.state = Sync::Connecting;
        sync.playing = 1;

        // Counted from a block of audio somewhere behind the start to one far behind that.
        const Bytes block(1000);
        std::optional<AllocationWatch> watch;
        std::optional<std::size_t> taken;
        int packetsBefore = 0;
        sync.supply = [&](StreamRef& out) {
            out = {block.data(), block.size()};
            const int packets = world.links.front()->packets;
            if (!watch && packets > 100) {
                packetsBefore = packets;
                watch.emplace();
            }
            if (watch && !taken && packets > packetsBefore + 1000 * c.row.packetCount) {
                taken = watch->count();
                sync.state = Sync::Idle;
            }
            return true;
        };
        EXPECT_TRUE(sync.streamWorker());
        ASSERT_TRUE(taken.has_value());
        EXPECT_EQ(*taken, 0u);
        EXPECT_GT(world.links.front()->asked, 50);
    }
}

TEST(AllocationWatch, CountsWhatThisThreadTakes) {
    const AllocationWatch watch;
    EXPECT_EQ(watch.count(), 0u);
    const auto taken = std::make_unique<int>(1);
    EXPECT_EQ(watch.count(), 1u);
}

}  // namespace
