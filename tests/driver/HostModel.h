// What a host may expect of a driver: every answer of IASIO from what has been called before,
// written down a second time in the plainest way. The model knows nothing of threads and sends
// nothing.
#pragma once

#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "driver/Asio.h"
#include "tests/driver/StreamTarget.h"

namespace velmora_test {

// A settings file, and what of it the host can see.
struct SettingsRow {
    const char* text;
    bool dsdMsb = false;
    bool integersOf32 = false;  // the host writes those whatever the target gets
    std::uint64_t widthBit = 0x800;
    std::int32_t sampleBytes = 4;
    std::int32_t fixedFrames = 0;
    bool hasTarget = false;       // named, so not searched for
    bool bufferIsPacket = false;  // and twice the packet at a doubled rate
};
// Each has a number, so that no two are equal, nor any equal to an empty file.
inline constexpr SettingsRow settingsRows[] = {
    {"Row=0\n"},
    {"Row=1\nDSDMSB=enable\n", true},
    {"Row=2\nPCMRequest=16\nDSDMSB=enable\n", true, false, 0x200, 2},
    {"Row=3\nPCMRequest=CovertS32\n", false, true},
    {"Row=4\nASIOBufferSize=256\nFlexCycle=enable\n", false, false, 0x800, 4, 256},
    {"Row=5\nTargetAddress=fe80::aa,5000\nTargetPO=1\n", false, false, 0x800, 4, 0, true},
    {"Row=6\nASIOBufferMulti=enable\nFlexCycle=fixAsio\nDSDMSB=enable\n", true, false, 0x800, 4, 0,
     false, true},
};
inline constexpr std::size_t settingsCount = std::size(settingsRows);

// What the target takes, at every rate of the families 44100 and 48000.
struct TargetRow {
    std::uint64_t channelCodes;
    std::int32_t outputs;  // that the driver offers for them
    std::uint64_t dsdLsb, dsdMsb;
};
constexpr std::uint64_t dsdWith(std::uint64_t channelCodes, std::uint64_t order) {
    return StreamTarget::allRates | channelCodes | order;
}
inline constexpr TargetRow targetRows[] = {
    {0x1f, 8, 0, 0},
    {0x1f, 8, 0, dsdWith(0x1f, 0x2A10000)},
    {0x02, 2, dsdWith(0x02, 0x2510000), 0},
    {0x03, 2, 0, dsdWith(0x03, 0x2A10000)},
    {0x0f, 6, 0, 0},
};

enum class Manner {
    answers,
    isSilent,
    tellsNoLatency,  // found, but it does not tell all that init wants to know
};

class HostModel {
public:
    HostModel(std::size_t settings, const TargetRow& target)
        : settings_(settings), file_(settings), target_(target) {}

    Manner manner = Manner::answers;

    enum State : std::size_t {
        constructed,
        initFailed,
        informationMissing,  // init said yes, and there is nothing
        initialised,
        buffers,
        started,
        stateCount,
    };
    State state() const;

    // ---- each as the driver's: changes what follows, gives the answer ----
    ASIOBool init();
    ASIOError start();
    void stop() { isStarted_ = false; }
    // What getChannels, getBufferSize and getChannelInfo write.
    std::int32_t outputs() const { return outputs_; }
    struct Sizes {
        std::int32_t least, most, preferred, granularity;
    };
    Sizes sizes() const;
    ASIOError channelInfo(ASIOChannelInfo& info) const;
    ASIOError canSampleRate(double rate) const;
    double sampleRate() const { return rate_; }
    bool setSampleRate(double rate);  // whether the host is told
    ASIOError createBuffers(const std::vector<ASIOBufferInfo>* infos, std::int32_t count,
                            std::int32_t frames, bool hasCallbacks);
    void disposeBuffers();
    ASIOError future(std::int32_t selector, std::int32_t* type);  // null, or the format's type
    // controlPanel: the program did not start; or it has left the file as it was (-2), unreadable
    // (-1), or as one of settingsRows.
    static constexpr int unchanged = -2, unreadable = -1;
    ASIOError controlPanel(bool starts, int leaves);

    std::string name() const { return name_; }
    std::string errorMessage() const { return error_; }
    std::int32_t bytesOfHalf() const { return halfBytes_; }
    std::int32_t activeChannels() const { return active_; }
    bool isDsd() const { return dsd_; }
    bool hasCallbacks() const { return hasCallbacks_; }

private:
    bool canCarry() const;    // the format that start would put together
    bool isTooShort() const;  // a packet, to be sent so often
    const SettingsRow& row() const { return settingsRows[settings_]; }

    std::size_t settings_;  // in force
    std::size_t file_;      // what lies on the disk, if it is readable
    bool fileIsReadable_ = true;
    const TargetRow& target_;

    bool isInitialised_ = false, isStarted_ = false, hasCallbacks_ = false, dsd_ = false;
    bool isClosed_ = false;        // a stream that could not run has taken its sockets along
    State without_ = constructed;  // the state while it is not initialised
    std::uint64_t pcm_ = 0, dsdLsb_ = 0, dsdMsb_ = 0;  // as the target told
    std::uint64_t widthBit_ = 0;
    std::int32_t sampleBytes_ = 0, outputs_ = 0, active_ = 0, halfBytes_ = 1024;
    double rate_ = 44100;
    std::string name_, error_;
};

}  // namespace velmora_test
