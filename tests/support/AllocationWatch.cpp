#include "tests/support/AllocationWatch.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

void* take(std::size_t bytes) {
    ++allocations;
    if (void* p = std::malloc(bytes == 0 ? 1 : bytes)) return p;
    throw std::bad_alloc();
}

}  // namespace

std::size_t velmora_test::allocationsOfThisThread() noexcept {
    return allocations;
}

void* operator new(std::size_t bytes) {
    return take(bytes);
}
void* operator new[](std::size_t bytes) {
    return take(bytes);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
