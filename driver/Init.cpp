// init: from a handle to a host's window, and nothing else, to a target and the formats that the
// host will see.
#include <cstring>
#include <optional>
#include <string>

#include "base/LogLine.h"
#include "driver/AsioVelmora.h"
#include "driver/Edge.h"
#include "driver/FormatLadder.h"
#include "driver/Product.h"
#include "find/Find.h"

using VELMORA::SinkConfig;
using VELMORA::TargetInfo;
using ZENNO::IPAddress;
using ZENNO::LogLine;

namespace {

struct ChannelOffer {
    std::uint64_t bit;
    std::int32_t channels;
};
// The first that the target has. Sixteen channels (0x20) are not offered: there are eight buffers.
constexpr ChannelOffer channelOffers[] = {{0x10, 8}, {0x8, 6}, {0x4, 4}, {0x2, 2}, {0x1, 1}};

std::int32_t offeredChannels(std::uint64_t pcmSupport) {
    for (const ChannelOffer& offer : channelOffers) {
        if ((pcmSupport & offer.bit) != 0) return offer.channels;
    }
    return 0;
}

}  // namespace

// The host's text and the log's differ on purpose. Always false.
template <std::size_t size>
bool AsioVelmora::failInit(const std::string& log, const char (&message)[size]) {
    static_assert(size <= 124, "hosts read the message into 124 bytes");
    std::memcpy(errorMessage_.data(), message, size);
    LogLine(3) << log;
    return false;
}

ASIOBool AsioVelmora::init(void* sysHandle) {
    return atEdge("init", ASIOFalse, [&] {
        sysHandle_ = sysHandle;
        return initialised_ || initialise() ? ASIOTrue : ASIOFalse;
    });
}

bool AsioVelmora::initialise() {
    // A host that opens its control panel while it plays ends up here: the sockets are about to be
    // opened anew under the worker.
    if (isStarted()) stopStream();

    LogLine(6) << "init ProductID=" << stream_.productID;
    LogLine(6) << "init FindID=" << stream_.findID;

    IPAddress address;
    TargetInfo info;
    if (!findTarget(address, info)) return false;

    const std::uint32_t infoCycle = settings_.infoCycle;
    if (!stream_.open(settings_.threadMode, infoCycle, static_cast<std::uint16_t>(address.scope),
                      driverProductName, stream_.productID)) {
        return failInit("Velmora Sync open err", "Velmora Sync open err!");
    }
    const std::uint32_t latencyBuffer = settings_.latencyBuffer;
    if (!stream_.getInfo(address, latencyBuffer, settings_.nopBreak)) {
        failInit("Velmora get info err", "Velmora get info err!");
        // The host hears of success and finds no channels; its next init asks the target again.
        return true;
    }
    LogLine(6) << "Velmora connect Sink " << stream_.pcmSupport << " " << stream_.dsdLsbSupport
               << " " << stream_.dsdMsbSupport;

    if (!chooseHostFormat()) return false;
    outputChannels_ = offeredChannels(stream_.pcmSupport);
    stream_.driverName = displayName(info.targetName, info.sinkName);

    initialised_ = true;
    dsdMode_ = false;
    LogLine(6) << "init compleat mode:" << pcmFormatBit_ << " wid:" << sampleBytes_
               << " ch:" << outputChannels_;
    return true;
}

// Discovery lives for the length of this operation: none runs while a stream plays.
bool AsioVelmora::findTarget(IPAddress& address, TargetInfo& info) {
    VELMORA::Find find(makeFindSetting(stream_.productID, stream_.findID, stream_.productID,
                                       driverProductName, settings_.nopBreak),
                       surroundings_.environment);
    if (!find.open(static_cast<std::uint16_t>(settings_.interfaceIndex))) {
        return failInit("Velmora Find open err", "Velmora Find open err!");
    }
    find.extraAddresses = settings_.findIPList;

    if (settings_.targetAddress.isNone()) {
        VELMORA::TargetMap targets;
        if (!find.search(targets)) return failInit("Velmora Find err", "Velmora Find err!");
        if (targets.empty()) return failInit("Velmora can not Find", "Velmora can not Find");
        // Of several targets the lowest address is taken, and there is no other rule.
        address = targets.begin()->first;
        info = targets.begin()->second;
        LogLine(6) << "Velmora Find OK";
        return true;
    }
    if (!find.reFind(settings_.targetAddress, settings_.targetPO, address, info)) {
        return failInit("Velmora get Target err", "Velmora get Target err!");
    }
    if (address.isNone()) return failInit("Velmora can not find", "Velmora can not ReFind");
    LogLine(6) << "Velmora get Target OK";
    return true;
}

bool AsioVelmora::chooseHostFormat() {
    const FormatLadder& ladder = formatLadder(settings_.pcmRequest, settings_.pcmConvertS32);
    const std::optional<FormatRung> rung = climb(ladder, stream_.pcmSupport);
    if (!rung) {
        return failInit(ladder.failureLog + std::to_string(settings_.pcmRequest),
                        "format miss err!");
    }
    pcmFormatBit_ = rung->bit;
    sampleBytes_ = rung->sampleBytes;
    return true;
}
