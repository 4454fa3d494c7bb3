#include "find/Transfer.h"

#include <algorithm>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "base/LogLine.h"
#include "find/Exchange.h"
#include "find/Find.h"
#include "wire/Crc16.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::Bytes;
using ZENNO::IPAddress;
using ZENNO::LogLine;

constexpr std::uint32_t quietWait = 10'000;  // µs without a datagram, before a burst goes again
constexpr std::uint32_t quietLimit = 5'000'000;  // µs: who never lets it go quiet has failed it
constexpr int mostResends = 10;                  // of one burst
constexpr std::uint64_t noLimit = ~0ull;

// The place of a socket failure, as the log names it. The text is one for all.
constexpr int atFirstSend = 1001, atResend = 1021, atAnswer = 1048, atQuiet = 1090;

// Of a burst in flight: one packet. The datagram's memory is used again for every burst.
struct Slot {
    Bytes datagram;
    std::uint64_t dataLength = 0;
    std::uint16_t seq = 0, index = 0, block = 0;
};

class Transferring {
public:
    Transferring(ZENNO::Link& socket, ZENNO::Clock& clock, const IPAddress& target,
                 ZENNO::BufferCS_const data, const TransferProgress& progress,
                 TransferFigures& figures)
        : socket_(socket),
          clock_(clock),
          target_(target),
          data_(data),
          remaining_(data.size),
          progress_(progress),
          figures_(figures),
          random_(clock.now()) {}

    bool run(int number, std::uint64_t limit) {
        return open(number, limit) && sendAll() && close();
    }

private:
    bool open(int number, std::uint64_t limit);
    bool sendAll();
    bool sendBlock();
    void buildBurst();
    void writePacket(Slot& slot, bool isLast);
    bool sendBurst();
    bool awaitAck();
    bool recover();
    bool resend();
    bool sendAgain(Slot& slot);
    bool close();

    template <class Request>
    bool ask(const Request& request, Bytes& answer) {
        figures_.result =
            sendAck(socket_, clock_, target_, write(request), Request::answer, answer);
        return figures_.result == ackAccepted;
    }
    bool fail(TransferEnd end) {
        figures_.end = end;
        return false;
    }
    bool failSocket(TransferEnd end, int place) {
        LogLine(3) << "UDP stream send error " << place << ":" << socket_.lastError();
        return fail(end);
    }

    ZENNO::Link& socket_;
    ZENNO::Clock& clock_;
    const IPAddress target_;
    const ZENNO::BufferCS_const data_;
    std::uint64_t remaining_;  // bytes not yet cut into packets
    const TransferProgress& progress_;
    TransferFigures& figures_;
    std::minstd_rand random_;

    // What the target wants.
    std::uint64_t burstLimit_ = 0;  // bytes; losses shrink it
    std::uint64_t packetBytes_ = 0, blockPackets_ = 0, blocks_ = 0;

    std::uint16_t channel_ = 0;  // as it goes on the wire: the number and 1
    std::uint16_t seq_ = 0;      // of the next packet, over the whole transfer
    std::uint16_t block_ = 0;
    std::uint16_t index_ = 0;  // of the next packet in its block
    std::uint64_t count_ = 0;  // packets that the block may still take

    // The burst in flight.
    std::vector<Slot> slots_ = std::vector<Slot>(transferSlots);
    std::size_t burstCount_ = 0;
    std::uint16_t lastSeq_ = 0;
    std::uint64_t lastAck_ = 0;  // stays from burst to burst
    std::int32_t resends_ = 0;
    bool retry_ = false;
    Bytes received_;
};

bool Transferring::open(int number, std::uint64_t limit) {
    Bytes answer;
    if (!ask(wire::TRANSFER_REQ{.channel = 0}, answer)) return fail(TransferEnd::notOpened);
    const auto first = *wire::read<wire::TRANSFER_ANS>(*wire::readPacket(answer));
    figures_.channels = first.channel;
    if (first.channel == 0 || first.channel <= number) return fail(TransferEnd::noSuchChannel);
    burstLimit_ = first.second == wire::TRANSFER_ANS::noLimit ? noLimit : first.second;
    if (limit != 0) burstLimit_ = std::min(burstLimit_, limit);
    figures_.burstLimit = burstLimit_;

    channel_ = static_cast<std::uint16_t>(number + 1);
    if (!ask(wire::TRANSFER_REQ{.channel = channel_}, answer)) return fail(TransferEnd::notOpened);
    const auto second = *wire::read<wire::TRANSFER_ANS>(*wire::readPacket(answer));
    if (second.channel != channel_) return fail(TransferEnd::noSuchChannel);
    packetBytes_ = second.second + 1u;
    blockPackets_ = second.blockPackets1 + 1u;
    blocks_ = second.blocks1 + 1u;
    figures_.capacity = blocks_ * blockPackets_ * packetBytes_;
    if (figures_.capacity < data_.size) return fail(TransferEnd::tooLarge);
    if (std::min(packetBytes_, data_.size) > wire::maxPayloadBytes) {
        return fail(TransferEnd::tooLarge);  // no header can tell so long a packet
    }
    LogLine(6) << "start Transfer " << data_.size << " " << burstLimit_;
    return true;
}

