// A stream session with a ring of audio blocks between whoever makes the audio and the stream
// worker.
//
//      producer: buffer worker                      consumer: stream worker
//      waitFreeSlot, fillStream, advance            getNewStream ... getNewStreamDone
//
//            writeSlot                         readSlot
//                v                                v
//      | lent | free | free | block | block | ...
//
// The slots between readSlot and writeSlot are full. One slot always stays out of the producer's
// reach: it is the block that the consumer was lent last, and still reads. Positions are equal in
// an empty ring; in a full one writeSlot stands right before readSlot.
//
// The ring starts full of silence. A consumer that finds it empty is given mute data and never
// waits.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "base/BufferCS.h"
#include "sync/Sync.h"

namespace VELMORA {

// What one worker writes at every turn lies on no line of the cache with what the other one reads.
constexpr std::size_t cacheLine = 64;

class SyncBuffer : public Sync {
public:
    using Bytes = ZENNO::Bytes;

    using Sync::Sync;
    // Ends the session. A class that overrides fillStream calls closeSession in its own destructor:
    // by now its part of the object is gone, and the buffer worker may still be filling.
    ~SyncBuffer() override;

    // The virtual table goes on: these two stand in the first places, startWorker is Sync's own.
    bool getNewStream(StreamRef& out) override;  // stream worker
    bool getNewStreamDone() override;            // stream worker

    // Buffer worker: fills `block`, all blockBytes of it, without resizing it; may block as long as
    // the host does. `kicked`: the first fill of this burst that answers a getNewStreamDone.
    virtual void fillStream(Bytes& block, bool kicked);
    // True, or std::system_error where no thread can be made. Starting it twice without a join is a
    // fault that ends the process.
    virtual bool startBufferWorker();

    // Before the workers run: `count` blocks of silence, `frames` frames of hostFormat each. Throws
    // std::bad_alloc or std::length_error for more than there is, and leaves an empty ring.
    void setupBuffers(std::uint64_t frames, std::uint64_t count);
    void appendBlock(ZENNO::BufferCS_const data);  // before the workers run: one more slot

    // Sync::connect, then the buffer worker.
    bool connect();
    void clearStopFlags() noexcept;  // preDisconnect, stopRequested, stopped
    void play();
    void stop();  // blocks until the ring is drained
    void pre_disconnect();
    void disconnect();
    // For a caller on the buffer worker itself: ends the stream, and leaves this worker's end to a
    // later disconnect on another thread.
    void disconnectOnBufferWorker();
    void closeSession();

    // Producer.
    std::uint64_t waitFreeSlot(bool& aborted);   // writeSlot; aborted: it may not be filled
    void pushBlock(ZENNO::BufferCS_const data);  // for a producer that is not the buffer worker
    bool hasFreeSlot() const noexcept;

    // Any thread; what a moving ring had a moment ago.
    bool isEmpty() const noexcept;
    std::uint64_t blockCount() const noexcept;  // unread blocks

    // Stops the engine if it plays, then skips `delta` blocks, or goes back so many, as far as the
    // ring reaches.
    void seekStream(std::int64_t delta);

    std::uint64_t blockBytes = 0;          // written by setupBuffers alone
    std::atomic<bool> waitForData{false};  // an empty ring makes getNewStream wait; nobody sets it
    // Control thread sets and clears, both workers read: no more data for the consumer.
    std::atomic<bool> preDisconnect{false};
    // Control thread (stop) and buffer worker (its end) set, play clears, both workers read: no
    // more fills, and the ring drains.
    std::atomic<bool> stopRequested{false};
    // Stream worker (drained) and buffer worker (its end) set, play clears, stop waits for it.
    std::atomic<bool> stopped{false};
    // Stream worker sets, buffer worker takes.
    alignas(cacheLine) std::atomic<bool> fillKick{false};

private:
    std::uint64_t next(std::uint64_t slot) const noexcept;
    std::uint64_t previous(std::uint64_t slot) const noexcept;
    bool lendNextBlock(StreamRef& out) noexcept;
    bool lendSilence(Bytes& mute, std::uint64_t bytes, StreamRef& out);
    std::uint64_t underrunBytes() const noexcept;
    void advanceWriteSlot() noexcept;
    void waitForSpace(std::uint32_t millis);
    std::uint32_t patienceMillis() const noexcept;
    void wakeBufferWorker();  // a control thread's; no wait for a slot misses it
    void runBufferWorker();
    void endStream();  // the stream worker has ended when it returns

    // Sized before the workers run. The positions hand a slot's bytes over, stored with release and
    // loaded with acquire order: writeSlot the block just filled, readSlot the one that was lent
    // before the one now lent.
    alignas(cacheLine) std::vector<Bytes> ring;
    alignas(cacheLine) std::atomic<std::uint64_t> readSlot{0};   // stream worker (and seekStream)
    alignas(cacheLine) std::atomic<std::uint64_t> writeSlot{0};  // producer writes

    // Stream worker's, sized by setupBuffers. Each session has its own: a view of one is lent, and
    // another session must not resize it meanwhile.
    alignas(cacheLine) Bytes drainMute;  // a block
    Bytes underrunMute;                  // 10 ms

    std::thread bufferWorker;  // control thread starts and joins it

    // Every waiter looks again after 1 to 10 ms, so a wake-up that comes between its look and its
    // wait is not missed for long. So the stream worker takes no mutex to notify.
    std::mutex dataMutex, spaceMutex;
    std::condition_variable dataReady;   // a block was written, for a waitForData consumer
    std::condition_variable spaceReady;  // news for the buffer worker and for stop
};

}  // namespace VELMORA
