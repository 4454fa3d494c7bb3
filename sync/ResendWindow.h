// What the target wants sent again: everything from a sequence number up to the newest.
#pragma once

#include <cstdint>

namespace VELMORA {

class ResendWindow {
public:
    struct Request {
        std::uint16_t wanted = 0;  // packets from the one asked for up to the newest
        bool lost = false;         // the ring no longer holds them
        std::uint16_t more = 0;    // packets beyond those that were pending already
    };
    // `sequence` is the next one to send. A later request replaces an earlier one, up or down.
    Request onRequest(std::uint16_t sequence, std::uint16_t resendFrom,
                      std::uint16_t ringSize) noexcept {
        Request request;
        request.wanted = static_cast<std::uint16_t>(sequence - resendFrom);
        request.lost = request.wanted >= ringSize;
        if (request.lost) return request;
        if (request.wanted > resendCount_) {
            request.more = static_cast<std::uint16_t>(request.wanted - resendCount_);
        }
        resendCount_ = request.wanted;
        return request;
    }

    bool pending() const noexcept { return resendCount_ != 0; }
    std::uint16_t resendCount() const noexcept { return resendCount_; }
    // The oldest packet still to send again.
    std::uint16_t oldest(std::uint16_t sequence) const noexcept {
        return static_cast<std::uint16_t>(sequence - resendCount_);
    }
    void onResent() noexcept { resendCount_ = static_cast<std::uint16_t>(resendCount_ - 1); }

private:
    std::uint16_t resendCount_ = 0;
};

}  // namespace VELMORA
