// How often each value came, in a room that does not grow: exact up to 4095, above by steps of less
// than a thousandth.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora_log {

class Distribution {
public:
    Distribution() : counts_(indexOf(0xffff'ffff) + 1) {}

    void add(std::uint32_t value) {
        ++counts_[indexOf(value)];
        ++count_;
        most_ = std::max(most_, value);
    }
    std::uint64_t count() const { return count_; }
    std::uint32_t most() const { return most_; }
    // What `part` of them do not exceed, by the nearest rank; 0 of none.
    std::uint32_t at(double part) const {
        if (count_ == 0) return 0;
        const auto rank =
            static_cast<std::uint64_t>(std::llround(part * static_cast<double>(count_ - 1)));
        std::uint64_t passed = 0;
        for (std::size_t i = 0; i < counts_.size(); ++i) {
            passed += counts_[i];
            if (passed > rank) return std::min(highestOf(i), most_);
        }
        return most_;
    }
    // How many do not exceed `value`, as exactly as the steps are.
    std::uint64_t upTo(std::uint32_t value) const {
        std::uint64_t passed = 0;
        for (std::size_t i = 0; i <= indexOf(value); ++i) passed += counts_[i];
        return passed;
    }

private:
    static constexpr int exactBits = 12;
    static constexpr std::size_t exact = 1 << exactBits, half = exact / 2;

    static constexpr std::size_t indexOf(std::uint32_t value) {
        const auto shift =
            static_cast<std::uint32_t>(value < exact ? 0 : std::bit_width(value) - exactBits);
        return shift * half + (value >> shift);
    }
    static constexpr std::uint32_t highestOf(std::size_t index) {
        if (index < exact) return static_cast<std::uint32_t>(index);
        const std::size_t shift = index / half - 1;
        return static_cast<std::uint32_t>(((index - shift * half + 1) << shift) - 1);
    }

    std::vector<std::uint64_t> counts_;
    std::uint64_t count_ = 0;
    std::uint32_t most_ = 0;
};

}  // namespace velmora_log
