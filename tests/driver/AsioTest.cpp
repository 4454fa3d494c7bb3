#include "driver/Asio.h"

#include <gtest/gtest.h>

#include <cstring>

#include "driver/AsioVelmora.h"

namespace {

// Both ABIs that we build for hold a pointer to a virtual operation as its offset in the table,
// plus one.
template <class Operation>
int slotOf(Operation operation) {
    std::uintptr_t word = 0;
    std::memcpy(&word, &operation, sizeof word);
    return static_cast<int>((word - 1) / sizeof(void*));
}

TEST(Asio, TheTableHasItsOperationsInThePublishedOrder) {
    const int slots[] = {
        slotOf(&IASIO::QueryInterface),
        slotOf(&IASIO::AddRef),
        slotOf(&IASIO::Release),
        slotOf(&IASIO::init),
        slotOf(&IASIO::getDriverName),
        slotOf(&IASIO::getDriverVersion),
        slotOf(&IASIO::getErrorMessage),
        slotOf(&IASIO::start),
        slotOf(&IASIO::stop),
        slotOf(&IASIO::getChannels),
        slotOf(&IASIO::getLatencies),
        slotOf(&IASIO::getBufferSize),
        slotOf(&IASIO::canSampleRate),
        slotOf(&IASIO::getSampleRate),
        slotOf(&IASIO::setSampleRate),
        slotOf(&IASIO::getClockSources),
        slotOf(&IASIO::setClockSource),
        slotOf(&IASIO::getSamplePosition),
        slotOf(&IASIO::getChannelInfo),
        slotOf(&IASIO::createBuffers),
        slotOf(&IASIO::disposeBuffers),
        slotOf(&IASIO::controlPanel),
        slotOf(&IASIO::future),
        slotOf(&IASIO::outputReady),
    };
    int expected = 0;
    for (const int slot : slots) EXPECT_EQ(slot, expected++);
    EXPECT_EQ(expected, 24);
}

TEST(Asio, TheTableHoldsNothingBesidesItsOperations) {
    // The host's pointer is the address of a pointer to the table, and there is no more to it.
    EXPECT_EQ(sizeof(IASIO), sizeof(void*));
}

TEST(Asio, TheDriversTableStartsWhereTheHostsPointerPoints) {
    EXPECT_TRUE((std::is_base_of_v<IASIO, AsioVelmora>));
    EXPECT_TRUE((std::is_base_of_v<CUnknown, AsioVelmora>));
}

TEST(Asio, ErrorsHaveTheValuesThatHostsCompareWith) {
    EXPECT_EQ(ASE_OK, 0);
    EXPECT_EQ(ASE_SUCCESS, 0x3F4847A0);
    EXPECT_EQ(ASE_NotPresent, -1000);
    EXPECT_EQ(ASE_HWMalfunction, -999);
    EXPECT_EQ(ASE_InvalidParameter, -998);
    EXPECT_EQ(ASE_InvalidMode, -997);
    EXPECT_EQ(ASE_SPNotAdvancing, -996);
    EXPECT_EQ(ASE_NoClock, -995);
    EXPECT_EQ(ASE_NoMemory, -994);
}

}  // namespace
