// The software target, as everybody on its link may talk to it: discovery, negotiation, audio,
// settings, transfers, its log and its texts, by several hosts at once, at any port. What it
// answers, plays and holds is in proportion to what it was told.
#include "target/Target.h"

#include <cstdio>

#include "fuzz/World.h"
#include "tests/target/TransferWorld.h"

using namespace velmora_fuzz;
using namespace velmora_target;
using velmora_test::Shelf;
using velmora_test::ShelfItem;

namespace {

constexpr std::uint16_t ports[] = {velmora_test::controlPort, velmora_test::sinkPort,
                                   velmora_test::secondSinkPort, 20003};
constexpr std::size_t mostReaders = LogChannel::mostReaders;

// What all streams have played.
struct Played {
    std::uint64_t bytes = 0;
    bool fails = false, refuses = false;
};

class PlayedOutput final : public AudioOutput {
public:
    explicit PlayedOutput(Played& played) : played_(played) {}
    std::string open(VELMORA::SinkConfig format) override {
        frameBytes_ = format.frameBytes();
        require(frameBytes_ != 0 && format.isValid() && format.rate() != 0);
        return played_.refuses ? "no output" : "";
    }
    bool write(VELMORA::wire::ConstBytes frames) override {
        require(frames.size() % frameBytes_ == 0);
        played_.bytes += frames.size();
        return !played_.fails;
    }
    std::string close() override { return {}; }
    std::string where() const override { return "played"; }

private:
    Played& played_;
    std::size_t frameBytes_ = 0;
};

TargetSettings settingsFrom(Input& input) {
    TargetSettings settings = velmora_test::transferSettings();
    const std::uint8_t choices = input.byte();
    settings.formats.pcm = 0x0000'003e'0000'2e1f;  // up to 192000 Hz, 32 bits, eight channels
    settings.formats.dsdLsb = 0x0000'0202'0251'0003;
    settings.phaseInvert = (choices & 1) != 0;
    settings.feedbackEncoding = 1 + (choices >> 1 & 3) % 3;
    if ((choices & 8) != 0) settings.bufferMicros = input.word() * 100u;
    if ((choices & 16) != 0) settings.clockPpm = 1000.0 - input.byte() * 8;
    if ((choices & 32) != 0) settings.dropPercent = 20;
    if ((choices & 64) != 0) settings.refused = {input.byte()};
    if ((choices & 128) != 0) settings.configText.clear();
    return settings;
}

class Bench {
public:
    explicit Bench(Input& input)
        : input_(input),
          target_(
              settingsFrom(input),
              [this](const std::string&, std::uint16_t) {
                  return std::make_unique<PlayedOutput>(played_);
              },
              Storage{{},
                      [](const KeptValues& values) {
                          require(values.size() <= itemTable().size());
                          return std::string();
                      },
                      [this](std::uint16_t) { return std::make_unique<ShelfItem>(shelf_); }}) {
        target_.announceOn({3, 4});
    }

