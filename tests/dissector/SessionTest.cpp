// Whole sessions of this tree's own host and target, over the network in memory: what both really
// send to each other is dissected without a mark that it does not deserve.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "find/Find.h"
#include "sync/Sync.h"
#include "tests/dissector/Expected.h"
#include "tests/dissector/Talk.h"
#include "tests/support/FakeNetwork.h"
#include "tests/target/TransferWorld.h"
#include "wire/StreamMessage.h"

namespace velmora_test {
namespace {

namespace wire = VELMORA::wire;
using VELMORA::SinkConfig;
using VELMORA::Sync;

// The software target at its ports on the network in memory.
class TargetOnNetwork final : public Peer {
public:
    TargetOnNetwork(FakeNetwork& network, velmora_target::TargetSettings settings)
        : target(std::move(settings),
                 [this](const std::string&, std::uint16_t) {
                     return std::make_unique<TapeOutput>(tape);
                 },
                 {{}, {}, [this](std::uint16_t) { return std::make_unique<ShelfItem>(shelf); }}),
          network_(network) {
        for (const std::uint16_t port : {talkControlPort, talkSinkPort})
            network.attach(at(port), this);
    }
    static IPAddress at(std::uint16_t port) {
        return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, port, 3);
    }

    void onDatagram(FakeNetwork&, const Datagram& d) override {
        const std::uint64_t now = network_.time.time();
        velmora_target::Mail mail;
        target.onDatagram({now, now, d.to.portNumber(), d.from, d.data}, mail);
        post(mail);
    }

    Tape tape;
    Shelf shelf;
    velmora_target::Target target;

private:
    void post(const velmora_target::Mail& mail) {
        for (const velmora_target::Outgoing& out : mail.datagrams) {
            network_.send(at(out.localPort), out.to, out.data);
        }
        const std::uint64_t now = network_.time.time(), next = target.nextTime(now);
        if (next == due_ || next > now + 60'000'000) return;
        due_ = std::max(next, now + 1);
        network_.time.at(due_, [this, booked = due_] {
            if (booked != due_) return;  // something came in between and booked anew
            velmora_target::Mail late;
            target.onTime(network_.time.time(), late);
            due_ = 0;
            post(late);
        });
    }
    FakeNetwork& network_;
    std::uint64_t due_ = 0;
};

class QuietMachine final : public VELMORA::Machine {
public:
    std::int32_t physicalCoreCount() noexcept override { return 4; }
    std::uint32_t processPriorityClass() noexcept override { return 32; }
    bool setThreadPriority(ZENNO::platform::Priority) noexcept override { return true; }
    bool setThreadAffinity(std::uint64_t) noexcept override { return true; }
    bool setProcessAffinity(std::uint64_t) noexcept override { return true; }
    std::thread startThread(std::function<void()>) override { return {}; }
};

// A session whose stream runs on the test's thread, with so many blocks of audio.
class PlayingSync final : public Sync {
public:
    using Sync::enterDisconnecting;
    using Sync::Sync;
    using Sync::workerEntry;

    bool getNewStream(VELMORA::StreamRef& out) override {
        if (blocks == 0) {
            enterDisconnecting();
            return false;
        }
        --blocks;
        out = {block_.data(), block_.size()};
        return true;
    }
    int blocks = 0;

private:
    Bytes block_ = Bytes(960, 0x5a);  // 5 ms
};

struct World {
    FakeNetwork network;
    QuietMachine machine;
    TargetOnNetwork target;

    explicit World(velmora_target::TargetSettings settings = transferSettings())
        : target(network, std::move(settings)) {}

