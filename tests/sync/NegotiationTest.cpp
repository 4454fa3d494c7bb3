// What a session settles with its target before a stream.
#include <gmock/gmock.h>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Ids = std::vector<std::uint16_t>;

constexpr std::uint64_t pcmMask = 0x0000'fff6'0000'0e3f;
constexpr std::uint64_t lsbMask = 0x0000'0202'0251'0002;
constexpr std::uint64_t msbMask = 0x0000'0202'02a1'0002;

Bytes mask64(std::uint64_t mask) {
    return datagram(
        5, 1,
        {static_cast<std::uint16_t>(mask), static_cast<std::uint16_t>(mask >> 16),
         static_cast<std::uint16_t>(mask >> 32), static_cast<std::uint16_t>(mask >> 48)});
}
std::uint64_t selectorOf(const Bytes& request) {
    return word16(request, 8) | std::uint64_t{word16(request, 10)} << 16 |
           std::uint64_t{word16(request, 12)} << 32 | std::uint64_t{word16(request, 14)} << 48;
}

// A target that answers all that getInfo asks.
struct Negotiation : Session {
    std::uint64_t summary = 0x0000'0e00;
    std::uint16_t grantedLatency = 120;

    Negotiation() {
        target.on(42, datagram(5, 1));
        target.on(4, [this](const Bytes& request) -> Datagrams {
            const std::uint64_t selector = selectorOf(request);
            if (selector == 0) return {mask64(summary)};
            if (selector == 0x100000) return {mask64(lsbMask)};
            if (selector == 0x200000) return {mask64(msbMask)};
            return {mask64(pcmMask)};
        });
        target.on(20, datagram(21, 1, {40, 500, 0x0006}));
        target.on(6, [this](const Bytes& request) {
            const std::uint16_t wanted = word16(request, 8);
            return Datagrams{wanted == 0 ? datagram(7, 1, {100, 15})
                                         : datagram(7, 1, {grantedLatency, 99})};
        });
        target.on(14, datagram(15, 1, {9000, 65535}));
        sync.target = {};
    }
    bool getInfo(std::uint32_t latencyWanted = 0, bool nopBreak = false) {
        return sync.getInfo(control, latencyWanted, nopBreak);
    }
};

TEST(Negotiation, AsksInOrderAndKeepsWhatItHears) {
    Negotiation n;
    EXPECT_TRUE(n.getInfo());
    EXPECT_EQ(n.target.requests, (Datagrams{datagram(4, 0), datagram(4, 0, {0x0e00}),
                                            datagram(20, 0), datagram(6, 0), datagram(14, 0)}));
    EXPECT_EQ(n.sync.pcmSupport, pcmMask);
    EXPECT_EQ(n.sync.dsdLsbSupport, 0u);
    EXPECT_EQ(n.sync.dsdMsbSupport, 0u);
    EXPECT_EQ(n.sync.transfer.minCycle10, 40);
    EXPECT_EQ(n.sync.transfer.maxCycle10, 500);
    EXPECT_EQ(n.sync.transfer.profileFlags, 6);
    EXPECT_EQ(n.sync.transfer.cycle, 0u);
    EXPECT_EQ(n.sync.latency, 100);
    EXPECT_EQ(n.sync.hwLatency, 15);
    EXPECT_EQ(n.sync.maxPacketSize, 8928);
    EXPECT_EQ(n.sync.maxPacketCount, 65535);
    EXPECT_EQ(n.sync.target, n.control);
    EXPECT_EQ(n.network.time.sleeps, 0) << "no log, no wait for the target's log channel";
    std::uint32_t total = 0;
    n.sync.totalLatency(total);
    EXPECT_EQ(total, 11500u);
}

TEST(Negotiation, NopBreakGoesAheadOfAllAndItsAnswerDoesNotMatter) {
    Negotiation n;
    EXPECT_TRUE(n.getInfo(0, /*nopBreak=*/true));
    EXPECT_EQ(n.target.requests.front(), datagram(42, 0));
    EXPECT_EQ(n.target.ids(), (Ids{42, 4, 4, 20, 6, 14}));

    Negotiation silent;
    silent.target.answers.erase(42);
    EXPECT_TRUE(silent.getInfo(0, true));
    EXPECT_EQ(silent.target.ids(), (Ids{42, 42, 42, 4, 4, 20, 6, 14}));
}

struct SummaryCase {
    const char* why;
    std::uint64_t summary;
    std::vector<std::uint64_t> selectors;
    bool good;
    std::uint64_t pcm, lsb, msb;
};

