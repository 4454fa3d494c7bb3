#include "src/Network/Link.h"

namespace ZENNO {

void Link::setDestination(const IPAddress& to) noexcept {
    destination_ = scoped(to);
}

void Link::getDestination(IPAddress& out) const noexcept {
    out = destination_;
    if (fixedScope_ != 0) out.scope = 0;
}

bool Link::sendDatagram(BufferCS_const data, bool retry) noexcept {
    return sendAll(data, retry, [this, retry](BufferCS_const all) {
        return sendOnce(all, destination_, retry);
    });
}

bool Link::sendDatagramTo(BufferCS_const data, const IPAddress& to, bool retry) noexcept {
    // The stored destination is passed by, not swapped and put back: whoever sends to it from
    // another thread at this moment is not led astray.
    const IPAddress there = scoped(to);
    return sendAll(data, retry, [this, &there, retry](BufferCS_const all) {
        return sendOnce(all, there, retry);
    });
}

bool Link::receiveFrom(Bytes& data, IPAddress& from) {
    data.resize(readerSize);
    std::uint64_t length = 0;
    const bool good = receiveFrom(BufferCS{data.data(), data.size()}, length, from);
    data.resize(good ? length : 0);
    return good;
}

IPAddress Link::scoped(IPAddress to) const noexcept {
    if (fixedScope_ != 0) to.scope = fixedScope_;
    return to;
}

}  // namespace ZENNO