    // So many blocks of 5 ms to the target's sink.
    void play(int blocks) {
        PlayingSync sync(network);
        sync.setMachine(machine);
        ASSERT_TRUE(sync.open(1, 100000, 3, "host", 0x4554'4e45'5652'4f4b));
        const std::uint32_t latencyWanted = 0;
        ASSERT_TRUE(sync.getInfo(TargetOnNetwork::at(talkSinkPort), latencyWanted, false));
        ASSERT_TRUE(sync.setStreamFormat(pcm16Stereo48()));
        ASSERT_TRUE(sync.configTransferProfile(0, 4000, 0));
        ASSERT_TRUE(sync.connectPrepare());
        sync.blocks = blocks;
        sync.playing = 1;
        sync.state = Sync::Connecting;
        sync.workerEntry();
        EXPECT_EQ(sync.state, Sync::Idle);
        EXPECT_EQ(sync.blocks, 0) << "the stream ended before its audio";
    }
    // As a machine sees it that sends: everything, lost or not.
    Capture capture() const {
        Capture out;
        for (const Datagram& d : network.sent) {
            out.add(d.from, d.to, d.data, d.time - FakeClock::start);
        }
        return out;
    }
};

// Each is taken, read by its header as the decoder reads it, and bears no mark but these.
void expectClean(const World& world, const std::vector<Shown>& shown,
                 const std::set<std::string>& allowed) {
    ASSERT_EQ(shown.size(), world.network.sent.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        SCOPED_TRACE("packet " + std::to_string(i + 1) + ", id " + shown[i]["id"]);
        ASSERT_TRUE(shown[i].isOurs);
        for (const auto& [mark, text] : shown[i].marks) {
            EXPECT_TRUE(allowed.contains(mark)) << mark << ": " << text;
        }
        const auto packet = wire::readPacket(world.network.sent[i].data);
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(shown[i]["id"], std::to_string(packet->id()));
        EXPECT_EQ(shown[i]["payload_length"], std::to_string(packet->payload().size()));
        if (const auto info = wire::read<wire::INFO_ANS>(*packet); info && !info->isResend) {
            EXPECT_EQ(shown[i]["info.value"], std::to_string(wire::decodeFeedback(*info).value));
        }
    }
}

std::size_t countOf(const std::vector<Shown>& shown, const std::string& field,
                    const std::string& value) {
    return static_cast<std::size_t>(std::count_if(
        shown.begin(), shown.end(), [&](const Shown& s) { return s[field] == value; }));
}

TEST(DissectorSession, SearchSettingsAndTransferAreClean) {
    World world;
    VELMORA::FindSetting setting;
    setting.clientName = "dissector test";
    VELMORA::Find find(setting, world.network);
    ASSERT_TRUE(find.open());
    VELMORA::TargetMap found;
    ASSERT_TRUE(find.search(found));
    ASSERT_EQ(found.size(), 2u);  // sinks
    VELMORA::SettingList items;
    ASSERT_TRUE(find.getItems(TargetOnNetwork::at(talkControlPort), items, false));
    const Bytes data = numbered(90);
    ASSERT_TRUE(find.Transfer(TargetOnNetwork::at(talkControlPort), 0,
                              ZENNO::BufferCS_const(data.data(), data.size()), 0));
    // Only who is greeted before his turn, and nobody answers, is asked once more.
    const auto shown = dissect(world.capture());
    expectClean(world, shown, {});
    EXPECT_EQ(countOf(shown, "transfer.crc_good", "1"), 1u);
    EXPECT_EQ(countOf(shown, "item.no", "1"), 4u) << "description and value, asked and answered";
    EXPECT_EQ(countOf(shown, "sink.name", "Main"), 1u);
    for (const Shown& one : shown) {
        EXPECT_TRUE(one["id"] == "28" || one.has("request_in") || one.has("response_in"))
            << one["id"];
    }
}

TEST(DissectorSession, ATransferPastLossesIsCleanAndItsCrcIsRight) {
    World world;
    int data = 0;
    world.network.fate = [&](const Datagram& d) -> Fate {
        const bool isLost = d.data[4] == wire::TRANSFER_DATA::id && ++data % 5 == 0;
        return isLost ? Fate{} : Fate{Arrival{50, {}}};
    };
    VELMORA::Find find({}, world.network);
    ASSERT_TRUE(find.open());
    const Bytes bytes = numbered(96);
    ASSERT_TRUE(find.Transfer(TargetOnNetwork::at(talkControlPort), 0,
                              ZENNO::BufferCS_const(bytes.data(), bytes.size()), 0));
    const auto shown = dissect(world.capture());
    expectClean(world, shown, {"again", "long_form", "burst_incomplete", "no_answer"});
    EXPECT_EQ(countOf(shown, "transfer.crc_good", "1"), 1u);
    EXPECT_GT(countOf(shown, "transfer.again", "1"), 0u);
}

TEST(DissectorSession, AStreamWithoutLossesIsClean) {
    World world;
    world.play(100);
    const auto shown = dissect(world.capture());
    expectClean(world, shown, {});
    EXPECT_GT(countOf(shown, "stream.new", "1"), 100u);
    EXPECT_EQ(countOf(shown, "stream.again", "1"), 0u);
    EXPECT_EQ(countOf(shown, "id", "8"), 1u);
    std::size_t answered = 0, frames = 0;
    for (const Shown& one : shown) {
        if (one["id"] == "11" && one.has("request_in")) ++answered;
        if (one.has("stream.frames")) frames += std::stoul(one["stream.frames"]);
    }
    EXPECT_GT(answered, 3u);
    EXPECT_GE(frames, 100u * 240);
}

// At the sender nothing is missing and what is sent again is seen twice; at the receiver what is
// lost is a gap, and what is sent again fills it.
TEST(DissectorSession, AStreamWithLossesIsToldFromBothEnds) {
    World world;
    int packets = 0;
    std::vector<Datagram> arrived;
    world.network.fate = [&](const Datagram& d) -> Fate {
        const bool isAudio = d.data[4] == wire::STREAM_DATA::id;
        if (isAudio && ++packets % 23 == 0) return {};
        arrived.push_back(d);
        return {Arrival{50, {}}};
    };
    world.play(200);
    const auto shown = dissect(world.capture());
    expectClean(world, shown, {"again", "asks_again", "long_form"});
    // Worked out anew, without the dissector.
    std::map<std::string, int> times;
    std::size_t again = 0;
    for (const Datagram& d : world.network.sent) {
        const auto packet = wire::readPacket(d.data);
        if (packet->id() != wire::STREAM_DATA::id) continue;
        if (++times[std::to_string(packet->arg16(8))] > 1) ++again;
    }
    EXPECT_GT(again, 10u);
    EXPECT_EQ(countOf(shown, "stream.again", "1"), again);
    EXPECT_EQ(countOf(shown, "flags.resend", "1"), [&] {
        std::size_t asked = 0;
        for (const Shown& one : shown) asked += one.isMarked("asks_again") ? 1u : 0u;
        return asked;
    }());
    for (const Shown& one : shown) {
        if (one["stream.again"] == "1") {
            EXPECT_TRUE(one.has("stream.first_in") && one.has("stream.asked_in"));
        }
    }

    Capture atTarget;
    for (const Datagram& d : arrived) atTarget.add(d.from, d.to, d.data, d.time - FakeClock::start);
    std::set<int> numbers;
    std::size_t missing = 0, fills = 0;
    for (const Shown& one : dissect(atTarget)) {
        if (!one.has("stream.sequence")) continue;
        numbers.insert(std::stoi(one["stream.sequence"]));
        if (one.has("stream.gap")) missing += std::stoul(one["stream.gap"]);
        fills += one.has("stream.fills_gap") ? 1u : 0u;
    }
    EXPECT_GT(missing, 10u);
    EXPECT_EQ(missing - fills, static_cast<std::size_t>(*numbers.rbegin()) + 1 - numbers.size());
}

}  // namespace
}  // namespace velmora_test
