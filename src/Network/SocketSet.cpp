#include "src/Network/SocketSet.h"

#include <algorithm>

#include "platform/Net.h"
#include "src/Network/Link.h"

namespace ZENNO {

static_assert(SocketSet::limit == platform::waitLimit);

void SocketSet::add(std::uint64_t handle) {
    if (handle != platform::noSocket) handles_.insert(handle);
}

void SocketSet::remove(std::uint64_t handle) {
    if (handle != platform::noSocket) handles_.erase(handle);
}

int SocketSet::wait(std::uint32_t micros) {
    std::array<std::uint64_t, limit> waited{};
    std::array<bool, limit> isReady{};
    std::size_t count = 0;
    for (const std::uint64_t handle : handles_) {
        if (count == limit) break;
        waited[count++] = handle;
    }
    readyCount_ = 0;
    const int answer = platform::waitUntilReadable(std::span(waited).first(count),
                                                   std::span(isReady).first(count), micros);
    for (std::size_t i = 0; i < count; ++i) {
        if (answer > 0 && isReady[i]) ready_[readyCount_++] = waited[i];
    }
    return answer < 0 ? waitError : answer == 0 ? waitTimedOut : waitReady;
}

bool SocketSet::contains(std::uint64_t handle) const {
    const auto end = ready_.begin() + static_cast<std::ptrdiff_t>(readyCount_);
    return std::find(ready_.begin(), end, handle) != end;
}

}  // namespace ZENNO
