// Counts what this thread takes from the heap while it lives. The test program's operator new does
// the counting (AllocationWatch.cpp).
#pragma once

#include <cstddef>

namespace velmora_test {

std::size_t allocationsOfThisThread() noexcept;

class AllocationWatch {
public:
    std::size_t count() const noexcept { return allocationsOfThisThread() - before_; }

private:
    std::size_t before_ = allocationsOfThisThread();
};

}  // namespace velmora_test
