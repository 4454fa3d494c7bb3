// Hosts that call anything at any time: sequences of calls from a seed, each answer held against
// HostModel. In one of four the driver's threads run; in the others its sessions are only scripted.
// A failure prints the seed and all the calls that led to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "driver/Product.h"
#include "tests/driver/SequenceStage.h"

namespace {

using namespace velmora_test;

constexpr std::uint32_t shards = 10, sequencesOfAShard = 1000;

constexpr const char* states[] = {"constructed", "init failed", "information missing",
                                  "initialised", "buffers",     "started"};
static_assert(std::size(states) == HostModel::stateCount);

class Sequence : SequenceStage {
public:
    Sequence(SequenceWorld& world, std::uint32_t seed) : SequenceStage(world, seed) {}

    struct Operation {
        const char* name;
        void (Sequence::*call)();
    };
    static const Operation operations[operationCount];  // in the order of the table

    void run() {
        const std::uint32_t calls = 4 + pick(16);
        for (std::uint32_t i = 0; i < calls && !failed_; ++i) {
            if (oneIn(12)) changeManner();
            const std::size_t number = chooseOperation();
            ++world_.coverage[model_.state()][number];
            steps_ << ' ' << operations[number].name;
            (this->*operations[number].call)();
        }
        release();
    }

private:
    // Half of the calls are what a host would do next, so that every state is come by.
    std::size_t chooseOperation() {
        if (oneIn(2)) return pick(operationCount);
        switch (model_.state()) {
            case HostModel::initialised:
                return numberOf(&Sequence::createBuffers);
            case HostModel::buffers:
                return numberOf(&Sequence::start);
            case HostModel::started:
                return oneIn(3) ? numberOf(&Sequence::stop) : pick(operationCount);
            default:
                return numberOf(&Sequence::init);
        }
    }
    static std::size_t numberOf(void (Sequence::*call)()) {
        const auto* found = std::ranges::find(operations, call, &Operation::call);
        return static_cast<std::size_t>(found - operations);
    }

