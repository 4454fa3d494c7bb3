#include "find/Watch.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "base/LogLine.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::Bytes;
using ZENNO::IPAddress;
using ZENNO::LogLine;

constexpr std::uint32_t startupLimit = 120'000'000;  // µs; the longest search for a first answer
constexpr std::uint64_t startupSleep = 1'000'000;    // µs between two tries of it
constexpr std::uint32_t listenWait = 1'000'000;      // µs; so often a stop is seen
constexpr std::uint32_t quietLimit = 30'000'000;  // µs to the first check, and to a target's ping
constexpr std::uint32_t passLimit = 120'000'000;  // µs of listening
constexpr int pingTries = 3;
// What forged senders could make of a step: past it the rest waits for the next pass.
constexpr std::uint32_t stepLimit = 60'000'000;  // µs
constexpr std::uint8_t findMode = 1;             // in the multicast FIND_REQ: the watch asks
constexpr std::size_t longestInLog = 300;        // bytes of a datagram that is logged whole
constexpr std::uint32_t scopeBits = 0xffff;      // of a sender's scope that are looked at

std::string hexText(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    out.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 0xf];
    }
    return out;
}

}  // namespace

bool Watch::mayGoOn() const {
    return find_.running_.load(std::memory_order_acquire);
}

void Watch::run() {
    while (mayGoOn() && pass()) {
    }
}

bool Watch::pass() {
    FoundMap answers;
    if (!ask(answers)) return false;
    compare(answers);
    return update(answers) && listen(answers);
}

bool Watch::ask(FoundMap& answers) {
    if (!first_) return find_.findMulti(answers, findMode);
    first_ = false;
    return askUntilSomebodyAnswers(answers);
}

// At the start there may be no network yet. A stop is not looked for in here.
bool Watch::askUntilSomebodyAnswers(FoundMap& answers) {
    const TimeLimit limit(find_.environment_.clock(), startupLimit);
    while (!limit.passed()) {
        // Without an interface nothing else would tell that the socket has gone.
        if (!find_.socket_->isOpen()) return false;
        if (!find_.findMulti(answers, findMode)) return false;
        if (!answers.empty()) {
            // Once more, for those that were a little slower.
            if (!find_.findMulti(answers, findMode)) return false;
            LogLine(6) << "Startup mode finish";
            break;
        }
        LogLine(6) << "Startup mode retry";
        find_.environment_.clock().sleep(startupSleep);
    }
    return true;
}

// Who was there and has not answered: gone, or did the multicast get lost?
void Watch::compare(const FoundMap& answers) {
    const TimeLimit limit(find_.environment_.clock(), stepLimit);
    for (const IPAddress& address : known_) {
        if (limit.passed()) return;
        if (answers.contains(address) || isAlive(address, "retry 1", "lost 1")) continue;
        find_.removeTarget(address);
    }
}

bool Watch::isAlive(const IPAddress& address, const char* retry, const char* lost) {
    for (int i = 0; i < pingTries; ++i) {
        Bytes answer;
        if (find_.ask(address, wire::FIND_REQ{}, answer) == ackAccepted) {
            LogLine(6) << "can not lost: " << wire::readPacket(answer)->arg64();
            return true;
        }
        LogLine(6) << retry;
    }
    LogLine(6) << lost;
    return false;
}

bool Watch::update(const FoundMap& answers) {
    const TimeLimit limit(find_.environment_.clock(), stepLimit);
    known_.clear();
    for (const auto& [address, target] : answers) {
        if (limit.passed()) break;
        if (!find_.addTarget(address, target.product, target.name)) return false;
        known_.insert(address);
    }
    return true;
}

bool Watch::listen(const FoundMap& answers) {
    ZENNO::Clock& clock = find_.environment_.clock();
    Heard heard;
    bool notifyMode = false;  // who is silent is pinged from now on
    bool compared = false;    // `answers` with `heard`
    const std::uint32_t start = clock.now();
    while (mayGoOn()) {
        const Wait outcome = receive(heard);
        if (outcome == Wait::failed) return false;
        if (outcome == Wait::dropped) continue;
        const std::uint32_t elapsed = clock.now() - start;
        if (!notifyMode) {
            notifyMode = limitPassed(quietLimit, elapsed);
            continue;
        }
        if (!pingTheOld(heard)) {
            LogLine(6) << "exit notify mode alldown : " << find_.targetCount();
            return true;
        }
        if (!compared) {
            compared = true;
            // It answers polls and is not heard of: polling has to go on for its sake.
            if (std::any_of(answers.begin(), answers.end(),
                            [&](const auto& entry) { return !heard.contains(entry.first); })) {
                LogLine(6) << "exit notify mode nomuch : " << find_.targetCount();
                return true;
            }
        }
        if (limitPassed(passLimit, clock.now() - start)) {
            LogLine(6) << "exit time mode : " << find_.targetCount();
            return true;
        }
    }
    return true;
}

