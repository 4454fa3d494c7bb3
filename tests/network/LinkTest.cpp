#include "src/Network/Link.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace ZENNO;

// A link whose sends come out as written down before; it notes what was asked of it.
class ScriptedLink final : public Link {
public:
    struct Step {
        std::int64_t taken;  // -1 for an error
        std::int32_t error = 0;
    };
    std::vector<Step> script;
    std::vector<bool> modes;            // every setBlocking
    std::vector<IPAddress> to;          // every send
    std::vector<IPAddress> storedThen;  // destination() at that moment
    bool modeFails = false;
    Bytes incoming;
    bool readFails = false;
    std::uint64_t askedSize = 0;

    void startBlocking(bool on) { blocking_ = on; }
    void fixScope(std::uint32_t scope) { fixedScope_ = scope; }

    bool open(SocketKind) override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    bool bindV6(IPAddress&) override { return true; }
    bool joinV6(const IPAddress&) override { return true; }
    bool setBlocking(bool on) override {
        modes.push_back(on);
        if (modeFails) return false;
        blocking_ = on;
        return true;
    }
    int waitReadable(std::uint32_t micros) override {
        lastWait = micros;
        return waitTimedOut;
    }
    bool receiveFrom(BufferCS buffer, std::uint64_t& length, IPAddress&) override {
        askedSize = buffer.size;
        length = std::min<std::uint64_t>(incoming.size(), buffer.size);
        std::copy_n(incoming.begin(), length, buffer.data);
        return !readFails;
    }
    using Link::receiveFrom;
    std::int64_t sendOnce(BufferCS_const, const IPAddress& there, bool) noexcept override {
        to.push_back(there);
        storedThen.push_back(destination());
        const Step step = script.at(to.size() - 1);
        if (step.taken < 0) lastError_ = step.error;
        return step.taken;
    }
    std::uint32_t lastWait = 99;
};

const Bytes tenBytes(10, 0x5a);
const IPAddress somewhere = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 7}, 19642, 9);
const IPAddress elsewhere = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 8}, 19643, 5);

