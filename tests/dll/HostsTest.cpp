// The DLL in the hands of hosts: those that load every driver when they start, that call what comes
// to their mind, that let it go and come back for it. What a stream does is told elsewhere: here no
// target is ever looked for.
#include <gtest/gtest.h>
#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "driver/Asio.h"
#include "driver/FinderCall.h"
#include "tests/dll/HostModule.h"

namespace {

using namespace velmora_test;

constexpr const char* crashingPanel = "panel_that_crashes.exe";

// This program under another name is the settings program that crashes.
[[maybe_unused]] const bool isTestProgram = [] {
    if (ownPath().filename() != crashingPanel) return true;
    // Its end is that of a crash, without a debugger that comes to look at it.
    SetUnhandledExceptionFilter(
        [](EXCEPTION_POINTERS*) -> LONG { return EXCEPTION_EXECUTE_HANDLER; });
    RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return false;
}();

// ---- what a host might call, through the table, across the module's border ----

int messages = 0;
ASIOCallbacks someCallbacks() {
    return {[](std::int32_t, ASIOBool) {}, [](double) {},
            [](std::int32_t, std::int32_t, void*, double*) {
                ++messages;
                return 0;
            },
            [](ASIOTime* time, std::int32_t, ASIOBool) { return time; }};
}

// Everything that changes nothing, with places for the answers and without. A driver that has no
// target yet answers so, whatever has been tried with it.
void expectAnswersOfNoTarget(IASIO& driver) {
    for (const bool given : {true, false}) {
        SCOPED_TRACE(given ? "with places" : "with null pointers");
        const auto place = [given](auto& it) { return given ? &it : nullptr; };
        std::int32_t a = -7, b = -7, c = -7, d = -7;
        EXPECT_EQ(driver.getDriverVersion(), 1);
        EXPECT_EQ(driver.getChannels(place(a), place(b)), ASE_OK);
        EXPECT_EQ(a, given ? 0 : -7);
        EXPECT_EQ(b, given ? 0 : -7);
        EXPECT_EQ(driver.getLatencies(place(a), place(b)), ASE_OK);
        EXPECT_EQ(driver.getBufferSize(place(a), place(b), place(c), place(d)), ASE_OK);
        EXPECT_EQ(c, given ? OwnSettings::preferred : -7);
        double rate = 0;
        EXPECT_EQ(driver.getSampleRate(place(rate)), given ? ASE_OK : ASE_InvalidParameter);
        ASIOClockSource clock{};
        EXPECT_EQ(driver.getClockSources(place(clock), place(a)), ASE_OK);
        ASIOSamples position{};
        ASIOTimeStamp stamp{};
        EXPECT_EQ(driver.getSamplePosition(place(position), place(stamp)), ASE_OK);
        ASIOChannelInfo info{};
        EXPECT_EQ(driver.getChannelInfo(place(info)), ASE_InvalidParameter);
        char text[128] = "";
        driver.getDriverName(given ? text : nullptr);
        EXPECT_STREQ(text, "");
        driver.getErrorMessage(given ? text : nullptr);
        std::int32_t format = 0;
        EXPECT_EQ(driver.future(kAsioGetIoFormat, place(format)),
                  given ? ASE_SUCCESS : ASE_NotPresent);
        EXPECT_EQ(driver.future(kAsioCanDoIoFormat, place(format)), ASE_NotPresent);
    }
    for (const double hz : {8000.0, 44100.0, 192000.0, 2822400.0, -1.0}) {
        EXPECT_EQ(driver.canSampleRate(hz), ASE_NoClock);
    }
    EXPECT_EQ(driver.setSampleRate(48000), ASE_OK);
    EXPECT_EQ(driver.setClockSource(0), ASE_OK);
    EXPECT_EQ(driver.setClockSource(1), ASE_NotPresent);
    EXPECT_EQ(driver.outputReady(), ASE_NotPresent);
    EXPECT_EQ(driver.start(), ASE_NotPresent);
    EXPECT_EQ(driver.stop(), ASE_OK);

    ASIOBufferInfo infos[2] = {};
    ASIOCallbacks table = someCallbacks();
    EXPECT_EQ(driver.createBuffers(infos, 2, 512, &table), ASE_InvalidParameter) << "no channels";
    EXPECT_EQ(driver.createBuffers(infos, 2, 512, nullptr), ASE_InvalidParameter);
    EXPECT_EQ(driver.createBuffers(nullptr, 2, 512, &table), ASE_InvalidParameter);
    EXPECT_EQ(driver.createBuffers(nullptr, 0, 512, &table), ASE_OK) << "none asked for";
    std::memset(&table, 0xcc, sizeof table);  // it was the host's stack
    EXPECT_EQ(driver.setSampleRate(44100), ASE_OK);
    EXPECT_EQ(driver.start(), ASE_NotPresent);
    EXPECT_EQ(driver.start(), ASE_NotPresent);
    EXPECT_EQ(driver.disposeBuffers(), ASE_OK);
    EXPECT_EQ(driver.disposeBuffers(), ASE_OK);
}

class Hosts : public testing::Test {
protected:
    // Null, and a failure, where the settings are others than this test's.
    static IASIO* makeDriver(const Module& module) {
        IASIO* driver = module ? module.makeDriver() : nullptr;
        EXPECT_NE(driver, nullptr);
        if (driver == nullptr) return nullptr;
        std::int32_t preferred = 0;
        driver->getBufferSize(nullptr, nullptr, &preferred, nullptr);
        EXPECT_EQ(preferred, OwnSettings::preferred);
        if (preferred == OwnSettings::preferred) return driver;
        driver->Release();
        return nullptr;
    }

