#include "bench/BareLoop.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "bench/CacheMisses.h"
#include "bench/Stamp.h"
#include "sync/PacketRing.h"
#include "sync/TransferProfile.h"
#include "wire/StreamMessage.h"

namespace velmora_bench {

BareLoop::BareLoop(const Shape& shape, Wait wait, const sockaddr_in6& to)
    : wait_(wait), to_(to), socket_(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    // The rows alone: what the product would send.
    VELMORA::TransferConfig sized;
    sized.config = shape.config();
    sized.PackDataSize = 1428;
    sized.PackDataCount = 10;
    cycle_ = shape.cycle;
    if (!sized.trialFix(cycle_, 0) || socket_ < 0) throw std::runtime_error("no bare loop");
    count_ = sized.packetCount;
    const std::size_t payload = (sized.framesQ14 >> 14) * sized.frameBytes();
    VELMORA::TransferProfile row;
    row.cycle = cycle_;
    row.packetCount = count_;
    packets_.resize(VELMORA::PacketRing::sizeFor(row));
    for (std::size_t i = 0; i < packets_.size(); ++i) {
        packets_[i].assign(VELMORA::wire::packetBytes(payload), static_cast<std::uint8_t>(i));
        VELMORA::wire::writeStreamHeader(
            packets_[i], {.flags = 0, .sequence = static_cast<std::uint16_t>(i)}, payload);
    }
}

BareLoop::~BareLoop() {
    ::close(socket_);
}

void BareLoop::run(double seconds) {
    const std::int64_t cycle = std::int64_t{cycle_} * 1000;
    begin_ = clockNanos(CLOCK_MONOTONIC);
    const std::int64_t end = begin_ + static_cast<std::int64_t>(seconds * 1e9);
    std::int64_t deadline = begin_;
    for (std::int64_t now = begin_; now < end;) {
        sendBurst();
        deadline += cycle;
        now = clockNanos(CLOCK_MONOTONIC);
        while (now < deadline) {
            waitFor(deadline - now);
            now = clockNanos(CLOCK_MONOTONIC);
        }
        // As the product: who comes a whole cycle late begins a new grid.
        if (now >= deadline + cycle) deadline = now;
    }
}

void BareLoop::sendBurst() {
    for (std::uint16_t i = 1; i <= count_; ++i) {
        ZENNO::Bytes& packet = packets_[next_++ % packets_.size()];
        VELMORA::wire::rewriteStreamFlags(
            packet, i == count_ ? VELMORA::wire::STREAM_DATA::lastOfBurst : std::uint16_t{0});
        ::sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
                 sizeof to_);
    }
}

void BareLoop::waitFor(std::int64_t nanos) const {
    constexpr std::int64_t shortWait = 100'000;
    if (wait_ == Wait::polling) return;
    if (wait_ == Wait::selectThenPoll) nanos -= shortWait;
    if (nanos <= 0) return;
    fd_set set;  // nothing ever comes on this socket
    FD_ZERO(&set);
    FD_SET(socket_, &set);
    timeval time{0, static_cast<suseconds_t>((nanos + 999) / 1000)};
    ::select(socket_ + 1, &set, nullptr, nullptr, &time);
}

Run runBare(const Shape& shape, Wait wait, const Scheduling& scheduling, double seconds,
            const std::string& space) {
    Receiver receiver(space);
    BareLoop loop(shape, wait, receiver.address());
    Run run;
    run.cycle = loop.cycle();
    std::thread([&] {
        if (scheduling.isSet) scheduling.apply();
        run.scheduling = Scheduling::ofThisThread();
        CacheMisses misses;
        misses.openForThisThread();
        const std::int64_t begin = clockNanos(CLOCK_MONOTONIC);
        const std::int64_t cpu = clockNanos(CLOCK_THREAD_CPUTIME_ID);
        loop.run(seconds);
        run.workerCpu = static_cast<double>(clockNanos(CLOCK_THREAD_CPUTIME_ID) - cpu) * 1e-9;
        run.seconds = static_cast<double>(clockNanos(CLOCK_MONOTONIC) - begin) * 1e-9;
        run.cacheMisses = misses.read();
    }).join();
    run.processCpu = run.workerCpu;
    run.secondDue = loop.secondDueNanos() + stampOffsetNanos();
    run.seen = receiver.finish();
    return run;
}

}  // namespace velmora_bench