TEST(Link, SendLoop) {
    using Steps = std::vector<ScriptedLink::Step>;
    using Modes = std::vector<bool>;
    const struct {
        const char* why;
        bool retry, startsBlocking;
        Steps script;
        bool sent;
        std::int32_t lastError;
        Modes modes;
        bool endsBlocking;
    } cases[] = {
        {"all taken at once", false, true, {{10}}, true, 0, {}, true},
        {"all taken at once, non-blocking", true, false, {{10}}, true, 0, {}, false},
        {"full and no retry", false, false, {{-1, 10035}}, false, 10035, {}, false},
        {"no buffers and no retry", false, true, {{-1, 10055}}, false, 10055, {}, true},
        {"short and no retry", false, true, {{9}}, false, 0, {}, true},
        {"another error and no retry", false, true, {{-1, 10051}}, false, 10051, {}, true},
        {"another error with retry", true, false, {{-1, 10051}}, false, 10051, {}, false},
        {"full, then taken: made blocking and put back",
         true,
         false,
         {{-1, 10035}, {10}},
         true,
         10035,
         {true, false},
         false},
        {"no buffers, then taken",
         true,
         false,
         {{-1, 10055}, {10}},
         true,
         10055,
         {true, false},
         false},
        {"full three times: made blocking once",
         true,
         false,
         {{-1, 10035}, {-1, 10035}, {-1, 10055}, {10}},
         true,
         10055,
         {true, false},
         false},
        {"short, then taken whole", true, false, {{3}, {10}}, true, 0, {true, false}, false},
        {"a blocking link simply tries again",
         true,
         true,
         {{-1, 10055}, {4}, {10}},
         true,
         10055,
         {},
         true},
        {"full, then another error: it stays blocking",
         true,
         false,
         {{-1, 10035}, {-1, 10038}},
         false,
         10038,
         {true},
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        ScriptedLink link;
        link.startBlocking(c.startsBlocking);
        link.script = c.script;
        EXPECT_EQ(link.sendDatagram(tenBytes, c.retry), c.sent);
        EXPECT_EQ(link.to.size(), c.script.size());
        EXPECT_EQ(link.lastError(), c.lastError);
        EXPECT_EQ(link.modes, c.modes);
        EXPECT_EQ(link.isBlocking(), c.endsBlocking);

        SCOPED_TRACE("to an address of its own");
        ScriptedLink other;
        other.startBlocking(c.startsBlocking);
        other.script = c.script;
        EXPECT_EQ(other.sendDatagramTo(tenBytes, somewhere, c.retry), c.sent);
        EXPECT_EQ(other.to, std::vector<IPAddress>(c.script.size(), somewhere));
        EXPECT_EQ(other.modes, c.modes);
    }
}

TEST(Link, SendGoesOnWhenTheModeCannotBeChanged) {
    ScriptedLink link;
    link.startBlocking(false);
    link.modeFails = true;
    link.script = {{-1, 10035}, {-1, 10035}, {10}};
    EXPECT_TRUE(link.sendDatagram(tenBytes, /*retry=*/true));
    EXPECT_EQ(link.modes, (std::vector<bool>{true, true, false}));
    EXPECT_FALSE(link.isBlocking());
}

TEST(Link, DestinationKeepsItsOwnScopeOnAFreeLink) {
    ScriptedLink link;
    link.setDestination(somewhere);
    EXPECT_EQ(link.destination(), somewhere);
    IPAddress out;
    link.getDestination(out);
    EXPECT_EQ(out, somewhere);
}

TEST(Link, FixedScopeRulesTheDestinationsAndIsNotShown) {
    ScriptedLink link;
    link.fixScope(4);
    link.setDestination(somewhere);
    EXPECT_EQ(link.destination().scope, 4u);
    IPAddress out;
    link.getDestination(out);
    EXPECT_EQ(out.scope, 0u);
    EXPECT_EQ(out.address, somewhere.address);
    EXPECT_EQ(out.port, somewhere.port);

    link.script = {{10}, {10}};
    EXPECT_TRUE(link.sendDatagram(tenBytes, false));
    EXPECT_TRUE(link.sendDatagramTo(tenBytes, elsewhere, false));
    EXPECT_EQ(link.to[0].scope, 4u);
    EXPECT_EQ(link.to[1].scope, 4u);
    EXPECT_EQ(link.to[1].address, elsewhere.address);
}

TEST(Link, SendToAnotherLeavesTheStoredDestination) {
    for (const bool works : {true, false}) {
        SCOPED_TRACE(works);
        ScriptedLink link;
        link.setDestination(somewhere);
        link.script = {{works ? 10 : -1, 10051}};
        EXPECT_EQ(link.sendDatagramTo(tenBytes, elsewhere, false), works);
        EXPECT_EQ(link.to, std::vector{elsewhere});
        EXPECT_EQ(link.storedThen, std::vector{somewhere});
        EXPECT_EQ(link.destination(), somewhere);
    }
}

TEST(Link, VectorReadTakesReaderSizeAndShrinksToWhatCame) {
    const struct {
        const char* why;
        std::uint64_t readerSize;
        std::size_t sent, got;
    } cases[] = {
        {"the size from the start", 1500, 20, 20},
        {"nothing there", 1500, 0, 0},
        {"longer than the reader: cut", 1500, 1501, 1500},
        {"a larger reader", 4096, 4096, 4096},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        ScriptedLink link;
        EXPECT_EQ(link.readerSize, 1500u);
        link.readerSize = c.readerSize;
        link.incoming.assign(c.sent, 7);
        Bytes data{1, 2, 3};
        IPAddress from;
        EXPECT_TRUE(link.receiveFrom(data, from));
        EXPECT_EQ(link.askedSize, c.readerSize);
        EXPECT_EQ(data, Bytes(c.got, 7));
    }
}

TEST(Link, VectorReadIsEmptyWhenTheReadFails) {
    ScriptedLink link;
    link.readFails = true;
    link.incoming.assign(5, 7);
    Bytes data{1, 2, 3};
    IPAddress from;
    EXPECT_FALSE(link.receiveFrom(data, from));
    EXPECT_TRUE(data.empty());
}

TEST(Link, VectorReadAllocatesOnlyWhenTheReaderHasGrown) {
    ScriptedLink link;
    link.incoming.assign(5, 7);
    Bytes data;
    IPAddress from;
    ASSERT_TRUE(link.receiveFrom(data, from));
    const std::uint8_t* place = data.data();
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(link.receiveFrom(data, from));
    EXPECT_EQ(data.data(), place);
}

TEST(Link, PollIsAWaitOfNothing) {
    ScriptedLink link;
    EXPECT_EQ(link.poll(), waitTimedOut);
    EXPECT_EQ(link.lastWait, 0u);
}

TEST(Link, OnlyTwoErrorsMeanAFullBuffer) {
    for (const int error : {10035, 10055}) EXPECT_TRUE(isFullBuffer(error)) << error;
    for (const int error : {0, -1, 11, 105, 10036, 10054, 10056}) {
        EXPECT_FALSE(isFullBuffer(error)) << error;
    }
}

}  // namespace
