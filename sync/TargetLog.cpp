#include "sync/TargetLog.h"

#include <exception>

#include "base/LogLine.h"
#include "sync/StreamExchange.h"
#include "wire/StreamMessage.h"

namespace VELMORA {

using ZENNO::logLevelEnabled;
using ZENNO::LogLine;

TargetLog::TargetLog(ZENNO::Environment& environment)
    : clock_(environment.clock()), logSocket_(environment.makeLink()) {}

TargetLog::~TargetLog() {
    closeSocket();
    join();
}

bool TargetLog::open(std::uint16_t scope) {
    ZENNO::IPAddress local;
    local.scope = scope;
    return logSocket_->open(ZENNO::SocketKind::udpV6) && logSocket_->bindV6(local);
}

void TargetLog::start(Machine& machine) {
    logRequest_.store(0, std::memory_order_release);
    if (!logLevelEnabled(6)) return;
    try {
        logThread_ = machine.startThread([this] { run(); });
    } catch (const std::exception&) {
        // A session without the target's own lines is still a session.
    }
}

void TargetLog::closeSocket() {
    logSocket_->close();
}

void TargetLog::join() {
    if (logThread_.joinable()) logThread_.join();
}

void TargetLog::ask(const ZENNO::IPAddress& controlAddress) {
    {
        const std::lock_guard lock(targetMutex_);
        logTarget_ = controlAddress;
        logTarget_.setPortNumber(wire::targetLogPort);
    }
    logRequest_.store(1, std::memory_order_release);
}

ZENNO::IPAddress TargetLog::logTarget() const {
    const std::lock_guard lock(targetMutex_);
    return logTarget_;
}

void TargetLog::run() {
    ZENNO::Bytes datagram;
    for (;;) {
        if (logRequest_.exchange(0, std::memory_order_acquire) != 0) sendRequest();

        const int ready = logSocket_->waitReadable(100000);
        if (ready == ZENNO::waitError) return;
        if (ready == ZENNO::waitTimedOut) continue;
        ZENNO::IPAddress from;
        if (!logSocket_->receiveFrom(datagram, from)) return;
        showLine(datagram);
    }
}

// Whether the target has such a channel is no concern of the session: neither the result nor the
// answer matters.
void TargetLog::sendRequest() {
    ZENNO::Bytes answer;
    sendAck(*logSocket_, clock_, logTarget(), write(wire::LOG_REQ{.wanted = logLevelEnabled(6)}),
            wire::LOG_REQ::answer, answer, 10000);
}

void TargetLog::showLine(ZENNO::BufferCS_const datagram) {
    const auto packet = wire::readPacket({datagram.data, datagram.size});
    if (!packet || packet->id() != wire::LOG_ANS::id) return;
    if (packet->arg16(8) != wire::LOG_ANS::textLine) return;
    LogLine(6) << "Target: " << packet->text();
}

}  // namespace VELMORA
