#include "driver/com/ClassFactory.h"

#include <gtest/gtest.h>

#include "driver/Asio.h"
#include "driver/Product.h"
#include "driver/Unknown.h"

using namespace ZENNO::platform;

namespace {

constexpr Guid foreignId{0x11111111, 0x2222, 0x3333, {4, 4, 4, 4, 4, 4, 4, 4}};

// A row whose object and status the test chooses.
class Made final : public CUnknown {
public:
    explicit Made(IUnknown* outer) : CUnknown(outer) { ++alive; }
    ~Made() override { --alive; }
    static inline int alive = 0;
};
HResult statusToGive = S_OK;
bool makeNothing = false;
CUnknown* make(IUnknown* outer, HResult* status) {
    EXPECT_EQ(*status, S_OK) << "the status starts as 0";
    *status = statusToGive;
    return makeNothing ? nullptr : new Made(outer);
}
constexpr FactoryRow row{u"MADE", &foreignId, make, nullptr};

// An outer unknown that counts nothing.
class Outer final : public IUnknown {
public:
    HResult QueryInterface(const Guid&, void**) override { return E_NOINTERFACE; }
    std::uint32_t AddRef() override { return ++references; }
    std::uint32_t Release() override { return --references; }
    std::uint32_t references = 0;
};

class ClassFactory : public ::testing::Test {
protected:
    ClassFactory() {
        statusToGive = S_OK;
        makeNothing = false;
        factory_->AddRef();
    }
    ~ClassFactory() override { factory_->Release(); }
    CClassFactory* factory_ = new CClassFactory(row);
};

TEST_F(ClassFactory, HandsItselfOutAsUnknownAndAsFactoryAlone) {
    struct Case {
        const char* why;
        Guid id;
        HResult result;
    };
    const Case cases[] = {{"unknown", IID_IUnknown, S_OK},
                          {"factory", IID_IClassFactory, S_OK},
                          {"anything else", foreignId, E_NOINTERFACE}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        void* out = &out;
        EXPECT_EQ(factory_->QueryInterface(c.id, &out), c.result);
        if (c.result == S_OK) {
            EXPECT_EQ(out, static_cast<IClassFactory*>(factory_));
            EXPECT_EQ(factory_->Release(), 1u);
        } else {
            EXPECT_EQ(out, nullptr) << "the out pointer is cleared";
        }
    }
    EXPECT_EQ(factory_->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(ClassFactory, CreatesAnObjectThatLivesByItsReference) {
    void* object = nullptr;
    ASSERT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, &object), S_OK);
    EXPECT_EQ(Made::alive, 1);
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0u);
    EXPECT_EQ(Made::alive, 0);
}

TEST_F(ClassFactory, RefusesANullOutPointer) {
    EXPECT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(Made::alive, 0);
}

TEST_F(ClassFactory, AnOuterUnknownMustAskForUnknown) {
    Outer outer;
    void* object = nullptr;
    EXPECT_EQ(factory_->CreateInstance(&outer, foreignId, &object),
              static_cast<HResult>(0x80004002u));
    EXPECT_EQ(factory_->CreateInstance(&outer, driverClassId, &object), E_NOINTERFACE);
    EXPECT_EQ(Made::alive, 0);
    ASSERT_EQ(factory_->CreateInstance(&outer, IID_IUnknown, &object), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0u);
}

TEST_F(ClassFactory, NothingMadeIsOutOfMemory) {
    makeNothing = true;
    void* object = nullptr;
    EXPECT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, &object),
              static_cast<HResult>(0x8007000Eu));
}

TEST_F(ClassFactory, ANegativeStatusEndsTheObjectAndIsTheResult) {
    statusToGive = static_cast<HResult>(0x80070005u);
    void* object = nullptr;
    EXPECT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, &object),
              static_cast<HResult>(0x80070005u));
    EXPECT_EQ(Made::alive, 0);
}

TEST_F(ClassFactory, AnInterfaceThatTheObjectLacksEndsIt) {
    void* object = nullptr;
    EXPECT_EQ(factory_->CreateInstance(nullptr, foreignId, &object), E_NOINTERFACE);
    EXPECT_EQ(Made::alive, 0);
}

TEST(ClassObject, AnUnknownInterfaceIsRefusedBeforeTheClassIsLookedAt) {
    void* out = nullptr;
    EXPECT_EQ(getClassObject(foreignId, foreignId, &out), static_cast<HResult>(0x80004002u));
    EXPECT_EQ(getClassObject(driverClassId, foreignId, &out), static_cast<HResult>(0x80004002u));
    EXPECT_EQ(getClassObject(foreignId, IID_IClassFactory, &out),
              static_cast<HResult>(0x80040111u));
}

TEST(ClassObject, ANullOutPointerIsRefusedAndNotFollowed) {
    EXPECT_EQ(getClassObject(driverClassId, IID_IClassFactory, nullptr), E_POINTER);
}

TEST(ClassObject, MakesTheDriverUnderItsClassIdentifierAsInterface) {
    void* out = nullptr;
    ASSERT_EQ(getClassObject(driverClassId, IID_IClassFactory, &out), S_OK);
    auto* factory = static_cast<IClassFactory*>(out);
    void* made = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, driverClassId, &made), S_OK);
    EXPECT_EQ(canUnloadNow(), S_FALSE) << "a driver object lives";
    auto* driver = static_cast<IASIO*>(made);
    EXPECT_EQ(driver->getDriverVersion(), 1);
    EXPECT_EQ(driver->Release(), 0u);
    EXPECT_EQ(factory->Release(), 0u);
    EXPECT_EQ(canUnloadNow(), S_OK);
}

TEST(ClassObject, ALockKeepsTheModule) {
    void* out = nullptr;
    ASSERT_EQ(getClassObject(driverClassId, IID_IUnknown, &out), S_OK);
    auto* factory = static_cast<IClassFactory*>(out);
    EXPECT_EQ(canUnloadNow(), S_OK) << "a factory alone does not hold it";
    EXPECT_EQ(factory->LockServer(1), S_OK);
    EXPECT_EQ(canUnloadNow(), S_FALSE);
    EXPECT_EQ(factory->LockServer(0), S_OK);
    EXPECT_EQ(canUnloadNow(), S_OK);
    factory->Release();
}

TEST(FactoryTable, HasOneRowForTheDriver) {
    EXPECT_EQ(std::size(factoryTable()), 1u);
    EXPECT_EQ(std::u16string(factoryTable()[0].name), u"ASIOKORVENTE");
    EXPECT_EQ(*factoryTable()[0].classId, driverClassId);
    EXPECT_EQ(factoryTable()[0].attach, nullptr);
}

}  // namespace
