// Where long streams play: music that knows its place, a target that checks it and forgets it, a
// machine and a network with moods, and a link and an environment that join them.
//
// The network in memory that other tests use keeps each datagram; millions of them are too many.
// Nothing here takes anything from the heap once it stands.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <span>

#include "src/Network/Environment.h"
#include "tests/support/FakeClock.h"

namespace velmora_test::longrun {

using ZENNO::Bytes;
using ZENNO::IPAddress;

constexpr std::uint64_t second = 1'000'000;  // µs
constexpr std::uint32_t rate = 192000, frameBytes = 8;

// The music repeats after a prime number of frames, no two of which are alike and none of which is
// silence. So a frame that is missing or comes twice puts all that follow it in the wrong place,
// and so does any number of them but for whole repeats, which the count at the end would show.
class Music {
public:
    explicit Music(std::uint64_t seconds) : size(seconds * rate * frameBytes) {
        for (std::uint64_t i = 0; i < frames; ++i) {
            const std::uint64_t word = (i + 1) * 0x9e37'79b9'7f4a'7c15;
            std::memcpy(bytes_.data() + i * frameBytes, &word, frameBytes);
        }
    }
    // The music from byte `at` on, as much of it as lies in one piece, `most` bytes at most.
    ZENNO::BufferCS_const from(std::uint64_t at, std::uint64_t most) const {
        const std::uint64_t begin = at % bytes_.size();
        return {bytes_.data() + begin, std::min({most, size - at, bytes_.size() - begin})};
    }

    const std::uint64_t size;  // bytes, all repeats

private:
    static constexpr std::uint64_t frames = 65537;
    Bytes bytes_ = Bytes(frames * frameBytes);
};

// A target that takes packets in their order alone: what comes early is thrown away, and asked for
// again together with what is missing. That is all the memory it needs.
class Target {
public:
    explicit Target(const Music& music) : music_(music) {}

    struct Answer {
        std::uint64_t due = 0;
        std::array<std::uint8_t, 16> datagram{};
    };

    // A datagram of the host's, which has come at `now`. What it is answered goes to `out`.
    void take(std::span<const std::uint8_t> packet, std::uint64_t now,
              std::array<std::optional<Answer>, 2>& out) {
        const std::uint16_t id = word(packet, 4);
        if (id == 8) out[0] = answer(now, 9, 1, {6000});
        if (id == 12) out[0] = answer(now, 13, 1);
        if (id != 10) return;

        ++packets;
        playUntil(now);
        const std::uint16_t number = word(packet, 8);
        const auto ahead = static_cast<std::int16_t>(number - static_cast<std::uint16_t>(next));
        if (ahead == 0) {
            const std::size_t length = word(packet, 2) & 0xfff8u, filler = word(packet, 2) & 7u;
            const bool isSound = length >= 16 + filler && length <= packet.size();
            wrong += isSound ? 0 : 1;
            hear(isSound ? packet.subspan(16, length - 16 - filler) : packet.first(0));
            ++next;
        } else if (ahead > 0 && (askedFor_ != next || now - asked_ >= resendPatience)) {
            askedFor_ = next;
            asked_ = now;
            ++resendRequests;
            out[0] = answer(
                now, 11, 9,
                {0, static_cast<std::uint16_t>(next), static_cast<std::uint16_t>(number - 1)});
        }
        if ((word(packet, 6) & 0x20) != 0) out[1] = feedback(now);
    }

    bool hasAll() const { return heard == music_.size; }

    std::uint64_t packets = 0, next = 0;  // that came; the number of the first that is missing
    std::uint64_t resendRequests = 0, answers = 0;
    std::uint64_t heard = 0, silence = 0;  // bytes of music; of silence in front of it
    std::uint64_t wrong = 0, firstWrong = 0, noise = 0;  // pieces; at this byte; behind the end
    double lowest = 0, highest = 0;                      // fill while it plays, µs
    double mean = 0, lowestMean = 0, highestMean = 0;    // the same over some ten seconds