    OwnSettings settings_;
};

TEST_F(Hosts, MayCallEverythingBeforeInitAndBehindOneThatFailed) {
    const Module module;
    ASSERT_TRUE(module);
    IASIO* driver = makeDriver(module);
    ASSERT_NE(driver, nullptr);
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->init(nullptr), 0);
    char message[124] = "";
    driver->getErrorMessage(message);
    EXPECT_STREQ(message, "Velmora Find open err!");
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->init(GetDesktopWindow()), 0) << "and again";
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->Release(), 0u);
    EXPECT_TRUE(module.canUnload());
}

TEST_F(Hosts, MayHaveTwoDriversThatKnowNothingOfEachOther) {
    const Module module;
    ASSERT_TRUE(module);
    IASIO* one = makeDriver(module);
    IASIO* two = makeDriver(module);
    ASSERT_NE(one, nullptr);
    ASSERT_NE(two, nullptr);
    ASSERT_NE(one, two);
    one->setSampleRate(96000);
    std::int32_t format = kASIODSDFormat;
    one->future(kAsioSetIoFormat, &format);
    EXPECT_EQ(one->init(nullptr), 0);
    double rate = 0;
    two->getSampleRate(&rate);
    EXPECT_EQ(rate, 44100.0);
    two->future(kAsioGetIoFormat, &format);
    EXPECT_EQ(format, kASIOPCMFormat);
    char message[124] = "";
    two->getErrorMessage(message);
    EXPECT_STREQ(message, "");
    EXPECT_EQ(one->Release(), 0u);
    EXPECT_FALSE(module.canUnload());
    EXPECT_EQ(two->init(nullptr), 0);
    expectAnswersOfNoTarget(*two);
    EXPECT_EQ(two->Release(), 0u);
    EXPECT_TRUE(module.canUnload());
}

// ---- coming and going ----

// What the process holds.
struct Holdings {
    std::size_t handles = 0, threads = 0;
    std::size_t bytes = 0;  // on all heaps
};

// Of this process, by the list of all processes' handles: their mere number is told as 0 by some
// systems.
std::size_t handleCount() {
    struct Entry {
        void* object;
        ULONG_PTR process, handle;
        ULONG access;
        USHORT trace, type;
        ULONG attributes, reserved;
    };
    struct Table {
        ULONG_PTR count, reserved;
        Entry entries[1];
    };
    constexpr int extendedHandleInformation = 64;
    using Query = LONG(WINAPI*)(int, void*, ULONG, ULONG*);
    static const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    static std::vector<ULONG_PTR> room(1 << 17);  // its memory is there before anything is counted
    const auto bytes = static_cast<ULONG>(room.size() * sizeof room[0]);
    if (query(extendedHandleInformation, room.data(), bytes, nullptr) != 0) return 0;
    const auto* table = reinterpret_cast<const Table*>(room.data());
    return static_cast<std::size_t>(
        std::count_if(table->entries, table->entries + table->count,
                      [](const Entry& entry) { return entry.process == GetCurrentProcessId(); }));
}

