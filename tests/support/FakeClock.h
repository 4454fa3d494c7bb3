// A clock that moves only when the test, a sleep or a wait moves it; what is due on the way happens
// at its time. It starts close to the wrap of 32 bits, so that every test crosses it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "base/Clock.h"

namespace velmora_test {

class FakeClock final : public ZENNO::Clock {
public:
    static constexpr std::uint64_t start = 0xffff'ff00;

    // A reading costs `tickPerRead` µs (0 at first): what a thread that polls the clock needs to
    // get on.
    std::uint32_t now() noexcept override {
        if (tickPerRead != 0) advance(tickPerRead);
        return static_cast<std::uint32_t>(now_);
    }
    void sleep(std::uint64_t micros) override {
        ++sleeps;
        advance(micros);
    }
    void yield() noexcept override {
        ++yields;
        advance(yieldCost);
    }

    // Nothing while waits on the network in memory are to be taken for exact, as they are.
    std::unique_ptr<ZENNO::ExactSleep> exactSleep() override {
        if (!hasExactSleep) return nullptr;
        return std::make_unique<Exact>(*this);
    }

    std::uint64_t time() const { return now_; }  // µs without the wrap
    void advance(std::uint64_t micros) { advanceTo(now_ + micros); }
    void advanceTo(std::uint64_t time) {
        while (!events_.empty() && events_.begin()->first <= time) {
            auto event = std::move(events_.begin()->second);
            now_ = std::max(now_, events_.begin()->first);
            events_.erase(events_.begin());
            event();
        }
        now_ = std::max(now_, time);
    }
    // Runs `what` when the clock reaches `time`; equal times in the order of their booking.
    void at(std::uint64_t time, std::function<void()> what) {
        events_.emplace(time, std::move(what));
    }
    void in(std::uint64_t micros, std::function<void()> what) {
        at(now_ + micros, std::move(what));
    }
    bool hasEvents() const { return !events_.empty(); }
    std::uint64_t nextEvent() const { return events_.empty() ? ~0ull : events_.begin()->first; }

    std::uint32_t tickPerRead = 0;
    std::uint32_t yieldCost = 0;
    int sleeps = 0;
    int yields = 0;
    bool hasExactSleep = false;
    std::vector<std::uint32_t> exactSleeps;  // µs each

private:
    struct Exact final : ZENNO::ExactSleep {
        explicit Exact(FakeClock& its) : clock(its) {}
        void sleep(std::uint32_t micros) noexcept override {
            clock.exactSleeps.push_back(micros);
            clock.advance(micros);
        }
        FakeClock& clock;
    };

    std::uint64_t now_ = start;
    std::multimap<std::uint64_t, std::function<void()>> events_;
};

}  // namespace velmora_test
