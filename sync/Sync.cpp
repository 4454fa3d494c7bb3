#include "sync/Sync.h"

#include <exception>

#include "base/LogLine.h"
#include "sync/ThreadMode.h"

namespace VELMORA {

using ZENNO::LogLine;

namespace {

constexpr std::uint32_t releaseNumber = 112;
constexpr std::uint64_t streamReaderSize = 4096;

}  // namespace

Sync::Sync(ZENNO::Environment& environment)
    : environment_(environment), socket_(environment.makeLink()), targetLog_(environment) {
    transfer.cycle = 1000000;
    transfer.packetCount = 1;
}

Sync::~Sync() {
    close();
}

bool Sync::getNewStream(StreamRef&) {
    LogLine(3) << "getNewStream not set err";
    return false;
}

bool Sync::getNewStreamDone() {
    return true;
}

bool Sync::open(std::uint32_t mode, const std::uint32_t& infoMicros, std::uint16_t scope,
                const std::string& client, std::uint64_t product) {
    LogLine(6) << "Velmora Sync Library ReleaseNo : " << releaseNumber << " [" << scope << "]";
    // A second opening finds the log thread of the first one still running, or a worker.
    close();

    phaseInvert.store(0, std::memory_order_release);
    threadMode = mode;
    infoCycle = infoMicros;
    socket_->readerSize = streamReaderSize;

    ZENNO::IPAddress local;
    local.scope = scope;
    if (!socket_->open(ZENNO::SocketKind::udpV6) || !socket_->bindV6(local)) return false;
    if ((threadMode & SOCKETNOBLOCK) != 0 && !socket_->setBlocking(false)) return false;

    maxPacketSize = 1428;
    maxPacketCount = 10;
    clientName = client;
    productId = product;
    state.store(Idle, std::memory_order_release);
    playing.store(0, std::memory_order_release);

    if (!targetLog_.open(scope)) return false;
    targetLog_.start(*machine_);
    return true;
}

bool Sync::isSupported(SinkConfig format) const {
    return SupportMasks{pcmSupport, dsdLsbSupport, dsdMsbSupport}.isSupported(format);
}

bool Sync::setStreamFormat(SinkConfig format) {
    const auto chosen = chooseStreamFormat(format, {pcmSupport, dsdLsbSupport, dsdMsbSupport});
    if (!chosen) return false;
    copyStream = chosen->copyStream;
    sinkConfig = chosen->sinkConfig;
    hostFormat = chosen->hostFormat;
    return true;
}

bool Sync::connect() {
    state.store(Idle, std::memory_order_release);
    joinWorker();
    if (!sinkConfig.isValid()) {
        LogLine(3) << "sinkConfig invalid";
        return false;
    }
    playing.store(0, std::memory_order_release);
    state.store(Connecting, std::memory_order_release);

    // A refused thread comes as an exception. The host must not meet it, so it ends here.
    bool started = false;
    try {
        started = startWorker();
    } catch (const std::exception&) {
    }
    if (!started) {
        LogLine(3) << "Sync Worker Start Error";
        close();
        state.store(Idle, std::memory_order_release);
    }
    return started;
}

bool Sync::connectWait() {
    const std::uint32_t before = state.load(std::memory_order_acquire);
    if (before != Connecting && before != Connected) return false;
    bool left = false;
    {
        std::unique_lock lock(stateMutex_);
        left = stateChanged_.wait_for(lock, connectWaitLimit_, [this] {
            return state.load(std::memory_order_acquire) != Connecting;
        });
    }
    LogLine(6) << (left ? "connectWait notimeout" : "connectWait timeout");
    LogLine(6) << "connectWait " << state.load(std::memory_order_acquire);
    return true;
}

bool Sync::is_connect() const {
    return isAlive(state.load(std::memory_order_acquire));
}

void Sync::play() {
    playing.store(1, std::memory_order_release);
    LogLine(6) << "play " << state.load(std::memory_order_acquire);
}

void Sync::stop() {
    playing.store(0, std::memory_order_release);
    LogLine(6) << "stop " << state.load(std::memory_order_acquire);
}

void Sync::disconnect() {
    if (!enterDisconnecting()) return;
    joinWorker();
    LogLine(6) << "discone";
}

void Sync::close() {
    // The sockets first: their end is what wakes the two threads.
    socket_->close();
    targetLog_.closeSocket();
    joinWorker();
    targetLog_.join();
}

bool Sync::enterDisconnecting() noexcept {
    std::uint32_t expected = Connected;
    return state.compare_exchange_strong(expected, Disconnecting, std::memory_order_acq_rel);
}

void Sync::joinWorker() {
    if (workerThread_.joinable()) workerThread_.join();
}

void Sync::setStateAndNotify(State next) {
    {
        const std::lock_guard lock(stateMutex_);
        state.store(next, std::memory_order_release);
    }
    stateChanged_.notify_all();
}

bool Sync::enterConnected() {
    std::uint32_t expected = Connecting;
    bool entered = false;
    {
        const std::lock_guard lock(stateMutex_);
        entered = state.compare_exchange_strong(expected, Connected, std::memory_order_acq_rel);
    }
    stateChanged_.notify_all();
    return entered;
}

}  // namespace VELMORA
