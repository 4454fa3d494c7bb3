// A target on a bench: datagrams go in by hand, answers come out, time moves when told.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "target/Target.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_test {

using ZENNO::Bytes;
using ZENNO::IPAddress;

inline Bytes hex(const std::string& text) {
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        if (c != ' ') digits += c;
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

// What outputs of all streams have been given; outlives them.
struct Tape {
    Bytes bytes;
    int opened = 0, closed = 0;
    std::string output;      // that was asked for last
    std::string refuseWith;  // open answers this
    bool failWrites = false;
};

class TapeOutput final : public velmora_target::AudioOutput {
public:
    explicit TapeOutput(Tape& tape) : tape_(tape) {}
    std::string open(VELMORA::SinkConfig) override {
        if (tape_.refuseWith.empty()) ++tape_.opened;
        return tape_.refuseWith;
    }
    bool write(VELMORA::wire::ConstBytes frames) override {
        tape_.bytes.insert(tape_.bytes.end(), frames.begin(), frames.end());
        return !tape_.failWrites;
    }
    std::string close() override {
        ++tape_.closed;
        return {};
    }
    std::string where() const override { return "tape"; }

private:
    Tape& tape_;
};

constexpr std::uint16_t controlPort = 19642, sinkPort = 20001, secondSinkPort = 20002;

inline VELMORA::SinkConfig pcm16Stereo48() {
    return VELMORA::SinkConfig(0x0000'000c'0000'0202);  // 48000 x1, 16 bits, two channels
}

inline velmora_target::TargetSettings plainSettings() {
    velmora_target::TargetSettings settings;
    settings.name = "bench";
    settings.productID = 0x45544e4556524f4b;  // "KORVENTE"
    settings.configText = "http://[myaddress]/";
    settings.sinks = {{"Main", sinkPort, sinkPort, 1}, {"Second", secondSinkPort, 20003, 1}};
    settings.formats.pcm = 0x0000'01fe'0000'2e1f;
    settings.formats.dsdMsb = 0x0000'1e02'02a1'0003;
    settings.latency = 200;
    settings.hwLatency = 10;
    return settings;
}

class TargetWorld {
public:
    explicit TargetWorld(velmora_target::TargetSettings settings = plainSettings(),
                         velmora_target::Storage storage = {},
                         velmora_target::MakeOutput makeOutput = {})
        : target(
              std::move(settings),
              makeOutput ? std::move(makeOutput)
                         : [this](const std::string& output, std::uint16_t) {
                               tape.output = output;
                               return std::make_unique<TapeOutput>(tape);
                           },
              std::move(storage)) {}

    Tape tape;
    velmora_target::Target target;
    std::uint64_t now = 1'000'000;
    IPAddress host = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x11}, 40000, 3);
    velmora_target::Mail mail;  // all that came out since the last ask

    // Everything that comes back, to whomever.
    std::vector<velmora_target::Outgoing> tell(const Bytes& datagram, std::uint16_t port,
                                               const IPAddress& from) {
        mail = {};
        target.onDatagram({now, now, port, from, datagram}, mail);
        return mail.datagrams;
    }
    // The one answer, which has to go back from the port that was asked; empty if there is none.
    Bytes ask(const Bytes& datagram, std::uint16_t port) { return ask(datagram, port, host); }
    Bytes ask(const Bytes& datagram, std::uint16_t port, const IPAddress& from) {
        for (const auto& out : tell(datagram, port, from)) {
            if (out.localPort == port && out.to == from) return out.data;
        }
        return {};
    }
    // Lets time pass as the loop would.
    void pass(std::uint64_t micros) {
        const std::uint64_t end = now + micros;
        mail = {};
        while (now < end) {
            const std::uint64_t next = target.nextTime(now);
            now = std::min(end, std::max(next, now + 1));
            target.onTime(now, mail);
        }
    }
    bool connect(VELMORA::SinkConfig format = pcm16Stereo48()) {
        const Bytes bytes = ask(write(VELMORA::wire::CONNECT_REQ{format}), sinkPort);
        const auto answer = VELMORA::wire::readPacket(bytes);
        return answer && answer->id() == 9 && answer->accepted();
    }
    std::vector<velmora_target::Outgoing> data(std::uint16_t sequence, const Bytes& audio,
                                               std::uint16_t flags = 0x40,
                                               std::uint16_t port = sinkPort) {
        return tell(dataPacket(sequence, audio, flags), port, host);
    }
    velmora_target::Figures figures() const { return target.figures().at(0); }

    static Bytes dataPacket(std::uint16_t sequence, const Bytes& audio, std::uint16_t flags) {
        return VELMORA::wire::makePacket(10, flags, {sequence, 0, 0, 0}, audio);
    }
};

}  // namespace velmora_test
