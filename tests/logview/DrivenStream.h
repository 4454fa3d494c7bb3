// A stream worker's log without the worker: the driver's own pace and trace, at times that a test
// chooses, with the lines that go with them. Knows how late each burst really was.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "sync/Pace.h"
#include "sync/PacketTrace.h"
#include "tests/logview/Lines.h"

namespace velmora_test {

class DrivenStream {
public:
    using Say = std::function<void(const velmora_log::Message&)>;

    DrivenStream(std::uint32_t now, VELMORA::TransferProfile row, Say say)
        : row_(row), say_(std::move(say)), pace_(now, row.cycle, /*catchUp=*/true), now_(now) {}

    void sayStart() {
        say_(messageOf("start cycle=" + std::to_string(row_.cycle) +
                       "usec 1000.000000Hz size=0 cycleMin=" + std::to_string(row_.cycleMin) +
                       "usec 0.000000Hz"));
        say_(messageOf("redy to play loop start0"));
    }

    // A turn so long behind its deadline. Each send takes `sendMicros`.
    void turn(std::uint32_t late, std::uint32_t sendMicros = 7) {
        if (!isFirst_) now_ = pace_.deadline() + late;
        const std::uint32_t behind = now_ - pace_.deadline();
        const auto turn = pace_.onTurn(now_, cycle_, row_, most_, random_);
        if (turn.overTime) {
            say_(messageOf("over time " + std::to_string(turn.late) + " 0 " +
                               std::to_string(turn.lateDebt) + " 10",
                           4));
            ++overTimes;
        }
        if (!isFirst_) really.push_back(behind);
        isFirst_ = false;
        for (std::uint32_t i = 0; i < turn.burst; ++i) {
            now_ += sendMicros;
            if (!trace_.add(now_, 368)) continue;
            if (!losesTrace) say_(messageOf(std::string(trace_.record())));
            trace_.clear();
        }
        turnAt_ = now_;
    }

    // The target's answer to a question that goes out with the last turn.
    void changeCycle(std::uint32_t cycle) {
        say_(messageOf("Request Info " + std::to_string(turnAt_)));
        say_(messageOf("info rcv 1  0.0000  0.0000  0.0000 cy=" + std::to_string(cycle)));
        cycle_ = cycle;
    }

    std::vector<std::uint32_t> really;  // late by, of each burst but the first
    int overTimes = 0;
    bool losesTrace = false;

private:
    VELMORA::TransferProfile row_;
    Say say_;
    VELMORA::Pace pace_;
    VELMORA::PacketTrace trace_;
    std::mt19937 random_{5489};
    std::uint32_t now_, turnAt_ = 0;
    std::uint32_t cycle_ = row_.cycle;
    std::uint16_t most_ = static_cast<std::uint16_t>(2 * row_.packetCount);
    bool isFirst_ = true;
};

}  // namespace velmora_test