// Behind a datagram that was dropped the time is not looked at.
Watch::Wait Watch::receive(Heard& heard) {
    ZENNO::Link& socket = *find_.notifySocket_;
    const int ready = socket.waitReadable(listenWait);
    if (ready == ZENNO::waitTimedOut) return Wait::silent;
    Bytes datagram;
    IPAddress sender;
    if (ready != ZENNO::waitReady || !socket.receiveFrom(datagram, sender)) return Wait::failed;
    sender.scope &= scopeBits;
    if (datagram.empty()) return Wait::dropped;
    if (ZENNO::logLevelEnabled(7) && datagram.size() <= longestInLog) {
        LogLine(7) << sender.text() << " " << sender.scope << " " << hexText(datagram);
    }
    if (!isOnWatchedInterface(sender)) return Wait::dropped;
    const auto packet = wire::readPacket(datagram);
    if (!packet) {
        LogLine(7) << "Receive Data Err:" << static_cast<std::int64_t>(datagram.size());
        return Wait::dropped;
    }
    const bool isNotify = packet->id() == wire::NOTIFY::id;
    return !isNotify || onNotify(heard, sender, packet->arg16(8)) ? Wait::taken : Wait::failed;
}

bool Watch::isOnWatchedInterface(const IPAddress& sender) const {
    const auto& watched = find_.interfaces_;
    return watched.empty() ||
           std::any_of(watched.begin(), watched.end(),
                       [&](const IPAddress& entry) { return entry.scope == sender.scope; });
}

bool Watch::onNotify(Heard& heard, const IPAddress& sender, std::uint16_t word) {
    if (heard.size() >= mostAnswers && !heard.contains(sender)) return true;
    HeardEntry& entry = heard[sender];
    const bool isNew = !entry.active;
    // A repeated word is as good as silence.
    if (!isNew && word == entry.word) return true;
    entry.active = true;
    entry.word = word;
    entry.time = find_.environment_.clock().now();
    // Word 0: the target has started anew, and may be another one by now.
    if (isNew || word == 0) {
        if (!find_.identify(sender, entry.product, entry.name)) return false;
    }
    if (isNew) known_.insert(sender);
    return entry.product == refusedProduct || find_.addTarget(sender, entry.product, entry.name);
}

// Whether anybody of `heard` is alive. Who was lost is asked again each time, until the pass ends.
bool Watch::pingTheOld(Heard& heard) {
    ZENNO::Clock& clock = find_.environment_.clock();
    const TimeLimit limit(clock, stepLimit);
    bool anyAlive = false;
    for (auto& [address, entry] : heard) {
        if (limitPassed(quietLimit, clock.now() - entry.time) && !limit.passed()) {
            if (isAlive(address, "retry 2", "lost 2")) {
                entry.time = clock.now();
            } else {
                entry.active = false;
                find_.removeTarget(address);
                known_.erase(address);
            }
        }
        anyAlive = anyAlive || entry.active;
    }
    return anyAlive;
}

// ---- the owner's side ----

void Find::startWatch() {
    stopWatch();
    joinWatch();
    running_.store(true, std::memory_order_release);
    try {
        watch_ = std::thread([this] {
            try {
                watchTargets();
            } catch (const std::exception&) {
                // No memory: it ends as it does where a socket fails.
            }
            running_.store(false, std::memory_order_release);
        });
    } catch (...) {
        running_.store(false, std::memory_order_release);
        throw;
    }
}

void Find::stopWatch() {
    running_.store(false, std::memory_order_release);
}

void Find::joinWatch() {
    if (watch_.joinable()) watch_.join();
}

bool Find::isWatching() const {
    return running_.load(std::memory_order_acquire);
}

void Find::watchTargets() {
    Watch(*this).run();
}

}  // namespace VELMORA
