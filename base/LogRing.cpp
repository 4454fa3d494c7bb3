#include "base/LogRing.h"

#include <algorithm>
#include <cstring>
#include <shared_mutex>

#include "base/Clock.h"
#include "base/LogLine.h"
#include "platform/Thread.h"
#include "platform/Time.h"

namespace ZENNO {

namespace {

constexpr std::size_t storeBytes = LogSlots::slotCount * LogSlots::slotBytes;
constexpr std::int64_t flushNanos = 10'000'000;

static_assert(std::atomic<char>::is_always_lock_free);

std::shared_mutex installMutex;  // shared by writers while they use the ring, alone for its change
// Never freed at the end of the process: lines may come to the very last.
LogRing* logRing = nullptr;

}  // namespace

LogSlots::LogSlots() : store_(std::make_unique<std::atomic<char>[]>(storeBytes)) {}

void LogSlots::write(const char* body) {
    if (*body == '\0') return;
    const std::lock_guard lock(writers_);
    const std::uint32_t slot = writeIndex_.load(std::memory_order_relaxed);
    const std::size_t at = slot * slotBytes;
    const std::size_t size = std::min(std::strlen(body), storeBytes - at - 1);
    for (std::size_t i = 0; i < size; ++i) {
        store_[at + i].store(body[i], std::memory_order_relaxed);
    }
    store_[at + size].store('\0', std::memory_order_relaxed);
    writeIndex_.store((slot + 1) % slotCount, std::memory_order_release);
}

bool LogSlots::read(std::string& line) {
    if (isEmpty()) return false;
    line.clear();
    const std::uint32_t slot = readIndex_.load(std::memory_order_relaxed);
    for (std::size_t at = slot * slotBytes; at < storeBytes; ++at) {
        const char c = store_[at].load(std::memory_order_relaxed);
        if (c == '\0') break;
        line += c;
    }
    readIndex_.store((slot + 1) % slotCount, std::memory_order_relaxed);
    return true;
}

bool LogSlots::isEmpty() const noexcept {
    return readIndex_.load(std::memory_order_relaxed) ==
           writeIndex_.load(std::memory_order_acquire);
}

LogRing::LogRing(std::FILE* out) : out_(out), flusher_([this] { flush(); }) {}

LogRing::~LogRing() {
    stop_.store(true, std::memory_order_release);
    flusher_.join();
}

void LogRing::flush() {
    platform::setThreadPriority(platform::Priority::idle);
    std::string line;
    while (!stop_.load(std::memory_order_acquire)) {
        sleepUntil(platform::steadyNanos() + flushNanos);
        while (slots_.read(line)) {
            line += '\n';
            std::fputs(line.c_str(), out_);
            std::fflush(out_);
        }
    }
}

void writeToLogRing(const char* message) {
    // The body is looked for where the longest header ends. A short priority makes the header
    // shorter, and an empty message may then end in front of that place.
    constexpr std::size_t header = LogRecord::headerLength;
    if (std::memchr(message, '\0', header) != nullptr) return;
    const std::shared_lock lock(installMutex);
    if (logRing != nullptr) logRing->write(message + header);
}

void installLogRing(std::FILE* out) {
    auto next = std::make_unique<LogRing>(out);
    std::unique_ptr<LogRing> older;
    {
        const std::lock_guard lock(installMutex);
        older.reset(logRing);
        logRing = next.release();
    }
}  // the older ring ends here, when no writer can be in it any more

}  // namespace ZENNO