    // ---- the calls ----
    void queryInterface() {
        constexpr ZENNO::platform::Guid foreign{1, 2, 3, {}};
        const ZENNO::platform::Guid id =
            std::array{driverClassId, ZENNO::platform::IID_IUnknown, foreign}[pick(3)];
        void* out = this;
        void** const place = orNull(out);
        const bool known = id != foreign;
        const auto answer = driver_->QueryInterface(id, place);
        if (place == nullptr) return expect(answer, ZENNO::platform::E_POINTER, "the answer");
        expect(answer, known ? ZENNO::platform::S_OK : ZENNO::platform::E_NOINTERFACE,
               "the answer");
        expect(out != nullptr, known, "whether there is an interface");
        if (id == driverClassId) expect(out == static_cast<IASIO*>(driver_), true, "the pointer");
        if (out != nullptr) {
            expect(static_cast<ZENNO::platform::IUnknown*>(out)->Release(), 1u, "the count");
        }
    }
    void addRef() {
        expect(driver_->AddRef(), 2u, "the count");
        driver_->Release();
    }
    void releaseOne() {
        driver_->AddRef();
        expect(driver_->Release(), 1u, "the count");
    }
    void init() {
        endScript();
        int window = 0;
        expect(driver_->init(oneIn(2) ? &window : nullptr), model_.init(), "the answer");
    }
    void driverName() {
        Text name(32);
        if (oneIn(4)) return driver_->getDriverName(nullptr);
        driver_->getDriverName(name.bytes.data());
        expect(name.text(), model_.name(), "the name");
        expect(name.isWhole(), true, "what lies behind it");
    }
    void driverVersion() { expect(driver_->getDriverVersion(), 1, "the version"); }
    void errorMessage() {
        Text message(124);
        if (oneIn(4)) return driver_->getErrorMessage(nullptr);
        driver_->getErrorMessage(message.bytes.data());
        expect(message.text(), model_.errorMessage(), "the message");
        expect(message.isWhole(), true, "what lies behind it");
    }
    void start() {
        const bool wasStarted = model_.state() == HostModel::started;
        expect(driver_->start(), model_.start(), "the answer");
        if (!wasStarted) mayHear_ = model_.manner != Manner::isSilent;
        listen();
    }
    // A stream that plays asks its host for more, whatever else the host has tried.
    void listen() {
        if (!isLive_ || model_.state() != HostModel::started || !mayHear_ || !hasSwitch_ ||
            oneIn(2))
            return;
        steps_ << " (plays)";
        const int more = world_.host.switches() + 1 + static_cast<int>(pick(3));
        expect(world_.host.waitForSwitches(more), true, "whether the host was asked");
    }
    void stop() {
        listen();
        endScript();
        model_.stop();
        expect(driver_->stop(), ASE_OK, "the answer");
    }
    void channels() {
        std::int32_t in = -7, out = -7;
        std::int32_t *inPlace = orNull(in), *outPlace = orNull(out);
        expect(driver_->getChannels(inPlace, outPlace), ASE_OK, "the answer");
        expect(in, inPlace != nullptr ? 0 : -7, "the inputs");
        expect(out, outPlace != nullptr ? model_.outputs() : -7, "the outputs");
    }
    void latencies() {
        std::int32_t in = -7, out = -7;
        std::int32_t *inPlace = orNull(in), *outPlace = orNull(out);
        expect(driver_->getLatencies(inPlace, outPlace), ASE_OK, "the answer");
        expect(in, inPlace != nullptr ? 0 : -7, "the input's");
        expect(out, outPlace != nullptr ? 0 : -7, "the output's");
    }
    void bufferSize() {
        std::int32_t least = -7, most = -7, preferred = -7, granularity = -7;
        std::int32_t *leastPlace = orNull(least), *mostPlace = orNull(most),
                     *preferredPlace = orNull(preferred), *granularityPlace = orNull(granularity);
        expect(driver_->getBufferSize(leastPlace, mostPlace, preferredPlace, granularityPlace),
               ASE_OK, "the answer");
        const HostModel::Sizes sizes = model_.sizes();
        expect(least, leastPlace != nullptr ? sizes.least : -7, "the least");
        expect(most, mostPlace != nullptr ? sizes.most : -7, "the most");
        expect(preferred, preferredPlace != nullptr ? sizes.preferred : -7, "the preferred");
        expect(granularity, granularityPlace != nullptr ? sizes.granularity : -7,
               "the granularity");
    }
    double anyRate() {
        constexpr double rates[] = {44100,   48000, 96000, 2822400, 5644800, 44100.7,
                                    44000.0, 8000,  0,     -44100,  1e30,    5e9};
        if (oneIn(20)) return std::nan("");
        return oneIn(2) ? 48000 : pickOf(rates);
    }
    void canSampleRate() {
        const double rate = anyRate();
        steps_ << '(' << rate << ')';
        expect(driver_->canSampleRate(rate), model_.canSampleRate(rate), "the answer");
    }
    void sampleRate() {
        double rate = -7;
        double* const place = orNull(rate);
        expect(driver_->getSampleRate(place), place != nullptr ? ASE_OK : ASE_InvalidParameter,
               "the answer");
        expect(rate, place != nullptr ? model_.sampleRate() : -7.0, "the rate");
    }
    void setSampleRate() {
        const double rate = anyRate();
        steps_ << '(' << rate << ')';
        const int before = world_.host.rateChanges;
        const bool told = model_.setSampleRate(rate) && hasRateCallback_;
        expect(driver_->setSampleRate(rate), ASE_OK, "the answer");
        expect(world_.host.rateChanges - before, told ? 1 : 0, "the calls of the host");
    }
    void clockSources() {
        ASIOClockSource clock{};
        std::int32_t count = -7;
        ASIOClockSource* const place = orNull(clock);
        std::int32_t* const countPlace = orNull(count);
        expect(driver_->getClockSources(place, countPlace), ASE_OK, "the answer");
        expect(count, countPlace != nullptr ? 1 : -7, "the count");
        expect(std::string(clock.name), std::string(place != nullptr ? "Internal" : ""),
               "the name");
    }
    void setClock() {
        constexpr std::int32_t references[] = {0, 0, 1, -1, 2147483647};
        const std::int32_t reference = pickOf(references);
        expect(driver_->setClockSource(reference), reference == 0 ? ASE_OK : ASE_NotPresent,
               "the answer");
    }
    void samplePosition() {
        ASIOSamples position{7, 7};
        ASIOTimeStamp stamp{7, 7};
        expect(driver_->getSamplePosition(orNull(position), orNull(stamp)), ASE_OK, "the answer");
    }
    void channelInfo() {
        if (oneIn(6)) {
            return expect(driver_->getChannelInfo(nullptr), ASE_InvalidParameter, "the answer");
        }
        constexpr std::int32_t numbers[] = {0, 0, 1, 1, 5, 7, 8, -1, 2147483647};
        ASIOChannelInfo info{};
        info.channel = pickOf(numbers);
        info.isInput = oneIn(5) ? 1 : 0;
        info.isActive = 7;
        info.type = -7;
        info.name[31] = '#';
        ASIOChannelInfo expected = info;
        steps_ << '(' << info.channel << ')';
        expect(driver_->getChannelInfo(&info), model_.channelInfo(expected), "the answer");
        expect(info.isActive, expected.isActive, "whether it is active");
        expect(info.type, expected.type, "the type");
        expect(std::string(info.name), std::string(expected.name), "the name");
        expect(info.name[31], '#', "the name's last place");
    }
    std::int32_t anySize() {
        constexpr std::int32_t small[] = {64, 64, 512, 32, 1, 31, 0, -1};
        constexpr std::int32_t beyond[] = {2147483647, -2147483647 - 1};
        // In DSD a size of 32 bits is a buffer of 256 MB that the driver would make.
        return oneIn(16) && !model_.isDsd() ? pickOf(beyond) : pickOf(small);
    }
    void createBuffers() {
        constexpr std::int32_t counts[] = {2, 2, 2, 8, 6, 4, 1, 3, 0, 9};
        const std::int32_t count = pickOf(counts), size = anySize();
        std::vector<ASIOBufferInfo> infos(static_cast<std::size_t>(count));
        for (std::int32_t i = 0; i < count; ++i) {
            ASIOBufferInfo& info = infos[static_cast<std::size_t>(i)];
            info.channelNum = model_.outputs() > 0 ? i % model_.outputs() : i;
            if (oneIn(40)) info.isInput = 1;
            if (oneIn(60)) info.channelNum = oneIn(2) ? model_.outputs() : -1;
        }
        const bool hasInfos = !oneIn(20), hasCallbacks = !oneIn(20);
        steps_ << '(' << count << 'x' << size << (hasInfos ? "" : ", no list")
               << (hasCallbacks ? "" : ", no callbacks") << ')';

        ASIOCallbacks table = world_.host.callbacks();
        const bool hasMessages = !oneIn(8);
        const bool plain = !oneIn(8), timed = !oneIn(8), rate = !oneIn(8);
        if (!hasMessages) table.asioMessage = nullptr;
        if (!plain) table.bufferSwitch = nullptr;
        if (!timed) table.bufferSwitchTimeInfo = nullptr;
        if (!rate) table.sampleRateDidChange = nullptr;
        endScript();
        world_.host.supportsTimeInfo = oneIn(2) ? 1 : 0;
        const int questions = world_.host.questions;

        const ASIOError expected =
            model_.createBuffers(hasInfos ? &infos : nullptr, count, size, hasCallbacks);
        expect(driver_->createBuffers(hasInfos ? infos.data() : nullptr, count, size,
                                      hasCallbacks ? &table : nullptr),
               expected, "the answer");
        std::memset(&table, 0xcc, sizeof table);  // it was the host's stack
        expect(world_.host.questions - questions, expected == ASE_OK && hasMessages ? 1 : 0,
               "the questions to the host");
        if (expected != ASE_OK) return;

        hasSwitch_ = plain || timed;
        hasRateCallback_ = rate;
        std::erase_if(infos, [](const ASIOBufferInfo& info) { return info.isInput != 0; });
        kept_.push_back(std::make_unique<Buffers>(
            Buffers{std::move(infos), static_cast<std::size_t>(model_.bytesOfHalf()), oneIn(2)}));
        write(*kept_.back(), 0);
        write(*kept_.back(), 1);
        buffers_ = kept_.back().get();
    }
    void disposeBuffers() {
        listen();
        endScript();
        model_.disposeBuffers();
        expect(driver_->disposeBuffers(), ASE_OK, "the answer");
    }
    void controlPanel() {
        endScript();
        programStarts_ = !oneIn(4);
        programLeaves_ = oneIn(2)   ? HostModel::unchanged
                         : oneIn(4) ? HostModel::unreadable
                                    : static_cast<int>(pick(settingsCount));
        steps_ << '(' << (programStarts_ ? programLeaves_ : -9) << ')';
        expect(driver_->controlPanel(), model_.controlPanel(programStarts_, programLeaves_),
               "the answer");
    }
    void future() {
        constexpr std::int32_t selectors[] = {0x23111961, 0x23111983, 0x23112004, 1,  2, 3,  4,
                                              9,          10,         11,         12, 0, -1, 99};
        constexpr std::int32_t types[] = {0, 0, 1, 7, -1};
        const std::int32_t selector = pickOf(selectors);
        std::int32_t type = pickOf(types), expected = type;
        const bool isNull = oneIn(4);
        steps_ << '(' << selector << ", " << type << (isNull ? ", null)" : ")");
        expect(driver_->future(selector, isNull ? nullptr : &type),
               model_.future(selector, isNull ? nullptr : &expected), "the answer");
        expect(type, expected, "the type");
    }
    void outputReady() { expect(driver_->outputReady(), ASE_NotPresent, "the answer"); }

