// A target on a FakeNetwork that takes transfers, and the fixture of their tests. It is made from
// the bytes up and shares no line with wire/ or find/: what the host sends and reads is held
// against a second opinion.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/find/FindTest.h"

namespace velmora_test {

// A TRANSFER_DATA as it arrived.
struct TransferPacket {
    std::uint64_t time = 0;  // FakeClock::time
    std::uint16_t sizeWord = 0;
    std::uint16_t word = 0;  // channel and last mark
    std::uint16_t seq = 0, index = 0, block = 0;
    Bytes data;      // by sizeWord
    Bytes datagram;  // surplus included
    bool last() const { return (word & 0x8000) != 0; }
};

class TransferPeer final : public Peer {
public:
    struct Geometry {
        std::uint16_t channels = 4;
        std::uint16_t burstLimit = 65535;  // 65535: none
        std::uint32_t packetBytes = 1024;  // this and the next two: 1 to 65536
        std::uint32_t blockPackets = 8;
        std::uint32_t blocks = 16;
    };
    // What is about to leave, for a script to change.
    struct Answer {
        int turn = 0;  // of this step, from 0
        Bytes request;
        std::vector<Bytes> datagrams;  // one, well made; none is silence
        IPAddress from{};
        std::uint64_t delay = 0;  // µs until they leave

        void silence() { datagrams.clear(); }
        void refuse() { datagrams.at(0).at(6) &= 0xfe; }
        void echo() { datagrams = {request}; }
        void set(std::size_t offset, std::uint16_t value);
    };
    using Script = std::function<void(Answer&)>;

    TransferPeer(FakeNetwork& network, const IPAddress& address);  // attaches itself
    ~TransferPeer() override;
    TransferPeer(const TransferPeer&) = delete;
    TransferPeer& operator=(const TransferPeer&) = delete;

    Geometry geometry;
    std::uint16_t status = 65535;
    // To TRANSFER_REQ 0 (how many), TRANSFER_REQ of a channel, the last packet of a burst,
    // TRANSFEREND_REQ.
    Script onCount, onChannel, onBurst, onEnd;

    std::vector<Bytes> requests;          // all that came but for TRANSFER_DATA
    std::vector<TransferPacket> packets;  // all TRANSFER_DATA, copies included
    std::vector<std::uint16_t> seqs() const;
    std::vector<std::uint16_t> marked() const;  // seq of those with the last mark
    void forget();                              // all that came; scripts and geometry stay
    Bytes received() const;                     // of the unbroken run, first copies

    void onDatagram(FakeNetwork& network, const Datagram& datagram) override;

private:
    void take(const TransferPacket& packet);
    void answer(const Datagram& to, const Script& script, int& turns, Bytes datagram);

    FakeNetwork& network_;
    const IPAddress address_;
    std::map<std::uint64_t, Bytes> kept_;  // first copies by seq, without its wrap
    std::uint64_t run_ = 0;                // packets from the first on without a gap
    std::uint16_t channel_ = 0;            // asked for last
    int counts_ = 0, channels_ = 0, bursts_ = 0, ends_ = 0;
};

using Words = std::initializer_list<std::uint16_t>;
using Delays = std::initializer_list<std::uint32_t>;

// A datagram without payload, its words as told.
Bytes plainDatagram(std::uint16_t id, std::uint16_t flags, std::uint16_t at8 = 0,
                    std::uint16_t at10 = 0, std::uint16_t at12 = 0, std::uint16_t at14 = 0);
std::uint16_t wordAt(const Bytes& datagram, std::size_t offset);
// CRC-16/USB, bit by bit.
std::uint16_t slowCrc(const Bytes& data);
// Bytes of which none is zero, so that what was wiped can be told.
Bytes pattern(std::size_t size);

class TransferTest : public FindTest {
protected:
    bool send(const Bytes& data, std::uint64_t limit = 0, int no = 0) {
        return opened().Transfer(address, no, data, limit, progress, figures);
    }
    // What the transfer itself logged, the level in front.
    std::vector<std::string> logged() const;
    std::vector<std::string> logged(int level) const;
    // The burst at this turn, counted with those sent again: what arrived since the one before.
    std::vector<TransferPacket> round(std::size_t turn) const;
    // From the peer to the host's socket, so many µs from now on.
    void later(std::uint64_t micros, const Bytes& datagram, const IPAddress& from);
    IPAddress hostPort() const;  // where the host sends from

    const IPAddress address = control(1);
    TransferPeer peer{network, address};
    VELMORA::TransferProgress progress;  // none: the log line
    VELMORA::TransferFigures figures;
};

}  // namespace velmora_test
