#include "target/Transfers.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "target/Discovery.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

std::string textOf(const ZENNO::IPAddress& address) {
    std::string text;
    address.toTextWithPort(text);
    return text;
}

std::string formatted(const char* format, double value) {
    char text[48];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string rateOf(std::uint64_t bytes, std::uint64_t micros) {
    const double seconds = static_cast<double>(micros) / 1e6;
    std::string text = std::to_string(bytes) + " bytes in " + formatted("%.3f s", seconds);
    if (micros != 0) text += formatted(", %.1f kB/s", static_cast<double>(bytes) / seconds / 1e3);
    return text;
}

}  // namespace

Transfers::Transfers(const TargetSettings& settings, MakeInboxItem makeItem)
    : settings_(settings), makeItem_(std::move(makeItem)) {
    if (makeItem_) channels_.resize(settings.channels.size());
}

Transfers::Channel* Transfers::channelAt(std::uint16_t number) {
    return number == 0 || number > channels_.size() ? nullptr : &channels_[number - 1u];
}

std::optional<ZENNO::Bytes> Transfers::answer(const Arrival& arrival, const PacketView& packet,
                                              Mail& out) {
    onTime(arrival.now, out);
    switch (packet.id()) {
        case TRANSFER_REQ::id:
            return begin(packet.arg16(8), arrival, out);
        case TRANSFER_DATA::id:
            return onData(arrival, packet, out);
        case TRANSFEREND_REQ::id:
            if (const auto request = read<TRANSFEREND_REQ>(packet)) {
                return end(*request, arrival, out);
            }
            return refusal(TRANSFEREND_ANS::id);
        default:
            return std::nullopt;
    }
}

ZENNO::Bytes Transfers::begin(std::uint16_t number, const Arrival& arrival, Mail& out) {
    TRANSFER_ANS answer;
    if (number == 0 && !channels_.empty()) {
        answer.channel = static_cast<std::uint16_t>(channels_.size());
        answer.second = settings_.burstLimit;
        return write(answer);
    }
    Channel* channel = channelAt(number);
    if (channel == nullptr) return refusal(TRANSFER_ANS::id);
    const std::size_t index = number - 1u;
    if (channel->running && channel->running->host() != arrival.from) {
        out.lines.push_back("refused " + textOf(arrival.from) + ": channel " +
                            std::to_string(index) + " is in use");
        return refusal(TRANSFER_ANS::id);
    }
    if (channel->running) fail(index, "begun anew", out);

    const ChannelSettings& form = settings_.channels[index];
    channel->running.emplace(form, arrival.from, arrival.now,
                             makeItem_(static_cast<std::uint16_t>(index)));
    channel->toldBeyond = false;
    out.lines.push_back("channel " + std::to_string(index) + ": transfer from " +
                        textOf(arrival.from) + " begun");
    answer.channel = number;
    answer.second = static_cast<std::uint16_t>(form.packetBytes - 1);
    answer.blockPackets1 = static_cast<std::uint16_t>(form.blockPackets - 1);
    answer.blocks1 = static_cast<std::uint16_t>(form.blocks - 1);
    return write(answer);
}

std::optional<ZENNO::Bytes> Transfers::onData(const Arrival& arrival, const PacketView& packet,
                                              Mail& out) {
    const auto header = read<TRANSFER_DATA>(packet);
    if (!header) return std::nullopt;
    const bool isLast = (header->channel & TRANSFER_DATA::lastMark) != 0;
    const auto number =
        static_cast<std::uint16_t>(header->channel & ~unsigned{TRANSFER_DATA::lastMark});
    Channel* channel = channelAt(number);
    // A straggler of a transfer that has ended is not refused: its host may be in the next one.
    if (channel == nullptr || !channel->running || channel->running->host() != arrival.from) {
        return std::nullopt;
    }
    Transfer& transfer = *channel->running;
    const bool hadFailed = !transfer.failure().empty();
    const Transfer::Taken taken = transfer.onData(*header, packet.payload(), arrival.now);
    const std::string name = "channel " + std::to_string(number - 1) + ": ";
    if (!hadFailed && !transfer.failure().empty()) out.lines.push_back(name + transfer.failure());
    if (taken == Transfer::Taken::beyond && !std::exchange(channel->toldBeyond, true)) {
        out.lines.push_back(name + "refused more than its " +
                            std::to_string(settings_.channels[number - 1u].capacity()) + " bytes");
    }
    if (!isLast || taken == Transfer::Taken::foreign) return std::nullopt;
    TRANSFER_ACK answer;
    answer.accepted = taken == Transfer::Taken::sound && transfer.failure().empty();
    answer.channel = number;
    answer.seq = transfer.reached();
    return write(answer);
}

