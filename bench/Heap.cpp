#include "bench/Heap.h"

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::int64_t> held{0};
// Of a type that needs no making: it is there before the thread's first line.
thread_local velmora_bench::ThreadCounts counts;

using LockCall = int (*)(pthread_mutex_t*);
std::atomic<LockCall> systemLock{nullptr};

}  // namespace

namespace velmora_bench {

std::int64_t heapBytes() noexcept {
    return held.load(std::memory_order_relaxed);
}

const volatile ThreadCounts& threadCounts() noexcept {
    return counts;
}

}  // namespace velmora_bench

void* operator new(std::size_t size) {
    void* at = std::malloc(size);
    if (at == nullptr) throw std::bad_alloc();
    held.fetch_add(static_cast<std::int64_t>(malloc_usable_size(at)), std::memory_order_relaxed);
    ++counts.allocations;
    return at;
}
void operator delete(void* at) noexcept {
    held.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(at)), std::memory_order_relaxed);
    std::free(at);
}
void operator delete(void* at, std::size_t) noexcept {
    operator delete(at);
}

// Stands before the system's own.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    LockCall call = systemLock.load(std::memory_order_relaxed);
    if (call == nullptr) {
        call = reinterpret_cast<LockCall>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        systemLock.store(call, std::memory_order_relaxed);
    }
    ++counts.locks;
    return call(mutex);
}