TEST(Negotiation, AsksForTheDetailsOfWhatTheSummaryOffers) {
    const SummaryCase cases[] = {
        {"nothing", 0, {0}, false, 0, 0, 0},
        {"PCM", 0x0e00, {0, 0x0e00}, true, pcmMask, 0, 0},
        {"PCM, by the low 16 bits of the summary alone",
         0x1'0000'8e3f,
         {0, 0x8e00},
         true,
         pcmMask,
         0,
         0},
        {"DSD, oldest bit first", 0x110000, {0, 0x100000}, true, 0, lsbMask, 0},
        {"DSD, oldest bit last", 0x210000, {0, 0x200000}, true, 0, 0, msbMask},
        {"all", 0x330e00, {0, 0x0e00, 0x100000, 0x200000}, true, pcmMask, lsbMask, msbMask},
        {"DSD without an order", 0x010000, {0}, false, 0, 0, 0},
        {"orders without DSD", 0x300000, {0}, false, 0, 0, 0},
        {"rates alone", 0x600000000, {0}, false, 0, 0, 0},
    };
    for (const SummaryCase& c : cases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        n.summary = c.summary;
        EXPECT_EQ(n.getInfo(), c.good);
        std::vector<std::uint64_t> selectors;
        for (const Bytes& request : n.target.requests) {
            if (word16(request, 4) == 4) selectors.push_back(selectorOf(request));
        }
        EXPECT_EQ(selectors, c.selectors);
        EXPECT_EQ(n.sync.pcmSupport, c.pcm);
        EXPECT_EQ(n.sync.dsdLsbSupport, c.lsb);
        EXPECT_EQ(n.sync.dsdMsbSupport, c.msb);
    }
}

TEST(Negotiation, OldMasksDoNotOutliveANewTarget) {
    Negotiation n;
    n.summary = 0x330e00;
    EXPECT_TRUE(n.getInfo());
    n.summary = 0x0e00;
    EXPECT_TRUE(n.getInfo());
    EXPECT_EQ(n.sync.dsdLsbSupport, 0u);
    EXPECT_EQ(n.sync.dsdMsbSupport, 0u);
}