bool Transferring::sendAll() {
    while (remaining_ != 0) {
        if (!sendBlock()) return false;
        ++block_;
    }
    return true;
}

bool Transferring::sendBlock() {
    const auto blocks = static_cast<std::uint16_t>(blocks_);
    if (progress_) {
        progress_(block_, blocks);
    } else {
        LogLine(7) << "Transfer " << block_ << "/" << blocks;
    }
    count_ = std::min(blockPackets_, (remaining_ + packetBytes_ - 1) / packetBytes_);
    index_ = 0;
    retry_ = false;
    for (;;) {
        if (retry_) {
            if (!resend()) return false;
        } else {
            if (count_ == 0) return true;
            buildBurst();
            if (!sendBurst()) return false;
        }
        if (!awaitAck()) return false;
    }
}

void Transferring::buildBurst() {
    std::uint64_t burstBytes = 0;
    burstCount_ = 0;
    for (bool isLast = false; !isLast;) {
        Slot& slot = slots_[burstCount_++];
        slot.dataLength = std::min(remaining_, packetBytes_);
        burstBytes += slot.dataLength;
        --count_;
        isLast = burstBytes >= burstLimit_ || remaining_ == slot.dataLength || count_ == 0 ||
                 burstCount_ == slots_.size();
        writePacket(slot, isLast);
    }
    resends_ = 0;
}

// The next packet of the data. Takes its bytes, its number and its place in the block.
void Transferring::writePacket(Slot& slot, bool isLast) {
    const std::uint8_t* from = data_.data + (data_.size - remaining_);
    remaining_ -= slot.dataLength;
    lastSeq_ = slot.seq = seq_++;
    slot.index = index_++;
    slot.block = block_;

    const std::uint16_t sizeWord = wire::sizeWordFor(slot.dataLength);
    const std::uint16_t mark = isLast ? wire::TRANSFER_DATA::lastMark : std::uint16_t{0};
    slot.datagram.resize(wire::lengthInSizeWord(sizeWord));
    wire::writeHeader(slot.datagram, sizeWord, wire::TRANSFER_DATA::id, 0,
                      {static_cast<std::uint16_t>(channel_ | mark), slot.seq, slot.index, block_});
    const auto payload = slot.datagram.begin() + static_cast<std::ptrdiff_t>(wire::headerBytes);
    std::fill(std::copy_n(from, slot.dataLength, payload), slot.datagram.end(), std::uint8_t{0});
}

bool Transferring::sendBurst() {
    for (std::size_t i = 0; i < burstCount_; ++i) {
        if (!socket_.sendDatagramTo(slots_[i].datagram, target_, /*retry=*/false)) {
            return failSocket(TransferEnd::sendFailed, atFirstSend);
        }
        ++figures_.packets;
        figures_.bytesSent += slots_[i].dataLength;
    }
    ++figures_.bursts;
    return true;
}

// Waits for the acknowledgement of the burst in flight. True: it has arrived, or `retry_` says that
// it has to go again.
bool Transferring::awaitAck() {
    Listening listening(socket_, clock_, ackWait);
    for (;;) {
        const int ready = listening.wait();
        if (ready == ZENNO::waitTimedOut) return recover();
        if (ready != ZENNO::waitReady) {
            LogLine(6) << "Retry Detect Error ";
            return fail(TransferEnd::waitFailed);
        }
        IPAddress sender;  // whoever acknowledges is believed
        if (!socket_.receiveFrom(received_, sender)) {
            return failSocket(TransferEnd::receiveFailed, atAnswer);
        }
        const auto packet = wire::readPacket(received_);
        if (!packet || packet->id() != wire::TRANSFER_ACK::id) continue;
        if (!packet->accepted()) {
            LogLine(3) << "Transfer NAK error ";
            return fail(TransferEnd::refused);
        }
        if (packet->arg16(8) != channel_) {
            LogLine(3) << "Transfer NO error ";
            return fail(TransferEnd::wrongChannel);
        }
        break;
    }
    lastAck_ = wire::load16(received_, 10);
    retry_ = false;
    if (lastAck_ == lastSeq_) return true;
    // Some targets tell the number that they expect next. It does not wrap: behind 65535 they are
    // not understood.
    if (lastAck_ == lastSeq_ + std::uint64_t{1}) {
        LogLine(6) << "Retry Redy Pass " << lastSeq_ << " " << lastAck_;
        return true;
    }
    LogLine(6) << "Retry Detect err " << lastSeq_ << " " << lastAck_;
    return recover();
}

