// A system that has no thread left for the buffer worker. It is made by standing in front of
// pthread_create, so this is for systems whose programs find it through the dynamic linker.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/DriverRig.h"

#if __has_include(<dlfcn.h>)
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {
std::atomic<int> threadsUntilRefusal{0};  // 1: the next is refused; 0: none is
}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument) {
    if (threadsUntilRefusal > 0 && --threadsUntilRefusal == 0) return EAGAIN;
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return next(thread, attributes, entry, argument);
}

namespace {

using namespace velmora_test;
using testing::ElementsAre;

TEST(ThreadRefusal, OfTheBufferWorkerGivesTwoLinesAndEndsTheSession) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    LogCapture log(3);
    threadsUntilRefusal = 2;  // the first is the stream worker
    EXPECT_EQ(rig.driver().start(), ASE_NotPresent);
    EXPECT_EQ(threadsUntilRefusal, 0);
    EXPECT_THAT(log.texts(3), ElementsAre("Buffer Worker Start Error", "connect error"));
    EXPECT_EQ(rig.network.openLinks(), 0) << "the session is closed";
    EXPECT_EQ(rig.driver().stream().state, VELMORA::Sync::Idle);
    EXPECT_EQ(rig.driver().stop(), ASE_OK);
}

}  // namespace
#endif