    static constexpr double wanted = 40'000;  // fill, µs

private:
    static constexpr std::uint64_t resendPatience = 5'000, way = 150;  // µs
    static constexpr double mostPpm = 100, wander = 1200 * 1e6;        // µs there and back

    static std::uint16_t word(std::span<const std::uint8_t> packet, std::size_t at) {
        return static_cast<std::uint16_t>(packet[at] | packet[at + 1] << 8);
    }

    Answer answer(std::uint64_t now, std::uint16_t id, std::uint16_t flags,
                  std::array<std::uint16_t, 4> arg = {}) {
        const std::array<std::uint16_t, 8> words{100,    16,     id,     flags,
                                                 arg[0], arg[1], arg[2], arg[3]};
        Answer out{now + 2 * way, {}};
        for (std::size_t i = 0; i < words.size(); ++i) {
            out.datagram[2 * i] = static_cast<std::uint8_t>(words[i]);
            out.datagram[2 * i + 1] = static_cast<std::uint8_t>(words[i] >> 8);
        }
        return out;
    }

    // The three encodings by turns. 1.0 is 33 ms too many.
    Answer feedback(std::uint64_t now) {
        const double phase = 2 * std::numbers::pi * static_cast<double>(now) / wander;
        ppm_ = mostPpm * std::sin(phase);
        const double excess = isPlaying_ ? fill() - wanted : 0;
        mean += (wanted + excess - mean) / 256;
        lowestMean = std::min(lowestMean, mean);
        highestMean = std::max(highestMean, mean);
        const int value = static_cast<int>(std::clamp(excess / 33'000 * 16384, -16380.0, 16380.0));
        switch (answers++ % 3) {
            case 0:
                return answer(now, 11, 1, {static_cast<std::uint16_t>(8192 + value / 2)});
            case 1:
                return answer(now, 11, 1, {static_cast<std::uint16_t>(0x8000 | (value & 0x7fff))});
            default:
                return answer(now, 11, 1, {0, static_cast<std::uint16_t>(16384 + value), 16384});
        }
    }

    double fill() const { return (static_cast<double>(frames_) - played_) * 1e6 / rate; }

    void playUntil(std::uint64_t now) {
        if (isPlaying_ && !hasAll()) {
            played_ += static_cast<double>(now - playedAt_) * rate / 1e6 * (1 + ppm_ * 1e-6);
            lowest = std::min(lowest, fill());
        }
        playedAt_ = now;
    }

    void hear(std::span<const std::uint8_t> audio) {
        static constexpr std::array<std::uint8_t, frameBytes> silentFrame{};
        frames_ += audio.size() / frameBytes;
        while (heard == 0 && audio.size() >= frameBytes &&
               std::memcmp(audio.data(), silentFrame.data(), frameBytes) == 0) {
            silence += frameBytes;
            audio = audio.subspan(frameBytes);
        }
        while (!audio.empty() && !hasAll()) {
            const auto right = music_.from(heard, audio.size());
            if (std::memcmp(audio.data(), right.data, right.size) != 0 && wrong++ == 0) {
                firstWrong = heard;
            }
            heard += right.size;
            audio = audio.subspan(right.size);
        }
        if (std::any_of(audio.begin(), audio.end(), [](std::uint8_t b) { return b != 0; })) ++noise;

        if (!isPlaying_ && fill() >= wanted) {
            isPlaying_ = true;
            lowest = highest = mean = lowestMean = highestMean = fill();
        }
        if (isPlaying_ && !hasAll()) highest = std::max(highest, fill());
    }

    const Music& music_;
    std::uint64_t askedFor_ = ~0ull, asked_ = 0;
    bool isPlaying_ = false;
    std::uint64_t frames_ = 0;  // taken, silence among them
    double played_ = 0;         // frames
    std::uint64_t playedAt_ = 0;
    double ppm_ = 0;
};

// The way between the two, and the machine's own moods: one datagram in a hundred is lost, either
// way, a wait ends up to 60 µs late, and every seven seconds one ends 5 ms late. Seeded.
class Weather {
public:
    bool loses() { return isBad && dice_() % 100 == 0; }
    std::uint64_t lateness(std::uint64_t now) {
        if (now < heldUpNext_) return dice_() % 60;
        heldUpNext_ = now + 7 * second;
        ++heldUp;
        return 5'000;
    }

    bool isBad = false;
    std::uint64_t heldUp = 0;

private:
    std::minstd_rand dice_{20240229};
    std::uint64_t heldUpNext_ = 0;
};

struct Scenery {
    explicit Scenery(std::uint64_t seconds) : music(seconds) {}

    FakeClock time;
    std::uint64_t giveUp = ~0ull;  // a stream that goes on and on fails then
    Music music;
    Target target{music};
    Weather weather;
    std::uint64_t sent = 0, lost = 0;  // data packets
};

class LeanLink final : public ZENNO::Link {
public:
    explicit LeanLink(Scenery& scenery) : its_(scenery) {}

    bool open(ZENNO::SocketKind) override { return open_ = true; }
    void close() override { open_ = false; }
    bool isOpen() const override { return open_; }
    bool bindV6(IPAddress&) override { return true; }
    bool joinV6(const IPAddress&) override { return true; }
    bool setBlocking(bool on) override {
        blocking_ = on;
        return true;
    }
    int waitReadable(std::uint32_t micros) override {
        const std::uint64_t end = its_.time.time() + micros;
        if (end > its_.giveUp) return ZENNO::waitError;
        if (waiting_ != 0 && queue_[first_].due <= end) {
            its_.time.advanceTo(queue_[first_].due);
            return ZENNO::waitReady;
        }
        if (micros != 0) its_.time.advanceTo(end + its_.weather.lateness(end));
        return ZENNO::waitTimedOut;
    }
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override {
        const auto& datagram = queue_[first_].datagram;
        std::copy(datagram.begin(), datagram.end(), buffer.data);
        length = datagram.size();
        from = peer_;
        first_ = (first_ + 1) % queue_.size();
        --waiting_;
        return true;
    }
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to, bool) noexcept override {
        peer_ = to;
        const bool isAudio = data.data[4] == 10;
        its_.sent += isAudio ? 1 : 0;
        if (isAudio && (its_.weather.loses() || isLostAtTheWrap(data.data))) {
            ++its_.lost;
            return static_cast<std::int64_t>(data.size);
        }
        std::array<std::optional<Target::Answer>, 2> answers;
        its_.target.take({data.data, data.size}, its_.time.time(), answers);
        for (const auto& answer : answers) {
            if (!answer || its_.weather.loses() || waiting_ == queue_.size()) continue;
            queue_[(first_ + waiting_++) % queue_.size()] = *answer;
        }
        return static_cast<std::int64_t>(data.size);
    }

private:
    // The last number before each wrap, once: what is asked for again lies on both sides of it.
    bool isLostAtTheWrap(const std::uint8_t* packet) {
        if (packet[8] != 0xff || packet[9] != 0xff || its_.target.next == wrapLost_) return false;
        wrapLost_ = its_.target.next;
        return true;
    }

    Scenery& its_;
    std::uint64_t wrapLost_ = 0;
    bool open_ = false;
    IPAddress peer_{};
    std::array<Target::Answer, 16> queue_{};
    std::size_t first_ = 0, waiting_ = 0;
};

class LeanEnvironment final : public ZENNO::Environment {
public:
    explicit LeanEnvironment(Scenery& scenery) : its_(scenery) {}
    ZENNO::Clock& clock() noexcept override { return its_.time; }
    std::unique_ptr<ZENNO::Link> makeLink() override { return std::make_unique<LeanLink>(its_); }
    bool localAddressesV6(ZENNO::LocalInterfaceMap&) override { return true; }

private:
    Scenery& its_;
};

}  // namespace velmora_test::longrun
