// The thread that keeps the ring full. It makes no audio itself: fillStream does, on this thread,
// and through it the host's callback. A block taken by the stream worker is what wakes it, so the
// host runs at the pace of the stream and of no timer.

#include <algorithm>
#include <chrono>
#include <exception>

#include "base/LogLine.h"
#include "platform/Thread.h"
#include "sync/SyncBuffer.h"

namespace VELMORA {

using ZENNO::LogLine;

void SyncBuffer::waitForSpace(std::uint32_t millis) {
    std::unique_lock lock(spaceMutex);
    spaceReady.wait_for(lock, std::chrono::milliseconds(millis));
}

void SyncBuffer::wakeBufferWorker() {
    { const std::lock_guard lock(spaceMutex); }
    spaceReady.notify_all();
}

// How long a full ring may be left alone. Who takes a block wakes us, without the mutex; were that
// missed, this is what it costs, a small part of what the ring holds besides.
std::uint32_t SyncBuffer::patienceMillis() const noexcept {
    const std::uint64_t bytesPerSecond = underrunBytes() * 100;
    if (bytesPerSecond == 0 || ring.size() < 3) return 1;
    const std::uint64_t spare = (ring.size() - 2) * blockBytes;
    return static_cast<std::uint32_t>(
        std::clamp<std::uint64_t>(spare * 1000 / bytesPerSecond / 3, 1, 20));
}

void SyncBuffer::fillStream(Bytes&, bool) {}

std::uint64_t SyncBuffer::waitFreeSlot(bool& aborted) {
    aborted = false;
    const std::uint64_t slot = writeSlot.load(std::memory_order_relaxed);
    const std::uint64_t after = next(slot);
    const auto isFree = [&] { return after != readSlot.load(std::memory_order_acquire); };
    if (isFree()) return slot;
    const std::uint32_t patience = patienceMillis();
    const auto isOver = [&] {
        return !is_connect() || preDisconnect.load(std::memory_order_acquire) ||
               stopRequested.load(std::memory_order_acquire);
    };
    for (;;) {
        {
            // Asked under the mutex: what a control thread says is not missed on the way.
            std::unique_lock lock(spaceMutex);
            if (!isOver() && !isFree()) {
                spaceReady.wait_for(lock, std::chrono::milliseconds(patience));
            }
        }
        if (isOver()) {
            aborted = true;
            return slot;
        }
        if (isFree()) return slot;
    }
}

bool SyncBuffer::startBufferWorker() {
    if (bufferWorker.joinable()) std::terminate();  // before a second producer runs
    bufferWorker = std::thread([this] {
        ZENNO::platform::setThreadPriority(ZENNO::platform::Priority::highest);
        runBufferWorker();
    });
    return true;
}

void SyncBuffer::runBufferWorker() {
    bool kickPassed = false;  // a kick went to fillStream in this burst of fills
    while (is_connect() && !preDisconnect.load(std::memory_order_acquire)) {
        if (stopRequested.load(std::memory_order_acquire)) {
            waitForSpace(10);
            continue;
        }
        bool aborted = false;
        const std::uint64_t slot = waitFreeSlot(aborted);
        if (aborted) continue;

        Bytes& block = ring[slot];
        // appendBlock and pushBlock take blocks of any size; fillStream writes blockBytes.
        if (block.size() != blockBytes) block.resize(blockBytes);
        const bool kicked = fillKick.exchange(false, std::memory_order_acq_rel);
        fillStream(block, kicked && !kickPassed);
        kickPassed = kickPassed || kicked;
        advanceWriteSlot();
        if (!hasFreeSlot()) kickPassed = false;
    }

    // From here stop finds its answer, and the thread stays until the session is over.
    stopRequested.store(true, std::memory_order_release);
    stopped.store(true, std::memory_order_release);
    LogLine(6) << "finish BufferWorker";
    while (is_connect()) waitForSpace(1);
    LogLine(6) << "done BufferWorker";
}

}  // namespace VELMORA