TEST(Negotiation, FailsWhereAnAnswerIsMissing) {
    struct Case {
        const char* why;
        std::uint16_t id;
        Bytes answer;
        bool good;
    };
    const Case cases[] = {
        {"formats", 4, {}, false},
        {"formats refused", 4, datagram(5, 0), false},
        {"latency", 6, {}, false},
        {"latency refused", 6, datagram(7, 0), false},
        {"latency echoed", 6, datagram(6, 1), false},
        {"the profile may be missing", 20, {}, true},
        {"and refused", 20, datagram(21, 0, {40, 500, 6}), true},
        {"the size of data as well", 14, {}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        n.target.answers.erase(c.id);
        if (!c.answer.empty()) n.target.on(c.id, c.answer);
        EXPECT_EQ(n.getInfo(), c.good);
        EXPECT_EQ(n.sync.target, c.good ? n.control : IPAddress{});
    }
}

TEST(Negotiation, TheDetailOfASummaryIsRequired) {
    Negotiation n;
    n.summary = 0x330e00;
    n.target.on(4, [&](const Bytes& request) {
        return selectorOf(request) == 0x200000 ? Datagrams{} : Datagrams{mask64(n.summary)};
    });
    EXPECT_FALSE(n.getInfo());
}

TEST(Negotiation, ASilentProfileStoresZeros) {
    Negotiation n;
    EXPECT_TRUE(n.getInfo());
    n.sync.sinkConfig = Session::stereo16;
    n.sync.transfer.cycle = 5;
    n.target.answers.erase(20);
    n.target.requests.clear();
    EXPECT_TRUE(n.getInfo());
    EXPECT_EQ(n.sync.transfer.minCycle10, 0);
    EXPECT_EQ(n.sync.transfer.maxCycle10, 0);
    EXPECT_EQ(n.sync.transfer.profileFlags, 0);
    EXPECT_EQ(n.sync.transfer.cycle, 0u);
    EXPECT_THAT(n.target.requests, Contains(datagram(20, 0, {0x0202, 0, 0x000c, 0})))
        << "the present format is told";
}

struct LatencyCase {
    const char* why;
    std::uint32_t wanted;
    std::vector<std::uint16_t> requests;
    std::uint16_t latency;
    const char* log;
};

TEST(Negotiation, LatencyIsTheTargetsChoiceOrTheAnswerToAWish) {
    const LatencyCase cases[] = {
        {"none wanted", 0, {0}, 100, "LATENCY_REQ hw=1500us latency=10000us"},
        {"below 100 µs counts as none wanted",
         99,
         {0},
         100,
         "LATENCY_REQ hw=1500us latency=10000us"},
        {"the least wish", 100, {0, 1}, 120, "LATENCY_REQ hw=1500us request=100us latency=12000us"},
        {"the rest is dropped",
         12345,
         {0, 123},
         120,
         "LATENCY_REQ hw=1500us request=12300us latency=12000us"},
        {"a wish is cut to 16 bits", 6553600, {0}, 100, "LATENCY_REQ hw=1500us latency=10000us"},
        {"the largest",
         6553599,
         {0, 65535},
         120,
         "LATENCY_REQ hw=1500us request=6553500us latency=12000us"},
    };
    for (const LatencyCase& c : cases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        const LogCapture log(6);
        EXPECT_TRUE(n.getInfo(c.wanted));
        std::vector<std::uint16_t> requests;
        for (const Bytes& request : n.target.requests) {
            if (word16(request, 4) == 6) requests.push_back(word16(request, 8));
        }
        EXPECT_EQ(requests, c.requests);
        EXPECT_EQ(n.sync.latency, c.latency);
        EXPECT_EQ(n.sync.hwLatency, 15) << "of the first answer";
        EXPECT_TRUE(log.has(6, c.log));
    }
}

TEST(Negotiation, TheAnswerToAWishIsRequired) {
    Negotiation n;
    n.target.on(6, [](const Bytes& request) {
        return word16(request, 8) == 0 ? Datagrams{datagram(7, 1, {100, 15})} : Datagrams{};
    });
    EXPECT_FALSE(n.getInfo(5000));
}

struct LimitCase {
    const char* why;
    std::uint16_t mtu, max;
    std::uint16_t size, count;
};
constexpr LimitCase limitCases[] = {
    {"an ordinary Ethernet", 1500, 15000, 1428, 10},
    {"jumbo frames", 9000, 45000, 8928, 5},
    {"no limit of a burst", 1500, 65535, 1428, 65535},
    {"one byte less is a limit", 1500, 65534, 1428, 43},
    {"a burst below one datagram", 1500, 1499, 1428, 0},
    {"bits 0 and 3 are cleared", 1519, 15190, 1446, 10},
    {"nothing fits", 64, 640, 0, 10},
    {"below the overhead it wraps in 16 bits", 63, 630, 65526, 10},
    {"an MTU of 0 divides nothing", 0, 1000, 65472, 0},
    {"not even without a limit", 0, 65535, 65472, 65535},
};

TEST(Negotiation, LimitsOfAPacketAndABurstComeFromTheTarget) {
    for (const LimitCase& c : limitCases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        n.target.on(14, datagram(15, 1, {c.mtu, c.max}));
        const LogCapture log(6);
        EXPECT_TRUE(n.getInfo());
        EXPECT_EQ(n.sync.maxPacketSize, c.size);
        EXPECT_EQ(n.sync.maxPacketCount, c.count);
        EXPECT_TRUE(log.has(
            6, "DATASIZE_REQ mtu=" + std::to_string(c.mtu) + " max=" + std::to_string(c.max)));
    }
}

TEST(Negotiation, ATargetThatTellsNoSizesIsOnAnOrdinaryEthernet) {
    for (const char* why : {"silent", "refused", "socket failure"}) {
        SCOPED_TRACE(why);
        Negotiation n;
        n.target.answers.erase(14);
        if (why == std::string("refused")) n.target.on(14, datagram(15, 0, {9000, 9000}));
        if (why == std::string("socket failure")) {
            n.target.on(14, [&](const Bytes&) {
                n.network.waitFails = true;
                return Datagrams{};
            });
        }
        const LogCapture log(6);
        EXPECT_TRUE(n.getInfo());
        EXPECT_EQ(n.sync.maxPacketSize, 1428);
        EXPECT_EQ(n.sync.maxPacketCount, 10);
        for (const std::string& text : log.texts()) {
            EXPECT_THAT(text, Not(testing::HasSubstr("DATASIZE")));
        }
    }
}

TEST(Negotiation, ASocketFailureAnywhereElseEndsIt) {
    for (const std::uint16_t id : Ids{42, 4, 20, 6}) {
        SCOPED_TRACE(id);
        Negotiation n;
        n.target.on(id, [&](const Bytes&) {
            n.network.waitFails = true;
            return Datagrams{};
        });
        EXPECT_FALSE(n.getInfo(0, true));
    }
}

TEST(Negotiation, AtLevel6ItWaitsForTheTargetsLogChannel) {
    Negotiation n;
    const LogCapture log(6);
    EXPECT_TRUE(n.getInfo());
    EXPECT_EQ(n.network.time.sleeps, 1);
    EXPECT_EQ(n.network.time.time() - FakeClock::start, 5 * 100 + 110000u);
}

// ---- announcement ----

TEST(Negotiation, AnnouncesTheClassOfTheFormatAndTheClient) {
    Negotiation n;
    n.sync.target = n.control;
    n.sync.sinkConfig = Session::stereo16;
    n.sync.latency = 0x0123;
    n.target.on(18, datagram(19, 1, {0, 250}));
    n.target.on(24, datagram(25, 1));
    const LogCapture log(6);
    EXPECT_TRUE(n.sync.connectPrepare());
    // class 0x100 in place of the sample format, the latency in bits 16..31
    EXPECT_THAT(n.target.requests, ElementsAre(datagram(18, 0, {0x0102, 0x0123, 0x000c, 0}),
                                               datagram(24, 1, {0x4f4b, 0x5652, 0x4e45, 0x4554},
                                                        {'h', 'o', 's', 't'})));
    EXPECT_THAT(log.texts(), ElementsAre("CONNECTPRE_REQ latency=25000us"));
    EXPECT_EQ(n.sync.latency, 0x0123) << "what is granted is not stored";
}

TEST(Negotiation, TheClientsAnswerIsNotLookedAt) {
    Negotiation n;
    n.sync.target = n.control;
    n.target.on(18, datagram(19, 1));
    EXPECT_TRUE(n.sync.connectPrepare());
    EXPECT_EQ(n.target.ids(), (Ids{18, 24, 24, 24}));
}

TEST(Negotiation, ATargetThatIsSilentOnTheAnnouncementIsToldNoName) {
    Negotiation n;
    n.sync.target = n.control;
    const LogCapture log(7);
    EXPECT_TRUE(n.sync.connectPrepare());
    EXPECT_EQ(n.target.ids(), (Ids{18, 18, 18}));
    EXPECT_EQ(n.network.time.time() - FakeClock::start, 30000000u) << "three tries of 10 s";
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Negotiation, AFailingAnnouncementLeavesTheSessionIdle) {
    Negotiation n;
    n.sync.target = n.control;
    n.sync.state = Sync::Connecting;
    n.network.sendError = 10051;
    const LogCapture log(7);
    EXPECT_FALSE(n.sync.connectPrepare());
    EXPECT_EQ(n.sync.state, Sync::Idle);
    EXPECT_TRUE(log.has(3, "wth CR send err"));
}

TEST(Negotiation, AFailingSendOfTheNameFailsToo) {
    Negotiation n;
    n.sync.target = n.control;
    n.target.on(18, [&](const Bytes&) {
        n.network.time.in(60, [&] { n.network.sendError = 10051; });
        n.network.delay = 70;
        return Datagrams{datagram(19, 1)};
    });
    EXPECT_FALSE(n.sync.connectPrepare());
}

// ---- probes that stand ready ----

TEST(Negotiation, CheckAliveWantsAnAnswerWithData) {
    struct Case {
        const char* why;
        Bytes answer;
        bool alive;
    };
    const Case cases[] = {
        {"with data", datagram(5, 1, {0}), true},
        {"refused", datagram(5, 0), false},
        {"silent", {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        n.sync.target = n.control;
        n.target.answers.erase(4);
        if (!c.answer.empty()) n.target.on(4, c.answer);
        EXPECT_EQ(n.sync.checkAlive(), c.alive);
        EXPECT_EQ(n.target.requests.front(), datagram(4, 0));
    }
    Negotiation n;
    n.sync.target = n.control;
    n.network.waitFails = true;
    EXPECT_FALSE(n.sync.checkAlive());
}

TEST(Negotiation, CheckPacketSizeSendsThePatternAndTakesWhatWasSeen) {
    Negotiation n;
    // 10 bytes: 122 ... 131, sum 1265.
    n.target.on(14, datagram(15, 1, {1500, 15000, 10, 1265}));
    std::uint16_t mtu = 74;
    EXPECT_TRUE(n.sync.checkPacketSize(n.control, mtu));
    EXPECT_EQ(mtu, 74);
    EXPECT_THAT(
        n.target.requests,
        ElementsAre(datagram(14, 0, {}, {122, 123, 124, 125, 126, 127, 128, 129, 130, 131})));
}

TEST(Negotiation, CheckPacketSizeGivesZeroWhereTheProbeFailed) {
    struct Case {
        const char* why;
        std::uint16_t mtu;
        Bytes answer;
        std::uint16_t result;
    };
    const Case cases[] = {
        {"another sum", 74, datagram(15, 1, {1500, 15000, 10, 1264}), 0},
        {"refused", 74, datagram(15, 0, {1500, 15000, 10, 1265}), 0},
        {"silent", 74, {}, 0},
        {"a length of its own", 74, datagram(15, 1, {1500, 15000, 8, 1265}), 72},
        {"an empty probe", 64, datagram(15, 1, {1500, 15000, 0, 0}), 64},
        {"no room for a header", 63, datagram(15, 1, {1500, 15000, 0, 0}), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Negotiation n;
        n.target.answers.erase(14);
        if (!c.answer.empty()) n.target.on(14, c.answer);
        std::uint16_t mtu = c.mtu;
        EXPECT_EQ(n.sync.checkPacketSize(n.control, mtu), c.result != 0);
        EXPECT_EQ(mtu, c.result);
    }
}

}  // namespace
