#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/DriverRig.h"
#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using VELMORA::SinkConfig;

constexpr const char* fixedTarget = "TargetAddress=fe80::aa,5000\nTargetPO=1\n";

std::string driverName(AsioVelmora& driver) {
    char name[32];
    driver.getDriverName(name);
    return name;
}

std::int32_t outputs(AsioVelmora& driver) {
    std::int32_t in = -1, out = -1;
    EXPECT_EQ(driver.getChannels(&in, &out), ASE_OK);
    EXPECT_EQ(in, 0);
    return out;
}

// ---- the constructor ----

TEST(Driver, SaysWhereTheFactoryFileLiesAndWhichReleaseItIs) {
    DriverRig rig;
    LogCapture log(6);
    rig.driver();
    EXPECT_THAT(log.texts(6), ElementsAre("LoadInf : " + rig.folders.settingPath(),
                                          "settingOrgPath : " + rig.folders.orgPath(),
                                          "Velmora ASIO DLL : 1_112_1"));
}

TEST(Driver, ReadsTheSettingsWhereItFindsThem) {
    DriverRig rig("CycleTime=2000\nCPULOW=4\n[LOW]\nCycleTime=3000\n");
    EXPECT_EQ(rig.driver().settingsFiles().settingPath, rig.folders.settingPath());
    EXPECT_EQ(rig.driver().settings().cycleTime, 3000u) << "its machine has 4 cores";
}

TEST(Driver, OpensTheLogFirst) {
    DriverRig rig;
    bool logOpen = false;
    Surroundings surroundings = rig.surroundings();
    surroundings.openLog = [&] { logOpen = true; };
    LogCapture log(-1);
    AsioVelmora driver(nullptr, surroundings);
    EXPECT_TRUE(logOpen);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Driver, StandsOnThisComputerUnlessToldOtherwise) {
    LogCapture log(-1);  // what the product opens is put away again when this goes
    FakeNetwork network;
    AsioVelmora driver(nullptr, network);
    EXPECT_EQ(driver.getDriverVersion(), 1);
    EXPECT_FALSE(driver.settingsFiles().settingPath.empty());
}

TEST(Driver, EndsInItsOrder) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    rig.dropDriver();
    EXPECT_THAT(log.texts(6), ElementsAre("stop", "SyncBuffer::pre_disconnect",
                                          "SyncBuffer::disconnect", "disposeBuffers", "stop",
                                          "SyncBuffer::pre_disconnect", "SyncBuffer::disconnect"));
}

// ---- init ----

TEST(Init, FindsTheTargetAndShowsWhatItTakes) {
    DriverRig rig;
    rig.target.pcm = StreamTarget::allRates | StreamTarget::everyChannels | 0x7f00;
    rig.driver();
    LogCapture log(6);
    EXPECT_EQ(rig.driver().init(nullptr), 1);
    EXPECT_THAT(log.texts(6), IsSupersetOf(std::vector<std::string>{
                                  "init ProductID=4995703946368667467",
                                  "init FindID=4995703946368667467", "Velmora Find OK",
                                  "Velmora connect Sink " + std::to_string(rig.target.pcm) + " 0 0",
                                  "init compleat mode:2048 wid:4 ch:8"}));
    EXPECT_EQ(driverName(rig.driver()), "T(S)");
    EXPECT_EQ(outputs(rig.driver()), 8);
    EXPECT_EQ(rig.driver().pcmFormatBit(), SinkConfig::pcm32);
    EXPECT_EQ(rig.network.openLinks(), 2) << "the stream's two; discovery has gone";
}

TEST(Init, ASecondInitTouchesNothing) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    LogCapture log(7);
    rig.network.clearSent();
    EXPECT_EQ(rig.driver().init(nullptr), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(rig.network.sent.empty());
}

TEST(Init, WithoutASinkNameTheTargetsNameStandsAlone) {
    DriverRig rig;
    rig.target.sinkName = "";
    ASSERT_TRUE(rig.init());
    EXPECT_EQ(driverName(rig.driver()), "T");
}

TEST(Init, OffersTheMostChannelsUpToEight) {
    struct Case {
        std::uint64_t code;
        std::int32_t channels;
    };
    const Case cases[] = {{0x3f, 8}, {0x10, 8}, {0x2f, 6}, {0x8, 6}, {0x27, 4},
                          {0x23, 2}, {0x21, 1}, {0x20, 0}, {0x00, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        DriverRig rig;
        rig.target.pcm = StreamTarget::allRates | SinkConfig::pcm32 | c.code;
        ASSERT_TRUE(rig.init());
        EXPECT_EQ(outputs(rig.driver()), c.channels);
    }
}

TEST(Init, OfTwoTargetsTakesTheLowerAddress) {
    DriverRig rig;
    class Lower final : public Peer {
    public:
        StreamTarget target{IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x11}, 0, 3)};
        IPAddress at;
        void onDatagram(FakeNetwork& network, const Datagram& datagram) override {
            for (Bytes& answer : target.answer(datagram.data)) {
                network.send(at, datagram.from, std::move(answer));
            }
        }
    };
    std::vector<std::unique_ptr<Lower>> ports;
    StreamTarget probe(IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x11}, 0, 3));
    for (const IPAddress& address : probe.addresses()) {
        ports.push_back(std::make_unique<Lower>());
        ports.back()->target.name = "lower";
        ports.back()->at = address;
        rig.network.attach(address, ports.back().get());
    }
    ASSERT_TRUE(rig.init());
    EXPECT_EQ(driverName(rig.driver()), "lower(S)");
}