// Losses mean that the burst was too fast: the line is let go quiet, and later bursts are smaller.
// The burst that goes again stays as it is.
bool Transferring::recover() {
    retry_ = true;
    const TimeLimit limit(clock_, quietLimit);
    for (;;) {
        const int ready = socket_.waitReadable(quietWait);
        if (ready == ZENNO::waitTimedOut) break;
        if (ready != ZENNO::waitReady || limit.passed()) {
            LogLine(6) << "Retry Clear Error ";
            return fail(TransferEnd::waitFailed);
        }
        IPAddress sender;
        if (!socket_.receiveFrom(received_, sender)) {
            return failSocket(TransferEnd::receiveFailed, atQuiet);
        }
    }
    if (burstLimit_ > 1000) {
        burstLimit_ -= 1000;
    } else if (burstLimit_ > 1) {
        burstLimit_ -= 1;
    }
    figures_.burstLimit = burstLimit_;
    return true;
}

bool Transferring::resend() {
    ++resends_;
    LogLine(6) << "resend " << burstCount_;
    if (resends_ > mostResends) {
        LogLine(3) << "Transfer error " << resends_;
        return fail(TransferEnd::unheard);
    }
    ++figures_.resends;
    for (std::size_t i = 0; i < burstCount_; ++i) {
        // The numbers are compared as they are: where they wrap within a burst, more or fewer
        // packets go than are missing. The last goes always, for it is the one that is answered.
        if (i + 1 != burstCount_ && slots_[i].seq < lastAck_) continue;
        if (!sendAgain(slots_[i])) return false;
    }
    return true;
}

// Packets go again in a form that is longer now and then, by zeros behind what sizeWord tells. One
// with filler loses the end of its data on the way. Both are kept as they are: where the full
// packets have none, that is the short last one alone, and the checksum then tells.
bool Transferring::sendAgain(Slot& slot) {
    constexpr std::ptrdiff_t tail = 8;  // bytes
    const std::uint16_t sizeWord = wire::sizeWordFor(slot.dataLength);
    const std::size_t length = wire::lengthInSizeWord(sizeWord);
    const std::uint64_t longer = random_() % 4;
    slot.datagram.resize(std::max<std::uint64_t>(length, (slot.dataLength + longer + 23) & 0xfff8));
    if ((sizeWord & 7) != 0) {
        const auto end = slot.datagram.begin() + static_cast<std::ptrdiff_t>(length);
        std::fill(end - tail, end, std::uint8_t{0});
    }
    LogLine(6) << "resend " << slot.block << " " << slot.index << " " << slot.seq
               << " data=" << slot.dataLength << " packet=" << slot.datagram.size();
    if (!socket_.sendDatagramTo(slot.datagram, target_, /*retry=*/false)) {
        return failSocket(TransferEnd::sendFailed, atResend);
    }
    ++figures_.packetsResent;
    return true;
}

bool Transferring::close() {
    const std::uint16_t crc = wire::crc16({data_.data, data_.size});
    const wire::TRANSFEREND_REQ request{
        .channel = channel_, .crc = crc, .status = wire::TRANSFEREND_ANS::complete};
    Bytes received;
    std::optional<wire::TRANSFEREND_ANS> answer;
    if (ask(request, received)) {
        answer = wire::read<wire::TRANSFEREND_ANS>(*wire::readPacket(received));
    }
    if (!answer || answer->channel != channel_ || answer->crc != crc) {
        LogLine(3) << "TransferFinish error ";
        return fail(TransferEnd::notClosed);
    }
    figures_.status = answer->status;
    if (answer->status != wire::TRANSFEREND_ANS::complete) {
        LogLine(3) << "TransferStrp error ";
        return fail(TransferEnd::notTaken);
    }
    LogLine(6) << "compleat Transfer ";
    figures_.end = TransferEnd::complete;
    return true;
}

}  // namespace

bool transfer(ZENNO::Link& socket, ZENNO::Clock& clock, const IPAddress& target, int number,
              ZENNO::BufferCS_const data, std::uint64_t limit, const TransferProgress& progress,
              TransferFigures& figures) {
    figures = {};
    return Transferring(socket, clock, target, data, progress, figures).run(number, limit);
}

bool Find::Transfer(const IPAddress& target, int no, ZENNO::BufferCS_const data,
                    std::uint64_t limit) {
    return Transfer(target, no, data, limit, {});
}

bool Find::Transfer(const IPAddress& target, int no, ZENNO::BufferCS_const data,
                    std::uint64_t limit, const TransferProgress& progress) {
    TransferFigures figures;
    return Transfer(target, no, data, limit, progress, figures);
}

bool Find::Transfer(const IPAddress& target, int no, ZENNO::BufferCS_const data,
                    std::uint64_t limit, const TransferProgress& progress,
                    TransferFigures& figures) {
    return transfer(*socket_, environment_.clock(), target, no, data, limit, progress, figures);
}

bool Find::transferStatus(const IPAddress& target, int no, std::uint16_t& crc,
                          std::uint16_t& status) {
    const wire::TRANSFEREND_REQ request{
        .channel = static_cast<std::uint16_t>(static_cast<unsigned>(no) + 1),
        .crc = crc,
        .status = status};
    Bytes answer;
    if (ask(target, request, answer) != ackAccepted) return false;
    const auto end = wire::readPacket(answer);
    if (end->arg16(8) != request.channel || end->arg16(10) != crc) return false;
    status = end->arg16(12);
    return true;
}

}  // namespace VELMORA
