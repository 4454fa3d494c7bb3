// Moving a buffer of bytes to a numbered channel of a target, so that all of it arrives: bursts of
// numbered packets, each burst acknowledged by the number that the target has reached, sent again
// from there when some are missing, and a checksum over everything at the end.
#pragma once

#include <cstdint>
#include <functional>

#include "base/BufferCS.h"
#include "base/Clock.h"
#include "base/IPAddress.h"
#include "src/Network/Link.h"

namespace VELMORA {

// Called on the caller's thread as a block begins: its number from 0, and how many blocks the
// channel takes at most, in 16 bits (65536 comes as 0).
using TransferProgress = std::function<void(std::uint16_t block, std::uint16_t blocks)>;

// Where a transfer ended.
enum class TransferEnd {
    complete,
    notOpened,      // no acceptance of the first or the second TRANSFER_REQ
    noSuchChannel,  // the target has fewer, or names another one in its answer
    tooLarge,       // for the channel, or its packets for a datagram
    sendFailed,     // the socket's own failures; its error is in the log
    waitFailed,
    receiveFailed,
    refused,       // the target refused a burst
    wrongChannel,  // an acknowledgement for another channel
    unheard,       // a burst was sent eleven times in vain
    notClosed,     // no acceptance of TRANSFEREND_REQ, or another channel or checksum in its answer
    notTaken,      // the target closed with another status than "complete"
};

// What a transfer came to, for whoever shows it to a person.
struct TransferFigures {
    TransferEnd end = TransferEnd::notOpened;
    int result = 0;               // AckResult, with notOpened and notClosed
    std::uint16_t channels = 0;   // that the target has
    std::uint64_t capacity = 0;   // of the channel, in bytes
    std::uint16_t status = 0;     // the target's, with notTaken
    std::uint64_t bytesSent = 0;  // first copies
    std::uint64_t packets = 0;    // first copies
    std::uint64_t bursts = 0;     // first copies
    std::uint64_t resends = 0;    // bursts that went out again, in part or whole
    std::uint64_t packetsResent = 0;
    std::uint64_t burstLimit = 0;  // bytes; as it is now: losses shrink it
};

// One packet of a burst stands in each slot: a burst never has more.
constexpr std::size_t transferSlots = 1024;

// The whole of it, on the caller's thread and on a socket that nobody else uses meanwhile. `number`
// counts channels from 0; `limit` is an upper bound for the bytes of a burst, 0 for none. Without
// `progress` each block is a log line. `figures` is brought up to date as the transfer goes, so
// that `progress` may look at it. Gives whether all arrived.
bool transfer(ZENNO::Link& socket, ZENNO::Clock& clock, const ZENNO::IPAddress& target, int number,
              ZENNO::BufferCS_const data, std::uint64_t limit, const TransferProgress& progress,
              TransferFigures& figures);

}  // namespace VELMORA