TEST(Init, AsksTheExtraAddressesToo) {
    DriverRig rig("FindIP=fe80::77\n");
    ASSERT_TRUE(rig.init());
    int extra = 0;
    for (const Datagram& datagram : rig.network.sent) {
        if (!datagram.toPeer || datagram.to.word(7) != 0x77) continue;
        ++extra;
        EXPECT_EQ(datagram.to.portNumber(), 0);
    }
    EXPECT_EQ(extra, 3);  // once a pass
}

TEST(Init, AFixedTargetIsNotSearchedFor) {
    DriverRig rig(fixedTarget);
    rig.driver();
    LogCapture log(6);
    ASSERT_TRUE(rig.init());
    EXPECT_TRUE(log.has(6, "Velmora get Target OK"));
    EXPECT_FALSE(log.has("Velmora Find OK"));
    EXPECT_EQ(rig.target.count(VELMORA::wire::HELLO_REQ::id), 0);
    EXPECT_EQ(driverName(rig.driver()), "T") << "the sink's name is not asked for";
}

TEST(Init, AFixedTargetIsTakenWhateverItsProduct) {
    DriverRig rig(fixedTarget);
    rig.target.product = 12345;
    EXPECT_TRUE(rig.init());
    DriverRig searching;
    searching.target.product = 12345;
    EXPECT_FALSE(searching.init());
}

TEST(Init, HandsTheSettingsToTheStream) {
    DriverRig rig("ThredMode=3\nInfoCycle=20000\nLatencyBuffer=3000\n");
    ASSERT_TRUE(rig.init());
    AsioVelmora::Sync& stream = rig.driver().stream();
    EXPECT_EQ(stream.threadMode, 3u);
    EXPECT_EQ(stream.infoCycle, 20000u);
    EXPECT_EQ(rig.target.wantedLatency(), 30);  // 100 µs
    EXPECT_EQ(stream.clientName, "KORVENTE Velmora");
    EXPECT_EQ(stream.productId, ProductID);
    EXPECT_EQ(stream.target, rig.target.at(StreamTarget::sinkPort));
}

TEST(Init, NopBreakGoesAheadOfTheNegotiationWhenEnabled) {
    DriverRig rig(std::string(fixedTarget) + "NopBreak=Enable\n");
    rig.init();
    EXPECT_GT(rig.target.count(VELMORA::wire::NOPBREAK_REQ::id), 0);
    DriverRig without(fixedTarget);
    without.init();
    EXPECT_EQ(without.target.count(VELMORA::wire::NOPBREAK_REQ::id), 0);
}

TEST(Init, TheInterfaceIsTakenAsSixteenBits) {
    DriverRig rig("Interface=65539\n");  // 65536 + 3
    EXPECT_TRUE(rig.init());
    DriverRig other("Interface=4\n");  // there is none
    EXPECT_FALSE(other.init());
    EXPECT_EQ(other.errorMessage(), "Velmora Find open err!");
}

TEST(Init, SetsTheIoFormatBackToPcm) {
    DriverRig rig("PCMRequest=32\n");
    std::int32_t format = kASIODSDFormat;
    rig.driver().future(kAsioSetIoFormat, &format);
    ASSERT_TRUE(rig.init());
    EXPECT_EQ(rig.driver().future(kAsioGetIoFormat, &format), ASE_SUCCESS);
    EXPECT_EQ(format, kASIOPCMFormat);
}

// ---- the failures, row by row ----

struct Failure {
    const char* why;
    const char* settings;
    std::function<void(DriverRig&)> arrange;
    const char* log;
    const char* message;
    bool result;
};

