#include "tests/apps/FindWorld.h"

namespace velmora_test {

void FindWorld::offerItems() {
    held = items;
    target.replies[wire::ITEM_REQ::id] = [this](const wire::PacketView& request) {
        const std::uint16_t no = request.arg16(8);
        if (no == 0) {
            return write(wire::ITEM_ANS{.itemNo = static_cast<std::uint16_t>(items.size())});
        }
        if (no > items.size()) return write(wire::ITEM_ANS{.accepted = false, .itemNo = no});
        const WireItem& item = items[no - 1u];
        return write(wire::ITEM_ANS{.itemNo = no,
                                    .type = item.type,
                                    .lower = item.lower,
                                    .upper = item.upper,
                                    .label = item.label});
    };
    target.replies[wire::ITEMVALUE_REQ::id] = [this](const wire::PacketView& packet) {
        const auto request = *wire::read<wire::ITEMVALUE_REQ>(packet);
        wire::ITEMVALUE_ANS answer{.itemNo = request.itemNo};
        if (request.itemNo == 0) {
            commits.push_back(request.mode);
            items = held;
            return write(answer);
        }
        if (request.itemNo > items.size()) return write(wire::ITEMVALUE_ANS{.accepted = false});
        WireItem& item = items[request.itemNo - 1u];
        WireItem& next = held[request.itemNo - 1u];
        if (request.mode == wire::ITEMVALUE_REQ::modeWrite) {
            next.current = request.value;
            next.text = request.text;
        } else if (request.mode == wire::ITEMVALUE_REQ::modeLabel) {
            const auto at = static_cast<std::size_t>(request.value - item.lower);
            if (at < item.choices.size()) answer.text = item.choices[at];
        } else {
            answer.current = item.current;
            answer.second = item.second;
            answer.text = item.text;
        }
        return write(answer);
    };
}

void FindWorld::offerChannels(std::uint16_t channels) {
    target.replies[wire::TRANSFER_REQ::id] = [channels](const wire::PacketView& request) {
        const std::uint16_t channel = request.arg16(8);
        if (channel == 0) return write(wire::TRANSFER_ANS{.channel = channels, .second = 2048});
        return write(wire::TRANSFER_ANS{
            .channel = channel, .second = 1023, .blockPackets1 = 7, .blocks1 = 15});
    };
    target.replies[wire::TRANSFER_DATA::id] = [this](const wire::PacketView& packet) {
        const auto head = *wire::read<wire::TRANSFER_DATA>(packet);
        const auto data = packet.payload();
        const std::size_t at = head.seq * 1024u;
        if (received.size() < at + data.size()) received.resize(at + data.size());
        std::copy(data.begin(), data.end(), received.begin() + static_cast<std::ptrdiff_t>(at));
        if ((head.channel & wire::TRANSFER_DATA::lastMark) == 0) return Bytes();
        return write(wire::TRANSFER_ACK{
            .channel = static_cast<std::uint16_t>(head.channel & 0x7fff), .seq = head.seq});
    };
    target.replies[wire::TRANSFEREND_REQ::id] = [this](const wire::PacketView& request) {
        return write(wire::TRANSFEREND_ANS{.channel = request.arg16(8),
                                           .crc = slowCrc(received),
                                           .status = wire::TRANSFEREND_ANS::complete});
    };
}

std::uint16_t FindWorld::slowCrc(const Bytes& data) {
    std::uint32_t rest = 0xffff;
    for (const std::uint8_t byte : data) {
        rest ^= byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest & 1) != 0 ? rest >> 1 ^ 0xa001 : rest >> 1;
    }
    return static_cast<std::uint16_t>(~rest);
}

}  // namespace velmora_test
