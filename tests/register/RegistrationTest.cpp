#include "apps/velmora-register/Registration.h"

#include <gtest/gtest.h>

#include <string>

namespace velmora_register {
namespace {

// How far a driver comes when it is told to register itself.
enum class Driver { writesAll, writesHalf, writesNothing };

// A registry of one class and one entry, and a driver that does as the test says.
class FakeSystem final : public System {
public:
    std::wstring classPath;  // empty: no class
    bool hasEntry = false;
    Driver driver = Driver::writesAll;
    bool driverRemoves = true;
    bool keysAreFast = false;     // nothing can be taken out by hand
    bool newKeysAreFast = false;  // ... of what the driver wrote
    bool fileIsThere = true;
    bool hasRights = true;
    std::wstring unfit;
    int driverCalls = 0;

    bool isFile(const std::wstring&) override { return fileIsThere; }
    bool isAdministrator() override { return hasRights; }
    std::wstring unfitPath(const std::wstring&) override { return unfit; }
    Registered lookFor(const std::wstring& dll) override {
        Registered out;
        out.isAnything = !classPath.empty() || hasEntry;
        out.path = classPath;
        out.isOfFile = classPath == dll;
        out.isWhole = out.isOfFile && hasEntry && fileIsThere;
        if (!out.isWhole) out.fault = classPath.empty() ? L"no class" : L"no entry";
        return out;
    }
    void callDriver(const std::wstring& dll, bool removes) override {
        ++driverCalls;
        if (removes && driverRemoves) drop();
        if (removes || driver == Driver::writesNothing) return;
        classPath = dll;
        hasEntry = driver == Driver::writesAll;
        keysAreFast = newKeysAreFast;
    }
    void removeKeys() override {
        if (!keysAreFast) drop();
    }
    bool isClean() const { return classPath.empty() && !hasEntry; }

private:
    void drop() {
        classPath.clear();
        hasEntry = false;
    }
};

constexpr const wchar_t* here = L"C:\\here\\driver.dll";
constexpr const wchar_t* elsewhere = L"C:\\there\\driver.dll";

TEST(Registration, IsToldAsItStands) {
    FakeSystem system;
    EXPECT_EQ(status(system, here).code, exitAbsent);
    system.classPath = here;
    EXPECT_EQ(status(system, here).code, exitNotHeld);
    EXPECT_EQ(status(system, here).sentence, L"Registered badly: no entry.");
    system.hasEntry = true;
    EXPECT_EQ(status(system, here).code, exitDone);
    EXPECT_EQ(status(system, elsewhere).code, exitElsewhere);
    EXPECT_EQ(system.driverCalls, 0);
}

TEST(Registration, HoldsWhenTheDriverWroteAll) {
    FakeSystem system;
    const Answer said = doRegister(system, here);
    EXPECT_EQ(said.code, exitDone);
    EXPECT_EQ(said.sentence, L"Registered: C:\\here\\driver.dll");
    EXPECT_EQ(system.classPath, here);
}

TEST(Registration, ReplacesOneFromAnotherFile) {
    FakeSystem system;
    system.classPath = elsewhere;
    system.hasEntry = true;
    EXPECT_EQ(doRegister(system, here).code, exitDone);
    EXPECT_EQ(system.classPath, here);
}

TEST(Registration, IsNotTakenFromAnEarlierOne) {
    FakeSystem system;
    system.classPath = here;
    system.hasEntry = true;
    system.driver = Driver::writesNothing;
    EXPECT_EQ(doRegister(system, here).code, exitNotHeld);
}

TEST(Registration, ThatStopsHalfwayLeavesNoKeys) {
    FakeSystem system;
    system.driver = Driver::writesHalf;
    const Answer said = doRegister(system, here);
    EXPECT_EQ(said.code, exitNotHeld);
    EXPECT_EQ(said.sentence, L"The driver could not be registered: no entry.");
    EXPECT_TRUE(system.isClean());
}

TEST(Registration, ThatFailsSaysThatTheEarlierOneIsGone) {
    struct Case {
        const char* why;
        const wchar_t* classPath;
        Driver driver;
        const wchar_t* sentence;
    };
    constexpr Case cases[] = {
        {"of another file", elsewhere, Driver::writesNothing,
         L"The driver could not be registered: no class. The earlier registration, of "
         L"C:\\there\\driver.dll, is gone, too."},
        {"of this file", here, Driver::writesHalf,
         L"The driver could not be registered: no entry. The earlier registration, of "
         L"C:\\here\\driver.dll, is gone, too."},
        {"an entry without a class", L"", Driver::writesNothing,
         L"The driver could not be registered: no class. The earlier registration is gone, too."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FakeSystem system;
        system.classPath = c.classPath;
        system.hasEntry = true;
        system.driver = c.driver;
        EXPECT_EQ(doRegister(system, here).sentence, c.sentence);
        EXPECT_TRUE(system.isClean());
    }
}

TEST(Registration, ThatFailsSaysWhenItsKeysStay) {
    FakeSystem system;
    system.driver = Driver::writesHalf;
    system.newKeysAreFast = true;
    const Answer said = doRegister(system, here);
    EXPECT_EQ(said.code, exitNotHeld);
    EXPECT_EQ(said.sentence,
              L"The driver could not be registered: no entry. What it wrote into the registry "
              L"could not be taken out.");
}

TEST(Registration, IsRefusedBeforeAnythingChanges) {
    struct Case {
        const char* why;
        bool fileIsThere;
        const wchar_t* unfit;
        bool hasRights;
        ExitCode code;
    };
    constexpr Case cases[] = {
        {"no file", false, L"", true, exitFolder},
        {"a path that hosts cannot read", true, L"too long", true, exitFolder},
        {"no administrator", true, L"", false, exitNoRights},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FakeSystem system;
        system.classPath = elsewhere;
        system.hasEntry = true;
        system.fileIsThere = c.fileIsThere;
        system.unfit = c.unfit;
        system.hasRights = c.hasRights;
        EXPECT_EQ(doRegister(system, here).code, c.code);
        EXPECT_EQ(system.classPath, elsewhere);
        EXPECT_TRUE(system.hasEntry);
        EXPECT_EQ(system.driverCalls, 0);
    }
}

TEST(Registration, DoesNotBeginWhereAnOlderOneIsFast) {
    FakeSystem system;
    system.classPath = elsewhere;
    system.keysAreFast = true;
    const Answer said = doRegister(system, here);
    EXPECT_EQ(said.code, exitNotHeld);
    EXPECT_EQ(said.sentence, L"An older registration of the driver could not be taken out.");
    EXPECT_EQ(system.driverCalls, 0);
}

TEST(Removal, OfWhatIsNotThereIsDone) {
    FakeSystem system;
    EXPECT_EQ(doUnregister(system, here).code, exitDone);
    EXPECT_EQ(system.driverCalls, 0);
}

TEST(Removal, LeavesAnotherFilesRegistrationAlone) {
    FakeSystem system;
    system.classPath = elsewhere;
    system.hasEntry = true;
    EXPECT_EQ(doUnregister(system, here).code, exitElsewhere);
    EXPECT_EQ(system.classPath, elsewhere);
}

TEST(Removal, ClearsTheKeysWithoutTheDriversHelp) {
    struct Case {
        const char* why;
        bool fileIsThere;
        int driverCalls;
    };
    constexpr Case cases[] = {{"the DLL is missing", false, 0}, {"the DLL is damaged", true, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FakeSystem system;
        system.classPath = here;
        system.hasEntry = true;
        system.driverRemoves = false;
        system.fileIsThere = c.fileIsThere;
        EXPECT_EQ(doUnregister(system, here).code, exitDone);
        EXPECT_TRUE(system.isClean());
        EXPECT_EQ(system.driverCalls, c.driverCalls);
    }
}

TEST(Removal, SaysWhenTheKeysStay) {
    FakeSystem system;
    system.classPath = here;
    system.driverRemoves = false;
    system.keysAreFast = true;
    EXPECT_EQ(doUnregister(system, here).code, exitNotHeld);
    system.hasRights = false;
    EXPECT_EQ(doUnregister(system, here).code, exitNoRights);
}

}  // namespace
}  // namespace velmora_register