Holdings holdings() {
    Holdings out;
    out.handles = handleCount();
    EXPECT_GT(out.handles, 0u);
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL more = Thread32First(snapshot, &thread); more;
         more = Thread32Next(snapshot, &thread)) {
        if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++out.threads;
    }
    CloseHandle(snapshot);
    std::array<HANDLE, 64> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
        HeapLock(heaps[i]);
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry)) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) out.bytes += entry.cbData;
        }
        HeapUnlock(heaps[i]);
    }
    return out;
}

// Of a visit: the compiler's thread library keeps half a kilobyte whenever the module comes and
// goes.
constexpr std::size_t keptByAModule = 1024, keptByADriver = 64;

template <class Visit>
void expectFiftyLeaveNothing(std::size_t bytesOfAVisit, Visit visit) {
    Holdings before;
    for (int i = 0; i < 50; ++i) {
        if (i == 10) before = holdings();
        visit();
    }
    const Holdings after = holdings();
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.bytes, before.bytes + 40 * bytesOfAVisit) << "bytes, of " << before.bytes;
}

// A host that uses the network and the rest of the system itself: the module's leaving does not end
// that, and what the system's own libraries leave behind when they are unloaded is not the
// module's.
struct HostsSystem {
    HostsSystem() {
        for (const char* library :
             {"advapi32", "iphlpapi", "ole32", "shell32", "user32", "winmm"}) {
            EXPECT_NE(LoadLibraryA(library), nullptr) << library;  // and it stays
        }
        WSADATA data{};
        EXPECT_EQ(WSAStartup(0x202, &data), 0);
    }
    ~HostsSystem() { WSACleanup(); }
};

TEST_F(Hosts, MayLoadAndUnloadItFiftyTimes) {
    const HostsSystem system;
    expectFiftyLeaveNothing(keptByAModule, [] {
        {
            const Module module;
            ASSERT_TRUE(module);
            IASIO* driver = makeDriver(module);
            ASSERT_NE(driver, nullptr);
            EXPECT_EQ(driver->init(nullptr), 0);
            EXPECT_EQ(driver->start(), ASE_NotPresent);
            EXPECT_EQ(driver->Release(), 0u);
            const auto make = module.entry<VELMORA::MakeFinder>(VELMORA::finderExport);
            const std::unique_ptr<VELMORA::asio_velmora_find_call> finder(make());
            EXPECT_FALSE(finder->settingPath().empty());
        }
        ASSERT_EQ(GetModuleHandleA(moduleName), nullptr) << "gone, not only let go";
    });
}

TEST_F(Hosts, MayMakeFiftyDriversFromOneModule) {
    const Module module;
    ASSERT_TRUE(module);
    expectFiftyLeaveNothing(keptByADriver, [&] {
        IASIO* driver = makeDriver(module);
        ASSERT_NE(driver, nullptr);
        EXPECT_EQ(driver->init(nullptr), 0);
        EXPECT_EQ(driver->Release(), 0u);
    });
}

// ---- where the module lies, and its settings program ----

TEST_F(Hosts, AreToldOfASettingsProgramThatIsNotThere) {
    ModuleFolder folder(1);
    folder.write("setting_org.inf", "ASIOControlPanel=nothing.exe\n");
    const Module module(folder.module());
    ASSERT_TRUE(module);
    IASIO* driver = makeDriver(module);
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->controlPanel(), ASE_NotPresent);
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->Release(), 0u);
}

TEST_F(Hosts, OutliveASettingsProgramThatCrashes) {
    ModuleFolder folder(1);
    folder.write("setting_org.inf", std::string("ASIOControlPanel=") + crashingPanel + "\n");
    folder.copy(ownPath(), crashingPanel);
    const Module module(folder.module());
    ASSERT_TRUE(module);
    IASIO* driver = makeDriver(module);
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->controlPanel(), ASE_OK) << "it ran, it ended, it changed nothing";
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->Release(), 0u);
}

// The folder is cut from the module's path by the length of its name. That ends the process only
// where the system tells no path at all of a module that is loaded; one that is too long to be told
// whole is a folder in which there are no files.
TEST_F(Hosts, MayKeepItInAFolderThatIsTooDeepToBeTold) {
    const ModuleFolder folder(5, std::wstring(60, L'd'));
    ASSERT_GT(folder.module().size(), 300u);
    const Module module(ModuleFolder::withoutLimit(folder.module()));
    ASSERT_TRUE(module) << GetLastError();
    IASIO* driver = makeDriver(module);
    ASSERT_NE(driver, nullptr);
    expectAnswersOfNoTarget(*driver);
    EXPECT_EQ(driver->Release(), 0u);
}

}  // namespace
