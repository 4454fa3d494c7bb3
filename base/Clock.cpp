#include "base/Clock.h"

#include <algorithm>
#include <limits>

#include "platform/Time.h"

namespace ZENNO {

namespace {

class TimerSleep final : public ExactSleep {
public:
    void sleep(std::uint32_t micros) noexcept override { timer_.sleep(micros); }
    bool isUsable() const noexcept { return timer_.isUsable(); }

private:
    platform::ExactTimer timer_;
};

class SystemClock final : public Clock {
public:
    std::uint32_t now() noexcept override { return platform::counterMicros(); }
    void sleep(std::uint64_t micros) override {
        constexpr auto forever = std::numeric_limits<std::int64_t>::max();
        const std::int64_t begin = platform::steadyNanos();
        const auto most = static_cast<std::uint64_t>(forever - begin) / 1000;
        sleepUntil(micros < most ? begin + static_cast<std::int64_t>(micros) * 1000 : forever);
    }
    void yield() noexcept override { platform::yieldSlice(); }
    void rest(std::uint32_t micros) noexcept override { platform::restFromPolling(micros); }
    std::unique_ptr<ExactSleep> exactSleep() override {
        auto sleep = std::make_unique<TimerSleep>();
        if (!sleep->isUsable()) return nullptr;
        return sleep;
    }
};

}  // namespace

Clock& systemClock() noexcept {
    static SystemClock clock;
    return clock;
}

std::uint32_t nowMicros() noexcept {
    return platform::counterMicros();
}

int compareWrapped(std::uint32_t a, std::uint32_t b) noexcept {
    constexpr std::uint32_t halfTurn = 0x80000000;
    if (a == b) return 0;
    if (a < b) return b - a < halfTurn ? -1 : 1;
    return a - b < halfTurn ? 1 : -1;
}

void sleepUntil(std::int64_t steadyNanos) {
    constexpr std::int64_t tenDays = 864'000'000'000'000;
    for (;;) {
        const std::int64_t now = platform::steadyNanos();
        if (now >= steadyNanos) return;
        platform::sleepNanos(std::min(steadyNanos - now, tenDays));
    }
}

}  // namespace ZENNO