const Failure failures[] = {
    {"discovery cannot open", "", [](DriverRig& rig) { rig.network.openFails = true; },
     "Velmora Find open err", "Velmora Find open err!", false},
    {"discovery cannot bind", "", [](DriverRig& rig) { rig.network.bindFails = true; },
     "Velmora Find open err", "Velmora Find open err!", false},
    {"the search fails", "", [](DriverRig& rig) { rig.network.waitFails = true; },
     "Velmora Find err", "Velmora Find err!", false},
    {"nobody answers", "", [](DriverRig& rig) { rig.detachTarget(); }, "Velmora can not Find",
     "Velmora can not Find", false},
    {"asking the fixed target fails", fixedTarget,
     [](DriverRig& rig) { rig.network.waitFails = true; }, "Velmora get Target err",
     "Velmora get Target err!", false},
    {"the fixed target is silent", fixedTarget, [](DriverRig& rig) { rig.detachTarget(); },
     "Velmora can not find", "Velmora can not ReFind", false},
    {"the stream cannot open", fixedTarget,
     [](DriverRig& rig) {
         // Discovery has its socket by the time that the target's name is asked.
         rig.network.fate = [&rig](const Datagram& datagram) {
             if (datagram.toPeer) rig.network.openFails = true;
             return Fate{{50, std::nullopt}};
         };
     },
     "Velmora Sync open err", "Velmora Sync open err!", false},
    {"the target does not negotiate", "",
     [](DriverRig& rig) { rig.target.silentTo = {VELMORA::wire::SUPPORT_REQ::id}; },
     "Velmora get info err", "Velmora get info err!", true},
    {"the ladder is exhausted", "PCMRequest=8\n",
     [](DriverRig& rig) {
         rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::pcm16;
     },
     "format miss err 8", "format miss err!", false},
    {"the ladder of integers is exhausted", "PCMRequest=CovertS32\n",
     [](DriverRig& rig) {
         rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::float32;
     },
     "format miss err pcm32Fix32", "format miss err!", false},
    {"DSD alone is not enough", "",
     [](DriverRig& rig) {
         rig.target.pcm = 0;
         rig.target.dsdMsb = StreamTarget::allRates | StreamTarget::twoChannels | 0x2A10000;
     },
     "format miss err 32", "format miss err!", false},
};

TEST(Init, FailsWithTheTextsOfItsStep) {
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.why);
        DriverRig rig(failure.settings);
        failure.arrange(rig);
        rig.driver();
        LogCapture log(3);
        EXPECT_EQ(rig.init(), failure.result);
        EXPECT_EQ(log.texts(3).empty() ? "" : log.texts(3).back(), failure.log);
        EXPECT_EQ(rig.errorMessage(), failure.message);
        EXPECT_EQ(outputs(rig.driver()), 0);
    }
}

TEST(Init, AfterAFailedNegotiationTheNextInitSearchesAgain) {
    DriverRig rig;
    rig.target.silentTo = {VELMORA::wire::SUPPORT_REQ::id};
    EXPECT_TRUE(rig.init());
    EXPECT_EQ(outputs(rig.driver()), 0);
    rig.target.silentTo.clear();
    const int before = rig.target.count(VELMORA::wire::FIND_REQ::id);
    EXPECT_TRUE(rig.init());
    EXPECT_EQ(rig.target.count(VELMORA::wire::FIND_REQ::id), before + 3);
    EXPECT_EQ(outputs(rig.driver()), 2);
    EXPECT_EQ(rig.errorMessage(), "Velmora get info err!") << "nothing clears it";
}

TEST(Init, TheErrorMessageIsEmptyAtFirst) {
    DriverRig rig;
    EXPECT_EQ(rig.errorMessage(), "");
    rig.driver().getErrorMessage(nullptr);  // and nobody falls over this
}

TEST(Init, ANewerSinkIsNoTarget) {
    DriverRig rig;
    rig.target.sinkVersion = 2;
    EXPECT_FALSE(rig.init());
    EXPECT_EQ(rig.errorMessage(), "Velmora can not Find");
}

// ---- the name ----

TEST(DriverName, IsCutAtThirtyOneCharactersAndClosed) {
    struct Case {
        std::size_t length, copied;
    };
    for (const Case& c :
         {Case{0, 0}, Case{1, 1}, Case{30, 30}, Case{31, 31}, Case{32, 31}, Case{200, 31}}) {
        SCOPED_TRACE(c.length);
        DriverRig rig;
        rig.target.sinkName = "";
        rig.target.name = std::string(c.length, 'n');
        ASSERT_TRUE(rig.init());
        LogCapture log(6);
        char name[40];
        std::fill(std::begin(name), std::end(name), '#');
        rig.driver().getDriverName(name);
        EXPECT_EQ(std::string(name), std::string(c.copied, 'n'));
        for (std::size_t i = c.copied + 1; i < sizeof name; ++i) EXPECT_EQ(name[i], '#') << i;
        EXPECT_TRUE(log.has(6, "getDriverName " + std::string(c.length, 'n')));
    }
}

TEST(DriverName, IsEmptyBeforeInitAndAsksForNoMoreThanABuffer) {
    DriverRig rig;
    EXPECT_EQ(driverName(rig.driver()), "");
    rig.driver().getDriverName(nullptr);
}

}  // namespace