    void run() {
        while (!input_.isEmpty()) step();
        Mail mail;
        target_.endStreams("the end", mail);
        require(!target_.isConnected() && target_.figures().empty());
        require(shelf_.open == 0);
    }

private:
    //   how  u8   bits 0..2 form, 3..4 port, 5..6 host, 7: time passes first, u16 x 16 µs
    void step() {
        const std::uint8_t how = input_.byte();
        if ((how & 0x80) != 0) pass(input_.word() * 16ull);
        const std::uint16_t port = ports[how >> 3 & 3];
        const IPAddress host = linkLocal(0x11, static_cast<std::uint16_t>(40'000 + (how >> 5 & 3)));
        switch (how & 7) {
            case 0:
                break;
            case 1:
            case 2: {  // a message: id, u8; arg, 8 bytes; payload with its length in front
                const std::uint16_t id = input_.byte();
                const Bytes arg = input_.bytes(8);
                tell(message(id, 0, arg, input_.bytes(input_.byte())), port, host);
                break;
            }
            case 3:  // a datagram
                tell(input_.bytes(input_.byte()), port, host);
                break;
            case 4: {  // audio: bytes, u16; by how much its number goes on, i16; flags, u8
                const std::uint16_t bytes = input_.word();
                sequence_ = static_cast<std::uint16_t>(sequence_ + input_.word());
                audio(bytes, input_.byte(), port, host);
                break;
            }
            case 5: {  // audio as an honest host sends it: bytes, u16; packets, u8; µs between, u16
                const std::uint16_t bytes = input_.word();
                const std::uint8_t packets = input_.byte();
                const std::uint16_t micros = input_.word();
                for (std::uint8_t i = 0; i < packets && steps_ < mostSteps; ++i) {
                    ++sequence_;
                    audio(bytes, (i & 7) == 7 ? 0x60 : 0x40, port, host);
                    pass(micros);
                }
                break;
            }
            case 6: {  // the format of a stream: its word
                const Bytes arg = input_.bytes(8);
                tell(message(8, 0, arg, {}), port, host);
                break;
            }
            default: {  // data of a transfer: place, u16; bytes, u8; last, u8
                const std::uint16_t place = input_.word();
                const std::uint8_t bytes = input_.byte();
                const unsigned last = (input_.byte() & 1) != 0 ? 0x80 : 0;
                const auto index = static_cast<std::uint8_t>(place % 4);
                const unsigned block = place / 4u;
                tell(message(
                         28, 0,
                         {1, static_cast<std::uint8_t>(last), static_cast<std::uint8_t>(place),
                          static_cast<std::uint8_t>(place >> 8), index, 0,
                          static_cast<std::uint8_t>(block), static_cast<std::uint8_t>(block >> 8)},
                         Bytes(bytes, 0x33)),
                     velmora_test::controlPort, host);
                break;
            }
        }
    }
    void audio(std::uint16_t bytes, std::uint8_t flags, std::uint16_t port, const IPAddress& host) {
        tell(message(
                 10, flags & 0x60,
                 {static_cast<std::uint8_t>(sequence_), static_cast<std::uint8_t>(sequence_ >> 8)},
                 Bytes(bytes, 0x55)),
             port, host);
    }
    void tell(const Bytes& datagram, std::uint16_t port, const IPAddress& host) {
        if (++steps_ > mostSteps) return;
        Mail mail;
        const std::uint64_t before = played_.bytes;
        target_.onDatagram({now_, now_, port, host, datagram}, mail);
        check(mail);
        require(played_.bytes - before <= mostAtOnce);
        require(mail.lines.size() <= 16);
        // The answer, what a stream says unasked, the notifications.
        require(mail.datagrams.size() <= 4 + mail.lines.size() * mostReaders);
    }
    void pass(std::uint64_t micros) {
        const std::uint64_t end = now_ + micros;
        while (now_ < end && steps_ < mostSteps) {
            now_ = std::min(end, std::max(target_.nextTime(now_), now_ + 1));
            Mail mail;
            target_.onTime(now_, mail);
            check(mail);
            require(mail.datagrams.size() <= 4 + mail.lines.size() * mostReaders);
            ++steps_;
        }
        now_ = std::max(now_, end);
    }
    void check(const Mail& mail) {
        for (const Outgoing& out : mail.datagrams) {
            require(out.data.size() >= 16 && out.data.size() <= 65'528 && out.data.size() % 8 == 0);
            require(VELMORA::wire::readPacket(out.data).has_value());
        }
        for (const std::string& line : mail.lines) {
            require(!line.empty() && line.size() <= 2000);
            for (const char c : line) require(static_cast<unsigned char>(c) >= 0x20);
        }
        if (steps_ % 16 != 0) return;
        for (const Figures& figures : target_.figures()) {
            require(figures.feedbackLowest <= figures.feedbackHighest);
            require(figures.frames * figures.format.frameBytes() <= figures.bytes);
        }
        target_.takeEnded();
    }

    // Ten seconds of the largest stream there is.
    static constexpr std::uint64_t mostAtOnce = 10 * 192'000 * 32;
    static constexpr std::size_t mostSteps = 2000;

    Input& input_;
    Played played_;
    Shelf shelf_;
    Target target_;
    std::uint64_t now_ = 1'000'000;
    std::uint16_t sequence_ = 0xffff;  // the first packet that is sent in order has number 0
    std::size_t steps_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Bench(input).run();
    return 0;
}
