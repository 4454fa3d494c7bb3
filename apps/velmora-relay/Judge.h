// What becomes of a frame on its way: drawn from a seed by the shares that are asked for.
//
// It reads no clock: whoever asks tells the time. Every fault draws from a generator of its own,
// one number a frame, so that a seed meets the same frames with it whatever else is switched on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace velmora_relay {

struct Cut {
    std::uint64_t at = 0, length = 0;  // µs from the first frame that is judged
    std::uint64_t every = 0;           // begins again after so long; 0: once
};

struct Faults {
    // Of a thousand frames.
    double lose = 0, duplicate = 0, holdBack = 0;
    double corrupt = 0;               // the checksum stays: the receiver's system drops it
    double corruptUnseen = 0;         // the checksum is mended: the receiver gets it
    double meanBurst = 1;             // frames lost in a row, on average; 1: each for itself
    std::uint32_t heldMicros = 3000;  // how long a frame is held back for others to pass it
    std::uint32_t leastDelay = 0, mostDelay = 0;  // µs; every frame draws its own
    bool keepsOrder = true;                       // of delayed frames
    std::vector<Cut> cuts{};
};

enum class Corruption { none, seen, unseen };

struct Fate {
    bool isLost = false;
    std::uint64_t due = 0;                 // when it goes out
    std::optional<std::uint64_t> copyDue;  // when it goes out once more
    bool isHeldBack = false;
    Corruption corruption = Corruption::none;
};

// The frames of one direction.
class Judge {
public:
    Judge(Faults faults, std::uint32_t seed);
    Fate judge(std::uint64_t now);
    std::mt19937& bits() noexcept { return random_[whichBits]; }  // for spoiling a frame

private:
    enum Draw : std::size_t { loss, doubling, holding, seen, unseen, time, whichBits, draws };
    bool happens(Draw draw, double perMille);
    bool isLost();
    std::uint64_t delay();

    const Faults faults_;
    std::array<std::mt19937, draws> random_;
    bool inBurst_ = false;
    std::uint64_t lastDue_ = 0;
};

// Whether the whole link is down, both ways and for every frame.
class Cuts {
public:
    explicit Cuts(std::vector<Cut> cuts) : cuts_(std::move(cuts)) {}
    void begin(std::uint64_t now) noexcept {
        if (!begun_) begun_ = now;
    }
    bool isDown(std::uint64_t now) const noexcept;

private:
    const std::vector<Cut> cuts_;
    std::optional<std::uint64_t> begun_;
};

}  // namespace velmora_relay