ZENNO::Bytes Transfers::end(const TRANSFEREND_REQ& request, const Arrival& arrival, Mail& out) {
    Channel* channel = channelAt(request.channel);
    if (channel == nullptr) return refusal(TRANSFEREND_ANS::id);
    TRANSFEREND_ANS answer{true, request.channel, request.crc, 0};
    const bool ends = request.status == TRANSFEREND_ANS::complete;
    if (!ends || !channel->running || channel->running->host() != arrival.from) {
        const auto& ended = channel->ended;
        if (ends && ended && ended->host == arrival.from && ended->askedCrc == request.crc) {
            return write(ended->answer);
        }
        if (channel->wholeCrc == request.crc) answer.status = TRANSFEREND_ANS::complete;
        return write(answer);
    }

    const std::size_t index = request.channel - 1u;
    Transfer& transfer = *channel->running;
    answer.crc = transfer.crc();
    const std::string why = finish(transfer, request.crc);
    if (why.empty()) {
        answer.status = TRANSFEREND_ANS::complete;
        channel->wholeCrc = request.crc;
        ++counts_.whole;
        counts_.bytes += transfer.bytes();
        counts_.duplicates += transfer.duplicates();
        out.lines.push_back(
            "channel " + std::to_string(index) + ": transfer from " + textOf(arrival.from) +
            " is whole: " + rateOf(transfer.bytes(), arrival.now - transfer.begun()) +
            ", duplicates " + std::to_string(transfer.duplicates()) + ", in " + transfer.where());
        channel->running.reset();
    } else {
        if (settings_.endStatus != TRANSFEREND_ANS::complete) answer.status = settings_.endStatus;
        fail(index, why, out);
    }
    channel->ended = Ended{arrival.from, request.crc, answer};
    return write(answer);
}

// Why what came is not kept; empty if it is.
std::string Transfers::finish(Transfer& transfer, std::uint16_t crc) const {
    if (!transfer.failure().empty()) return transfer.failure();
    if (!transfer.isUnbroken()) return "packets are missing";
    if (transfer.crc() != crc) {
        char text[64];
        std::snprintf(text, sizeof text, "its CRC is %04x, the host's %04x",
                      unsigned{transfer.crc()}, unsigned{crc});
        return text;
    }
    if (settings_.endStatus != TRANSFEREND_ANS::complete) {
        return "status " + std::to_string(settings_.endStatus) + " is to be told";
    }
    return transfer.finish();
}

void Transfers::fail(std::size_t index, const std::string& why, Mail& out) {
    std::optional<Transfer>& running = channels_[index].running;
    ++counts_.failed;
    counts_.duplicates += running->duplicates();
    out.lines.push_back("channel " + std::to_string(index) + ": transfer from " +
                        textOf(running->host()) + " failed: " + why + "; " +
                        std::to_string(running->bytes()) + " bytes");
    running.reset();
}

void Transfers::onTime(std::uint64_t now, Mail& out) {
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const auto& running = channels_[i].running;
        if (running && now - running->heard() >= silenceLimit) fail(i, "silent for 5 s", out);
    }
}

std::uint64_t Transfers::nextTime() const {
    std::uint64_t next = ~0ull;
    for (const Channel& channel : channels_) {
        if (channel.running) next = std::min(next, channel.running->heard() + silenceLimit);
    }
    return next;
}

void Transfers::endAll(const std::string& reason, Mail& out) {
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        if (channels_[i].running) fail(i, reason, out);
    }
}

}  // namespace velmora_target
