// What does a playing stream hold on the heap? The limit: the ring of packets sent in the last
// second, the ring of blocks, and 2 MiB.
#include <chrono>
#include <thread>

#include "bench/BenchStream.h"
#include "bench/Context.h"
#include "bench/Heap.h"
#include "sync/PacketRing.h"
#include "wire/Packet.h"

namespace velmora_bench {

std::vector<Row> benchMemory(Context& context) {
    constexpr double otherBytes = 2 << 20;
    context.progress.round(1, 1);
    const Shape shape{192000, 8, VELMORA::SinkConfig::pcm32};
    Receiver receiver(context.space);
    double held = 0, packets = 0, blocks = 0;
    {
        const std::int64_t before = heapBytes();
        WatchedEnvironment environment;
        BenchStream stream(environment);
        stream.prepare(shape, receiver.ipAddress());
        stream.begin();
        std::this_thread::sleep_for(std::chrono::duration<double>(context.secondsOr(1.0)));
        held = static_cast<double>(heapBytes() - before);
        packets = static_cast<double>(VELMORA::PacketRing::sizeFor(stream.profiles[0]) *
                                      VELMORA::wire::packetBytes(stream.maxPacketSize));
        blocks = static_cast<double>((BenchStream::blocks + 1) * stream.blockBytes);
    }
    receiver.finish();
    const double limit = packets + blocks + otherBytes;
    Figure figure{"", held / 1e6, limit / 1e6, held / limit, 1};
    figure.beside = {{"packets", packets / 1e6}, {"blocks", blocks / 1e6}};
    return {{"memory",
             "a playing stream",
             "MB",
             {figure},
             "on the heap, 192 kHz, 8 ch, 32 bits, 6 blocks of 512 frames; ring of sent packets "
             "plus ring of blocks plus 2 MiB"}};
}

}  // namespace velmora_bench
