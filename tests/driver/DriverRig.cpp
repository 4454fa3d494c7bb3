#include "tests/driver/DriverRig.h"

#include "base/InfFile.h"

namespace velmora_test {

namespace {

TestHost* currentHost = nullptr;

void bufferSwitch(std::int32_t index, ASIOBool direct) {
    currentHost->calls.push_back("bufferSwitch " + std::to_string(index) + " " +
                                 std::to_string(direct));
    if (currentHost->onSwitch) currentHost->onSwitch(index);
}

void sampleRateDidChange(double rate) {
    currentHost->calls.push_back("sampleRateDidChange " + std::to_string(rate));
    if (currentHost->onRate) currentHost->onRate(rate);
}

std::int32_t asioMessage(std::int32_t selector, std::int32_t value, void* message, double* opt) {
    currentHost->calls.push_back("asioMessage " + std::to_string(selector) + " " +
                                 std::to_string(value) + (message != nullptr ? " message" : "") +
                                 (opt != nullptr ? " opt" : ""));
    return selector == kAsioSupportsTimeInfo ? currentHost->supportsTimeInfo : 0;
}

ASIOTime* bufferSwitchTimeInfo(ASIOTime* time, std::int32_t index, ASIOBool direct) {
    currentHost->calls.push_back("bufferSwitchTimeInfo " + std::to_string(index) + " " +
                                 std::to_string(direct));
    if (currentHost->onSwitchTimeInfo) currentHost->onSwitchTimeInfo(*time, index);
    return nullptr;
}

}  // namespace

void SettingsFolders::write(const std::string& path, const std::string& text) {
    ZENNO::writeFile(ZENNO::Bytes(text.begin(), text.end()), path);
}

std::string SettingsFolders::read(const std::string& path) {
    ZENNO::Bytes data;
    if (!ZENNO::readFile(path, data)) return {};
    return std::string(data.begin(), data.end());
}

TestHost::TestHost()
    : callbacks{bufferSwitch, sampleRateDidChange, asioMessage, bufferSwitchTimeInfo} {
    currentHost = this;
}

TestHost::~TestHost() {
    currentHost = nullptr;
}

// One address of the target on the network.
class DriverRig::Port final : public Peer {
public:
    Port(FakeNetwork& where, const IPAddress& address, StreamTarget& target)
        : network_(where), address_(address), target_(target) {
        network_.attach(address, this);
    }
    ~Port() override { network_.attach(address_, nullptr); }
    void onDatagram(FakeNetwork&, const Datagram& datagram) override {
        for (Bytes& answer : target_.answer(datagram.data)) {
            network_.send(address_, datagram.from, std::move(answer));
        }
    }

private:
    FakeNetwork& network_;
    IPAddress address_;
    StreamTarget& target_;
};

DriverRig::DriverRig(const std::string& settings) {
    setSettings(settings);
    attachTarget();
}

DriverRig::~DriverRig() {
    dropDriver();
}

void DriverRig::attachTarget() {
    detachTarget();
    for (const IPAddress& address : target.addresses()) {
        ports_.push_back(std::make_unique<Port>(network, address, target));
    }
}

void DriverRig::detachTarget() {
    ports_.clear();
}

Surroundings DriverRig::surroundings() {
    return {network,
            machine,
            folders.driverFolder(),
            folders.roamingFolder(),
            [] {},
            [this](const std::string& path, const std::function<void()>& onStarted) {
                programsRun.push_back(path);
                if (!programStarts) return false;
                onStarted();
                return program();
            }};
}

AsioVelmora& DriverRig::driver() {
    if (!driver_) driver_ = std::make_unique<AsioVelmora>(nullptr, surroundings());
    return *driver_;
}

void DriverRig::dropDriver() {
    if (driver_) endSession();
    driver_.reset();
}

std::string DriverRig::errorMessage() {
    char text[124];
    driver().getErrorMessage(text);
    return text;
}

ASIOError DriverRig::createBuffers(std::int32_t channels, std::int32_t frames) {
    buffers.assign(static_cast<std::size_t>(channels), ASIOBufferInfo{});
    for (std::int32_t c = 0; c < channels; ++c) buffers[static_cast<std::size_t>(c)].channelNum = c;
    return driver().createBuffers(buffers.data(), channels, frames, &host.callbacks);
}

void DriverRig::endSession() {
    driver().stream().state = VELMORA::Sync::Idle;
}

}  // namespace velmora_test
