// What the program's heap holds, and what each thread has asked of it and of locks. Every
// allocation of the program is counted, and every mutex that it locks.
#pragma once

#include <cstdint>

namespace velmora_bench {

std::int64_t heapBytes() noexcept;  // held now, as the allocator really gives them

struct ThreadCounts {
    std::uint64_t allocations = 0, locks = 0;
};
// The calling thread's; valid as long as that lives. Others may look at it.
const volatile ThreadCounts& threadCounts() noexcept;

}  // namespace velmora_bench
