// Waiting on several sockets at once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>

namespace ZENNO {

// Holds plain handles: whoever closes a socket removes it here first.
class SocketSet {
public:
    static constexpr std::size_t limit = 64;

    void add(std::uint64_t handle);     // the handle of a closed socket is passed over
    void remove(std::uint64_t handle);  // the same
    bool empty() const { return handles_.empty(); }
    // A Wait value. The first 64 handles in their order count, further ones are left out. An empty
    // set is an error.
    int wait(std::uint32_t micros);
    // Whether the last wait found this handle ready.
    bool contains(std::uint64_t handle) const;

private:
    std::set<std::uint64_t> handles_;
    std::array<std::uint64_t, limit> ready_{};
    std::size_t readyCount_ = 0;
};

}  // namespace ZENNO