    bool hasSwitch_ = false, hasRateCallback_ = false;  // of the host's last callbacks
};

const Sequence::Operation Sequence::operations[operationCount] = {
    {"QueryInterface", &Sequence::queryInterface},
    {"AddRef", &Sequence::addRef},
    {"Release", &Sequence::releaseOne},
    {"init", &Sequence::init},
    {"getDriverName", &Sequence::driverName},
    {"getDriverVersion", &Sequence::driverVersion},
    {"getErrorMessage", &Sequence::errorMessage},
    {"start", &Sequence::start},
    {"stop", &Sequence::stop},
    {"getChannels", &Sequence::channels},
    {"getLatencies", &Sequence::latencies},
    {"getBufferSize", &Sequence::bufferSize},
    {"canSampleRate", &Sequence::canSampleRate},
    {"getSampleRate", &Sequence::sampleRate},
    {"setSampleRate", &Sequence::setSampleRate},
    {"getClockSources", &Sequence::clockSources},
    {"setClockSource", &Sequence::setClock},
    {"getSamplePosition", &Sequence::samplePosition},
    {"getChannelInfo", &Sequence::channelInfo},
    {"createBuffers", &Sequence::createBuffers},
    {"disposeBuffers", &Sequence::disposeBuffers},
    {"controlPanel", &Sequence::controlPanel},
    {"future", &Sequence::future},
    {"outputReady", &Sequence::outputReady},
};

class AnyOrder : public testing::TestWithParam<std::uint32_t> {};

TEST_P(AnyOrder, GetsTheAnswerOfItsState) {
    SequenceWorld world;
    for (std::uint32_t i = 0; i < sequencesOfAShard && !HasFailure(); ++i) {
        Sequence(world, GetParam() * sequencesOfAShard + i).run();
    }
    // Each operation has been called in each state.
    for (std::size_t state = 0; state < HostModel::stateCount && !HasFailure(); ++state) {
        for (std::size_t operation = 0; operation < operationCount; ++operation) {
            EXPECT_GT(world.coverage[state][operation], 0)
                << Sequence::operations[operation].name << " in the state: " << states[state];
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnyOrder, testing::Range(0u, shards));

}  // namespace
