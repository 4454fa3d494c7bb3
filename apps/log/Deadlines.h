// The deadlines that bursts were sent at, rebuilt from when their packets went out: the trace does
// not tell them.
//
// The driver's next deadline is a cycle behind the last one, and a burst never leaves before its
// deadline. A turn that is late by a whole cycle starts the cycle afresh, and the driver says by
// how much it was late. A burst may leave later than that without it: its turn was in time, and its
// sending was held up. Where no deadline is known yet, the earliest burst is taken for one that
// left at its deadline; and where the cycle follows the target's clock, the earliest of the last
// second or so is, for the exact place of each small change is not told.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace velmora_log {

struct Burst {
    std::int64_t micros = 0;  // when its first packet went out; does not wrap
    std::int64_t late = 0;    // µs behind its deadline
};

// The cycle that lies in these times of packets, µs; nothing where they are too few to tell. Of any
// number of packets a burst, as long as the pauses between bursts stand out.
std::optional<std::uint32_t> estimateCycle(std::span<const std::int64_t> times);

class Deadlines {
public:
    using Found = std::function<void(const Burst&)>;

    explicit Deadlines(std::uint32_t cycle) : cycle_(cycle) {}

    // The stream begins with the next packet: the driver's first deadline lies half a cycle before
    // it. Its burst is not told, for it is late by design.
    void beginHere() { begins_ = true; }
    // What comes next does not go on from where the last record ended.
    void loseTrack();
    // The target was asked at `at`, and from its answer on the cycle is another one.
    void changeCycle(std::int64_t at, std::uint32_t cycle) { changes_.push_back({at, cycle}); }
    // The driver says that a turn of the record that comes next was so late, by a cycle and more.
    void expectLate(std::uint32_t late) { lateTurns_.push_back(late); }
    // The times of a record's packets, in order.
    void take(std::span<const std::int64_t> times, const Found& found);

    std::uint32_t cycle() const { return cycle_; }

private:
    struct Change {
        std::int64_t at;
        std::uint32_t cycle;
    };
    static constexpr std::size_t aSecond = 20;  // records, or less of a dense stream

    void takePacket(std::span<const std::int64_t> fromHere, const Found& found);
    bool isLateTurn(std::span<const std::int64_t> fromHere, std::int64_t late) const;
    void openBurst(std::int64_t time);
    void startAfresh(std::int64_t deadline);
    void tell(const Found& found);

    std::uint32_t cycle_;
    bool begins_ = false;
    bool isAnchored_ = false;            // a deadline is known, not taken from the earliest burst
    bool follows_ = false;               // the cycle has changed: it follows the target
    std::optional<std::int64_t> next_;   // the next deadline as it is reckoned
    std::int64_t floor_ = 0;             // how far that is known to be wrong
    std::optional<std::int64_t> least_;  // of this record, behind the deadlines reckoned
    std::deque<std::int64_t> leastBefore_;
    std::deque<Change> changes_;
    std::deque<std::uint32_t> lateTurns_;  // that the driver tells, of this record
    bool wasLate_ = false;  // the burst before, by a cycle and more, without a word from the driver
    std::size_t opened_ = 0, misfits_ = 0;  // of this record: bursts, and pauses that fit no cycle
    std::vector<Burst> waiting_;            // for the record's end, when the floor is known
    std::int64_t last_ = 0;                 // the packet before
};

}  // namespace velmora_log
