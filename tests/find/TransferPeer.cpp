#include "tests/find/TransferPeer.h"

namespace velmora_test {
namespace {

void put(Bytes& out, std::size_t at, std::uint16_t value) {
    out.at(at) = static_cast<std::uint8_t>(value & 0xff);
    out.at(at + 1) = static_cast<std::uint8_t>(value >> 8);
}

}  // namespace

Bytes plainDatagram(std::uint16_t id, std::uint16_t flags, std::uint16_t at8, std::uint16_t at10,
                    std::uint16_t at12, std::uint16_t at14) {
    Bytes out{0x64, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    put(out, 4, id);
    put(out, 6, flags);
    put(out, 8, at8);
    put(out, 10, at10);
    put(out, 12, at12);
    put(out, 14, at14);
    return out;
}

std::uint16_t wordAt(const Bytes& datagram, std::size_t offset) {
    return static_cast<std::uint16_t>(datagram.at(offset) + datagram.at(offset + 1) * 256);
}

std::uint16_t slowCrc(const Bytes& data) {
    unsigned rest = 0xffff;
    for (const std::uint8_t byte : data) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            const bool odd = ((rest ^ (byte >> bit)) & 1) != 0;
            rest /= 2;
            if (odd) rest ^= 0xa001;
        }
    }
    return static_cast<std::uint16_t>(0xffff - rest);
}

Bytes pattern(std::size_t size) {
    Bytes out(size);
    for (std::size_t i = 0; i < size; ++i) {
        out[i] = static_cast<std::uint8_t>(1 + (i * 7 + i / 251) % 255);
    }
    return out;
}

void TransferPeer::Answer::set(std::size_t offset, std::uint16_t value) {
    put(datagrams.at(0), offset, value);
}

TransferPeer::TransferPeer(FakeNetwork& network, const IPAddress& address)
    : network_(network), address_(address) {
    network_.attach(address_, this);
}

TransferPeer::~TransferPeer() {
    network_.attach(address_, nullptr);
}

std::vector<std::uint16_t> TransferPeer::seqs() const {
    std::vector<std::uint16_t> out;
    for (const TransferPacket& packet : packets) out.push_back(packet.seq);
    return out;
}

std::vector<std::uint16_t> TransferPeer::marked() const {
    std::vector<std::uint16_t> out;
    for (const TransferPacket& packet : packets) {
        if (packet.last()) out.push_back(packet.seq);
    }
    return out;
}

void TransferPeer::forget() {
    requests.clear();
    packets.clear();
    kept_.clear();
    run_ = 0;
    counts_ = channels_ = bursts_ = ends_ = 0;
}

Bytes TransferPeer::received() const {
    Bytes out;
    for (const auto& [seq, data] : kept_) {
        if (seq < run_) out.insert(out.end(), data.begin(), data.end());
    }
    return out;
}

void TransferPeer::take(const TransferPacket& packet) {
    // The place nearest to where the run stands.
    const auto ahead = static_cast<std::int16_t>(packet.seq - static_cast<std::uint16_t>(run_));
    if (ahead < 0) return;
    kept_.emplace(run_ + static_cast<std::uint64_t>(ahead), packet.data);
    while (kept_.count(run_) != 0) ++run_;
}

void TransferPeer::onDatagram(FakeNetwork&, const Datagram& datagram) {
    const Bytes& in = datagram.data;
    if (in.size() < 16 || wordAt(in, 0) != 100) return;
    const std::uint16_t sizeWord = wordAt(in, 2), id = wordAt(in, 4), at8 = wordAt(in, 8);
    if (id != 28) requests.push_back(in);
    if (id == 26 && at8 == 0) {
        answer(datagram, onCount, counts_,
               plainDatagram(27, 1, geometry.channels, geometry.burstLimit));
    } else if (id == 26) {
        channel_ = at8;
        answer(datagram, onChannel, channels_,
               plainDatagram(27, 1, at8, static_cast<std::uint16_t>(geometry.packetBytes - 1),
                             static_cast<std::uint16_t>(geometry.blockPackets - 1),
                             static_cast<std::uint16_t>(geometry.blocks - 1)));
    } else if (id == 30) {
        answer(datagram, onEnd, ends_, plainDatagram(31, 1, at8, slowCrc(received()), status));
    } else if (id == 28) {
        const std::size_t length = sizeWord & 0xfff8u, filler = sizeWord & 7u;
        if (length < 16 + filler || length > in.size()) return;
        TransferPacket packet{
            network_.time.time(),
            sizeWord,
            at8,
            wordAt(in, 10),
            wordAt(in, 12),
            wordAt(in, 14),
            Bytes(in.begin() + 16, in.begin() + static_cast<std::ptrdiff_t>(length - filler)),
            in};
        take(packet);
        packets.push_back(packet);
        if (!packet.last()) return;
        const auto reached = static_cast<std::uint16_t>(run_ == 0 ? 0 : run_ - 1);
        answer(datagram, onBurst, bursts_, plainDatagram(29, 1, channel_, reached));
    }
}

void TransferPeer::answer(const Datagram& to, const Script& script, int& turns, Bytes datagram) {
    Answer answer{turns++, to.data, {std::move(datagram)}, address_, 0};
    if (script) script(answer);
    for (const Bytes& leaving : answer.datagrams) {
        if (answer.delay == 0) {
            network_.send(answer.from, to.from, leaving);
        } else {
            network_.time.in(answer.delay, [this, answer, leaving, host = to.from] {
                network_.send(answer.from, host, leaving);
            });
        }
    }
}

std::vector<std::string> TransferTest::logged() const {
    std::vector<std::string> out;
    for (const LogCapture::Line& line : log.lines()) {
        if (line.text.starts_with("sendAck[")) continue;
        out.push_back(std::to_string(line.level) + " " + line.text);
    }
    return out;
}

std::vector<std::string> TransferTest::logged(int level) const {
    std::vector<std::string> out;
    for (const std::string& line : logged()) {
        if (line[0] == '0' + level) out.push_back(line.substr(2));
    }
    return out;
}

std::vector<TransferPacket> TransferTest::round(std::size_t turn) const {
    std::vector<TransferPacket> out;
    for (const TransferPacket& packet : peer.packets) {
        if (turn == 0) out.push_back(packet);
        if (packet.last() && turn-- == 0) break;
    }
    return out;
}

IPAddress TransferTest::hostPort() const {
    const auto sent = sentByHost();
    return sent.empty() ? IPAddress{} : sent.back().from;
}

void TransferTest::later(std::uint64_t micros, const Bytes& datagram, const IPAddress& from) {
    network.time.in(micros, [this, datagram, from] { network.send(from, hostPort(), datagram); });
}

}  // namespace velmora_test
