#include "sync/SyncBuffer.h"

#include <chrono>
#include <limits>
#include <stdexcept>

#include "base/LogLine.h"

namespace VELMORA {

using ZENNO::LogLine;

SyncBuffer::~SyncBuffer() {
    SyncBuffer::closeSession();
}

// ---- the ring ----

std::uint64_t SyncBuffer::next(std::uint64_t slot) const noexcept {
    return slot + 1 < ring.size() ? slot + 1 : 0;
}

std::uint64_t SyncBuffer::previous(std::uint64_t slot) const noexcept {
    if (slot != 0) return slot - 1;
    return ring.empty() ? 0 : ring.size() - 1;
}

void SyncBuffer::setupBuffers(std::uint64_t frames, std::uint64_t count) {
    // Empty until all is there. A ring of no slot or of one is empty and full at once: nobody
    // writes, and the consumer gets mute data.
    ring.clear();
    readSlot = 0;
    writeSlot = 0;
    blockBytes = 0;
    const std::uint64_t frame = hostFormat.frameBytes();
    if (frames > std::numeric_limits<std::uint64_t>::max() / frame || count >= ring.max_size()) {
        throw std::length_error("SyncBuffer::setupBuffers");
    }
    const std::uint64_t bytes = frame * frames;
    const std::uint8_t silence = silenceByte(hostFormat, /*inverted=*/false);
    drainMute.assign(bytes, silence);
    underrunMute.assign(underrunBytes(), silence);
    ring.assign(count + 1, Bytes(bytes, silence));
    blockBytes = bytes;
    readSlot = next(0);
    waitForData = false;
    fillKick = false;
}

void SyncBuffer::appendBlock(ZENNO::BufferCS_const data) {
    ring.emplace_back(data.data, data.data + data.size);
    writeSlot = 0;
    readSlot = next(0);
}

bool SyncBuffer::hasFreeSlot() const noexcept {
    return next(writeSlot.load(std::memory_order_acquire)) !=
           readSlot.load(std::memory_order_acquire);
}

bool SyncBuffer::isEmpty() const noexcept {
    return readSlot.load(std::memory_order_acquire) == writeSlot.load(std::memory_order_acquire);
}

std::uint64_t SyncBuffer::blockCount() const noexcept {
    const std::uint64_t read = readSlot.load(std::memory_order_acquire);
    const std::uint64_t write = writeSlot.load(std::memory_order_acquire);
    return write >= read ? write - read : write + ring.size() - read;
}

void SyncBuffer::advanceWriteSlot() noexcept {
    const std::uint64_t slot = writeSlot.load(std::memory_order_relaxed);
    writeSlot.store(next(slot), std::memory_order_release);
    if (waitForData.load(std::memory_order_acquire)) dataReady.notify_all();
}

void SyncBuffer::pushBlock(ZENNO::BufferCS_const data) {
    bool aborted = false;
    const std::uint64_t slot = waitFreeSlot(aborted);
    if (aborted) return;
    ring[slot].assign(data.data, data.data + data.size);
    advanceWriteSlot();
}

void SyncBuffer::seekStream(std::int64_t delta) {
    if (playing.load() != 0) {
        Sync::stop();
        environment_.clock().sleep(100'000);
    }
    // A step is taken only while it stays inside the ring: forward to its end, back to where one
    // step more would meet the producer.
    const std::uint64_t end = writeSlot.load(std::memory_order_acquire);
    std::uint64_t slot = readSlot.load(std::memory_order_acquire);
    for (; delta > 0 && slot != end; --delta) slot = next(slot);
    for (; delta < 0 && slot != next(end); ++delta) slot = previous(slot);
    readSlot.store(slot, std::memory_order_release);
}

// ---- supply, on the stream worker ----

bool SyncBuffer::lendNextBlock(StreamRef& out) noexcept {
    const std::uint64_t slot = readSlot.load(std::memory_order_relaxed);
    if (slot == writeSlot.load(std::memory_order_acquire)) return false;
    const Bytes& block = ring[slot];
    out = {block.data(), block.size()};
    // Gives back the block lent before, not this one.
    readSlot.store(next(slot), std::memory_order_release);
    return true;
}

// An empty block would be asked for again at once, and so for ever: where there is nothing to lend,
// the stream ends.
bool SyncBuffer::lendSilence(Bytes& mute, std::uint64_t bytes, StreamRef& out) {
    mute.assign(bytes, silenceByte(hostFormat, /*inverted=*/false));
    out = {mute.data(), mute.size()};
    return bytes != 0;
}

// 10 ms. The product has 32 bits.
std::uint64_t SyncBuffer::underrunBytes() const noexcept {
    const std::uint32_t bitsPerSecond =
        hostFormat.bitsPerSample() * hostFormat.channels() * hostFormat.rate();
    return (bitsPerSecond >> 3) / 100;
}

bool SyncBuffer::getNewStream(StreamRef& out) {
    // What the ring still holds comes before every flag, and the end before silence.
    while (!lendNextBlock(out)) {
        if (preDisconnect.load(std::memory_order_acquire)) {
            out = {};
            return false;
        }
        if (stopRequested.load(std::memory_order_acquire)) {
            if (!stopped.exchange(true, std::memory_order_acq_rel)) spaceReady.notify_all();
            return lendSilence(drainMute, blockBytes, out);
        }
        if (!waitForData.load(std::memory_order_acquire)) {
            spaceReady.notify_all();  // the buffer worker looks at the ring at once
            const bool lent = lendSilence(underrunMute, underrunBytes(), out);
            LogLine(4) << "SyncBuffer not enough mute data return " << out.size;
            return lent;
        }
        const std::uint32_t before = environment_.clock().now();
        {
            std::unique_lock lock(dataMutex);
            if (dataReady.wait_for(lock, std::chrono::milliseconds(10)) ==
                std::cv_status::timeout) {
                LogLine(4) << "SyncBuffer not enough Timeout";
                return false;
            }
        }
        LogLine(4) << "SyncBuffer not enough " << (environment_.clock().now() - before) / 1000;
    }
    return true;
}

bool SyncBuffer::getNewStreamDone() {
    fillKick.store(true, std::memory_order_release);
    spaceReady.notify_all();
    return true;
}

// ---- control ----

bool SyncBuffer::connect() {
    if (!Sync::connect()) return false;
    clearStopFlags();
    if (!startBufferWorker()) {
        LogLine(3) << "Buffer Worker Start Error";
        closeSession();
        return false;
    }
    return true;
}

void SyncBuffer::clearStopFlags() noexcept {
    preDisconnect.store(false, std::memory_order_release);
    stopRequested.store(false, std::memory_order_release);
    stopped.store(false, std::memory_order_release);
}

void SyncBuffer::play() {
    LogLine(6) << "SyncBuffer::play";
    clearStopFlags();
    Sync::play();
    wakeBufferWorker();
}

void SyncBuffer::stop() {
    LogLine(6) << "SyncBuffer::stop";
    stopRequested.store(true, std::memory_order_release);
    wakeBufferWorker();
    while (!stopped.load(std::memory_order_acquire)) {
        // Of a session that does not play nobody takes blocks, and without a session it is the
        // buffer worker alone that could say so.
        const bool somebodyWill =
            is_connect() ? playing.load(std::memory_order_acquire) != 0 : bufferWorker.joinable();
        if (!somebodyWill) break;
        waitForSpace(1);
    }
    Sync::stop();
}

void SyncBuffer::pre_disconnect() {
    LogLine(6) << "SyncBuffer::pre_disconnect";
    preDisconnect.store(true, std::memory_order_release);
    wakeBufferWorker();
}

// The state first: the end of the audio, seen by a stream that does not know of its end, would
// count as its failure.
void SyncBuffer::endStream() {
    const bool ends = enterDisconnecting();
    preDisconnect.store(true, std::memory_order_release);
    wakeBufferWorker();
    if (!ends) return;
    joinWorker();
    LogLine(6) << "discone";
}

void SyncBuffer::disconnectOnBufferWorker() {
    LogLine(6) << "SyncBuffer::pre_disconnect";
    endStream();
}

void SyncBuffer::disconnect() {
    LogLine(6) << "SyncBuffer::pre_disconnect";
    LogLine(6) << "SyncBuffer::disconnect";
    endStream();
    // A session that is still connecting would keep the buffer worker: it is ended as soon as it
    // has connected.
    while (bufferWorker.joinable() && is_connect()) {
        Sync::disconnect();
        if (is_connect()) waitForSpace(1);
    }
    if (bufferWorker.joinable()) bufferWorker.join();
}

void SyncBuffer::closeSession() {
    Sync::close();
    // The stream worker has ended, and said so; a session whose worker never began would keep the
    // buffer worker, which lives as long as the session does.
    state.store(Idle, std::memory_order_release);
    wakeBufferWorker();
    if (bufferWorker.joinable()) bufferWorker.join();
}

}  // namespace VELMORA
