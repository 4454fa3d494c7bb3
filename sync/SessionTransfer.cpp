// The session's transfer operations: the search runs on the session's format and limits, and what
// it finds becomes the rows that the stream worker runs by.
#include "base/LogLine.h"
#include "sync/Sync.h"

namespace VELMORA {

using ZENNO::LogLine;

namespace {

constexpr std::uint32_t leastCycle = 400;  // µs: what a caller who names no limit accepts

}  // namespace

TransferConfig Sync::transferConfig() const {
    TransferConfig loaded = transfer;
    loaded.config = sinkConfig;
    loaded.PackDataSize = maxPacketSize;
    loaded.PackDataCount = maxPacketCount;
    loaded.limitCycle = leastCycle;
    return loaded;
}

// A search that found nothing leaves the rows as they were.
bool Sync::storeProfile(bool found, std::size_t index) {
    if (!found) return false;
    profiles[index] = static_cast<const TransferProfile&>(transfer);
    profileCount = static_cast<std::int32_t>(index) + 1;
    return true;
}

bool Sync::configTransferFix(std::uint32_t micros, std::uint16_t count) {
    transfer = transferConfig();
    return storeProfile(transfer.trialFix(micros, count));
}

bool Sync::configTransferFixAuto(std::uint32_t micros) {
    transfer = transferConfig();
    return storeProfile(transfer.trialFixAuto(micros));
}

bool Sync::configTransferVar(std::uint32_t micros, std::uint16_t count) {
    transfer = transferConfig();
    return storeProfile(transfer.trialVar(micros, count));
}

bool Sync::configTransferVarAuto(std::uint32_t micros) {
    transfer = transferConfig();
    return storeProfile(transfer.trialVarAuto(micros));
}

bool Sync::configTransferRandom(std::uint32_t least, std::uint32_t micros, std::uint16_t count) {
    transfer = transferConfig();
    return storeProfile(transfer.trialRandom(least, micros, count));
}

bool Sync::configTransferVarASIO(std::uint32_t bytes) {
    transfer = transferConfig();
    return storeProfile(transfer.trialBuffer(bytes));
}

// Two rows: the one that meets the target's wishes, and the one to fall back to.
bool Sync::configTransferProfile(std::uint32_t limit, std::uint32_t micros,
                                 std::uint32_t lowLimit) {
    LogLine(6) << "configTransferAuto "
               << " limit" << limit << " maxPacketSize" << maxPacketSize << " maxPacketCount"
               << maxPacketCount;
    transfer = transferConfig();
    transfer.limitCycle = limit;
    if (!storeProfile(transfer.configTransferAuto(micros))) return false;

    transfer = transferConfig();
    transfer.limitCycle = lowLimit;
    transfer.forceAuto = true;
    const bool found = transfer.configTransferAuto(0);
    transfer.forceAuto = false;
    if (!storeProfile(found, 1)) return false;
    LogLine(6) << "configTransferAuto done";
    return true;
}

}  // namespace VELMORA
