#include "tests/driver/MovedWorld.h"

#include <chrono>
#include <utility>

#include "wire/Packet.h"
#include "wire/StreamMessage.h"

namespace velmora_test {

namespace wire = VELMORA::wire;

// ---- the network ----

class SharedNetwork::SharedClock final : public ZENNO::Clock {
public:
    explicit SharedClock(SharedNetwork& owner) : owner_(owner) {}
    std::uint32_t now() noexcept override {
        const std::lock_guard lock(owner_.mutex_);
        return owner_.network_.time.now();
    }
    void sleep(std::uint64_t micros) override {
        const std::lock_guard lock(owner_.mutex_);
        owner_.network_.time.sleep(micros);
    }
    void yield() noexcept override {
        const std::lock_guard lock(owner_.mutex_);
        owner_.network_.time.yield();
    }

private:
    SharedNetwork& owner_;
};

class SharedNetwork::SharedLink final : public ZENNO::Link {
public:
    explicit SharedLink(SharedNetwork& owner) : owner_(owner) {
        const std::lock_guard lock(owner_.mutex_);
        inner_ = owner_.network_.makeLink();
    }
    ~SharedLink() override {
        const std::lock_guard lock(owner_.mutex_);
        inner_.reset();
    }
    bool open(ZENNO::SocketKind kind) override {
        const std::lock_guard lock(owner_.mutex_);
        return settle(inner_->open(kind));
    }
    void close() override {
        const std::lock_guard lock(owner_.mutex_);
        inner_->close();
    }
    bool isOpen() const override {
        const std::lock_guard lock(owner_.mutex_);
        return inner_->isOpen();
    }
    bool bindV6(IPAddress& address) override {
        const std::lock_guard lock(owner_.mutex_);
        const bool bound = settle(inner_->bindV6(address));
        fixedScope_ = inner_->fixedScope();
        return bound;
    }
    bool joinV6(const IPAddress& group) override {
        const std::lock_guard lock(owner_.mutex_);
        return inner_->joinV6(group);
    }
    bool setBlocking(bool on) override {
        const std::lock_guard lock(owner_.mutex_);
        return settle(inner_->setBlocking(on));
    }
    int waitReadable(std::uint32_t micros) override {
        int result = ZENNO::waitError;
        {
            const std::lock_guard lock(owner_.mutex_);
            result = inner_->waitReadable(micros);
        }
        // Time has been moved at no cost: whoever else has something to do may do it now.
        if (result == ZENNO::waitTimedOut) std::this_thread::yield();
        return result;
    }
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override {
        const std::lock_guard lock(owner_.mutex_);
        return inner_->receiveFrom(buffer, length, from);
    }
    using Link::receiveFrom;
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to,
                          bool retried) noexcept override {
        const std::lock_guard lock(owner_.mutex_);
        const std::int64_t sent = inner_->sendOnce(data, to, retried);
        settle(true);
        // A stream would fill the memory with what it has sent.
        if (owner_.network_.sent.size() > 256) owner_.network_.clearSent();
        return sent;
    }

private:
    // What is Link's own, as the inner one has it.
    bool settle(bool result) noexcept {
        blocking_ = inner_->isBlocking();
        lastError_ = inner_->lastError();
        return result;
    }

    SharedNetwork& owner_;
    std::unique_ptr<ZENNO::Link> inner_;
};

SharedNetwork::SharedNetwork() : clock_(std::make_unique<SharedClock>(*this)) {
    network_.time.tickPerRead = 1;  // who polls the clock gets on
    network_.time.yieldCost = 1;
}

SharedNetwork::~SharedNetwork() = default;

ZENNO::Clock& SharedNetwork::clock() noexcept {
    return *clock_;
}

std::unique_ptr<ZENNO::Link> SharedNetwork::makeLink() {
    return std::make_unique<SharedLink>(*this);
}

bool SharedNetwork::localAddressesV6(ZENNO::LocalInterfaceMap& out) {
    const std::lock_guard lock(mutex_);
    return network_.localAddressesV6(out);
}

// ---- the target ----

// One of its addresses.
class MovedTarget::Port final : public Peer {
public:
    Port(const IPAddress& address, MovedTarget& owner) : address_(address), owner_(owner) {}

    void onDatagram(FakeNetwork& network, const Datagram& datagram) override {
        if (owner_.isSilent) return;
        const auto packet = wire::readPacket(datagram.data);
        if (packet && packet->id() == wire::STREAM_DATA::id && owner_.onAudio) {
            owner_.onAudio(packet->payload());
        }
        for (Bytes& answer : owner_.target.answer(datagram.data)) {
            network.send(address_, datagram.from, std::move(answer));
        }
    }

    const IPAddress& address() const { return address_; }

private:
    IPAddress address_;
    MovedTarget& owner_;
};

MovedTarget::MovedTarget(SharedNetwork& network, const IPAddress& address)
    : target(address), network_(network) {
    target.keepsAudio = false;
    network_.alone([this](FakeNetwork& all) {
        for (const IPAddress& at : target.addresses()) {
            ports_.push_back(std::make_unique<Port>(at, *this));
            all.attach(at, ports_.back().get());
        }
    });
}

MovedTarget::~MovedTarget() {
    network_.alone([this](FakeNetwork& all) {
        for (const auto& port : ports_) all.attach(port->address(), nullptr);
    });
}

// ---- the host ----

namespace {
std::array<NumberedHost*, NumberedHost::most> hosts{};
}  // namespace

struct NumberedHost::Entries {
    template <std::size_t number>
    static void bufferSwitch(std::int32_t half, ASIOBool) {
        hosts[number]->switched(half);
    }
    template <std::size_t number>
    static void sampleRateDidChange(double) {
        ++hosts[number]->rateChanges;
    }
    template <std::size_t number>
    static std::int32_t asioMessage(std::int32_t selector, std::int32_t, void*, double*) {
        ++hosts[number]->questions;
        return selector == kAsioSupportsTimeInfo ? hosts[number]->supportsTimeInfo : 0;
    }
    template <std::size_t number>
    static ASIOTime* bufferSwitchTimeInfo(ASIOTime*, std::int32_t half, ASIOBool) {
        hosts[number]->switched(half);
        return nullptr;
    }
    template <std::size_t number>
    static constexpr ASIOCallbacks table{bufferSwitch<number>, sampleRateDidChange<number>,
                                         asioMessage<number>, bufferSwitchTimeInfo<number>};
};

NumberedHost::NumberedHost(std::size_t number) : number_(number) {
    hosts[number_] = this;
}

NumberedHost::~NumberedHost() {
    hosts[number_] = nullptr;
}

ASIOCallbacks NumberedHost::callbacks() const {
    return number_ == 0 ? Entries::table<0> : Entries::table<1>;
}

void NumberedHost::switched(std::int32_t half) {
    if (onSwitch) onSwitch(half);
    {
        const std::lock_guard lock(mutex_);
        ++switches_;
    }
    changed_.notify_all();
}

int NumberedHost::switches() const {
    const std::lock_guard lock(mutex_);
    return switches_;
}

bool NumberedHost::waitForSwitches(int count) {
    std::unique_lock lock(mutex_);
    // The system clock: the one whose waits the thread sanitizer of GCC 12 follows.
    const auto end = std::chrono::system_clock::now() + std::chrono::seconds(60);
    return changed_.wait_until(lock, end, [&] { return switches_ >= count; });
}

}  // namespace velmora_test
