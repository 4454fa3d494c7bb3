// One stream session with one target: negotiation, the real-time worker, and the end.
//
// The caller's order: open, getInfo, setStreamFormat, one configTransfer operation, connectPrepare,
// connect, connectWait, play ... stop, disconnect, close.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "base/BufferCS.h"
#include "base/IPAddress.h"
#include "driver/SinkConfig.h"
#include "src/Network/Environment.h"
#include "sync/Convert.h"
#include "sync/Machine.h"
#include "sync/StreamFormat.h"
#include "sync/StreamRef.h"
#include "sync/TargetLog.h"
#include "sync/TransferProfile.h"

namespace VELMORA {

class Sync {
public:
    enum State : std::uint32_t { Idle = 0, Connecting = 1, Connected = 2, Disconnecting = 3 };
    static constexpr bool isAlive(std::uint32_t state) noexcept {
        return state >= Connecting && state <= Disconnecting;
    }

    explicit Sync(ZENNO::Environment& environment);
    Sync(const Sync&) = delete;
    Sync& operator=(const Sync&) = delete;

    // The virtual table's first three, in this order.
    virtual bool getNewStream(
        StreamRef& out);              // stream worker; false: no audio came, or it has ended
    virtual bool getNewStreamDone();  // stream worker, after a turn in which blocks were fetched
    // False where the rows cannot be run; std::system_error where no thread can be made.
    virtual bool startWorker();
    virtual ~Sync();

    bool open(std::uint32_t threadMode, const std::uint32_t& infoCycle, std::uint16_t scope,
              const std::string& clientName, std::uint64_t productId);
    bool getInfo(const ZENNO::IPAddress& target, const std::uint32_t& latencyWanted, bool nopBreak);
    bool isSupported(SinkConfig format) const;
    bool setStreamFormat(SinkConfig format);  // false leaves format and conversion as they were
    bool connectPrepare();
    bool connect();
    bool connectWait();
    bool is_connect() const;
    void play();
    void stop();
    void disconnect();
    void close();
    bool checkAlive();
    bool checkPacketSize(const ZENNO::IPAddress& to, std::uint16_t& mtu);
    void totalLatency(std::uint32_t& micros) const;

    bool configTransferFix(std::uint32_t cycle, std::uint16_t count);
    bool configTransferFixAuto(std::uint32_t cycle);
    bool configTransferVar(std::uint32_t cycle, std::uint16_t count);
    bool configTransferVarAuto(std::uint32_t cycle);
    bool configTransferRandom(std::uint32_t cycleMin, std::uint32_t cycle, std::uint16_t count);
    // A row for a packet of `bytes`. False where no row can be made (a rate, a payload or a limit
    // of 0).
    bool configTransferVarASIO(std::uint32_t bytes);
    // False only where a search could not end.
    bool configTransferProfile(std::uint32_t limit, std::uint32_t cycle, std::uint32_t lowLimit);

    std::uint32_t cycle() const { return profiles[0].cycle; }
    std::uint32_t cycleMin() const { return profiles[0].cycleMin; }
    std::uint32_t cycleBytes() const { return profiles[0].packetCount * profiles[0].fixedBytes; }
    TransferConfig transferConfig() const;  // a copy, with the defaults of this session loaded

    // ---- what the session is made of; the driver and the tests read and set these by name ----
    CopyStream copyStream = convertCopy;       // stream worker's while it runs
    std::atomic<std::uint32_t> state{Idle};    // caller and worker write; both read
    std::atomic<std::uint8_t> playing{0};      // caller writes, worker reads
    std::atomic<std::uint8_t> phaseInvert{0};  // driver writes, worker reads at each feedback
    ZENNO::IPAddress target{};                 // control address
    SinkConfig sinkConfig{};
    SinkConfig hostFormat{};
    std::uint64_t pcmSupport = 0, dsdLsbSupport = 0, dsdMsbSupport = 0;
    std::uint16_t latency = 0, hwLatency = 0;  // 100 µs
    std::uint32_t threadMode = 0;              // ThreadMode flags
    std::uint32_t infoCycle = 0;               // µs between requests for INFO_ANS
    std::uint16_t maxPacketSize = 0, maxPacketCount = 0;
    std::array<TransferProfile, 10> profiles{};
    std::int32_t profileCount = 0;
    TransferConfig transfer{};
    std::uint8_t lowCpu = 0;
    std::string clientName;
    std::uint64_t productId = 0;

    // The rows that a stream can change between: the first, and those behind it that are set.
    std::span<const TransferProfile> rowsInUse() const noexcept {
        const auto count = static_cast<std::size_t>(std::max(profileCount, 1));
        return {profiles.data(), std::min(count, profiles.size())};
    }

    // ---- for tests ----
    // The machine whose cores, priorities and threads are used, from the next open or connect on.
    void setMachine(Machine& machine) noexcept { machine_ = &machine; }

protected:
    // ---- for SyncBuffer, on the caller's thread ----
    // Connected to Disconnecting; false, and nothing done, from any other state. A worker that
    // ends by itself at that very moment stays ended.
    bool enterDisconnecting() noexcept;
    void joinWorker();  // nothing where no worker has been started

    // ---- the worker's thread; a test runs them on its own ----
    void workerEntry() noexcept;  // fits the mode to the machine, places the thread, streams
    bool streamWorker();          // false: the stream failed

    ZENNO::Environment& environment_;
    // How long connectWait waits for the worker.
    std::chrono::milliseconds connectWaitLimit_{50000};

private:
    friend class StreamWorker;

    bool placeThread(bool high);
    // Whether the rows can be run at all: no time, no packet and no ring of 0,
    // and no ring beyond all measure.
    bool hasRunnableProfiles() const noexcept;
    bool storeProfile(bool found, std::size_t index = 0);
    // For the one change that somebody may wait for.
    void setStateAndNotify(State next);
    // CONNECT_ANS has come: Connecting to Connected. False where another party has ended it.
    bool enterConnected();
    ZENNO::Clock& clock() const noexcept { return environment_.clock(); }

    bool ask(const ZENNO::IPAddress& to, const ZENNO::Bytes& request, std::uint16_t answerId,
             ZENNO::Bytes& answer, std::uint32_t waitMicros);
    bool askSupport(const ZENNO::IPAddress& to, std::uint64_t selector, std::uint64_t& mask);
    bool readSupport(const ZENNO::IPAddress& to);
    bool readProfile(const ZENNO::IPAddress& to);
    bool readLatency(const ZENNO::IPAddress& to, const std::uint32_t& latencyWanted);
    void readDataSize(const ZENNO::IPAddress& to);
    void setPacketLimits(std::uint16_t mtu, std::uint16_t max) noexcept;

    Machine* machine_ = &systemMachine();
    std::unique_ptr<ZENNO::Link> socket_;  // the caller's until the worker starts, then the
                                           // worker's; closed by the caller
    TargetLog targetLog_;
    std::thread workerThread_;
    std::mutex stateMutex_;  // with stateChanged_: the wait of connectWait
    std::condition_variable stateChanged_;
};

}  // namespace VELMORA
