#include "driver/Unknown.h"

#include <gtest/gtest.h>

#include "driver/AsioVelmora.h"
#include "driver/Product.h"
#include "tests/driver/DriverRig.h"

namespace {

using namespace ZENNO::platform;
using velmora_test::DriverRig;

struct Counted final : CUnknown {
    Counted(IUnknown* outer, bool& gone) : CUnknown(outer), gone_(gone) {}
    ~Counted() override { gone_ = true; }
    bool& gone_;
};

// Answers for an object that it holds: what an aggregating component does.
struct Outer final : IUnknown {
    HResult QueryInterface(const Guid&, void** ppv) override {
        ++queries;
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    std::uint32_t AddRef() override { return ++references; }
    std::uint32_t Release() override { return --references; }
    int queries = 0;
    std::uint32_t references = 0;
};

TEST(Unknown, CountsReferencesAndGoesWithTheLast) {
    bool gone = false;
    const std::int32_t before = moduleObjectCount;
    auto* object = new Counted(nullptr, gone);
    EXPECT_EQ(moduleObjectCount, before + 1);
    EXPECT_EQ(object->NonDelegatingAddRef(), 1u);
    EXPECT_EQ(object->NonDelegatingAddRef(), 2u);
    EXPECT_EQ(object->NonDelegatingRelease(), 1u);
    EXPECT_FALSE(gone);
    EXPECT_EQ(object->NonDelegatingRelease(), 0u);
    EXPECT_TRUE(gone);
    EXPECT_EQ(moduleObjectCount, before);
}

TEST(Unknown, KnowsItselfAlone) {
    bool gone = false;
    Counted object(nullptr, gone);
    object.NonDelegatingAddRef();
    void* out = nullptr;
    EXPECT_EQ(object.NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    ASSERT_EQ(object.NonDelegatingQueryInterface(IID_IUnknown, &out), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(out)->Release(), 1u);
    EXPECT_EQ(object.NonDelegatingQueryInterface(IID_IClassFactory, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
}

TEST(Unknown, TheOuterUnknownIsItsOwnSideUnlessGiven) {
    bool gone = false;
    Counted alone(nullptr, gone);
    void* out = nullptr;
    ASSERT_EQ(alone.NonDelegatingQueryInterface(IID_IUnknown, &out), S_OK);
    EXPECT_EQ(&alone.outer(), out);
    Outer outer;
    Counted part(&outer, gone);
    EXPECT_EQ(&part.outer(), &outer);
}

TEST(DriverUnknown, HandsOutTheDriverUnderItsClassIdentifier) {
    DriverRig rig;
    AsioVelmora& driver = rig.driver();
    driver.NonDelegatingAddRef();
    void* out = nullptr;
    ASSERT_EQ(driver.NonDelegatingQueryInterface(driverClassId, &out), S_OK);
    EXPECT_EQ(out, static_cast<IASIO*>(&driver));
    EXPECT_EQ(static_cast<IASIO*>(out)->getDriverVersion(), 1);
    EXPECT_EQ(static_cast<IASIO*>(out)->Release(), 1u);
    EXPECT_EQ(driver.NonDelegatingQueryInterface(driverClassId, nullptr), E_POINTER);
    EXPECT_EQ(driver.NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(driver.NonDelegatingQueryInterface(IID_IClassFactory, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    // and through the interface, the same
    ASSERT_EQ(driver.QueryInterface(IID_IUnknown, &out), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(out)->Release(), 1u);
}

TEST(DriverUnknown, ForwardsToTheOuterUnknownWhenAggregated) {
    DriverRig rig;
    Outer outer;
    AsioVelmora driver(&outer, rig.surroundings());
    EXPECT_EQ(driver.AddRef(), 1u);
    EXPECT_EQ(driver.AddRef(), 2u);
    EXPECT_EQ(driver.Release(), 1u);
    void* out = nullptr;
    EXPECT_EQ(driver.QueryInterface(driverClassId, &out), E_NOINTERFACE);
    EXPECT_EQ(outer.queries, 1);
    // The side that the outer one holds counts for itself.
    EXPECT_EQ(driver.NonDelegatingAddRef(), 1u);
    EXPECT_EQ(outer.references, 1u);
}

TEST(DriverUnknown, ReleasedByTheHostItEnds) {
    DriverRig rig;
    const std::int32_t before = moduleObjectCount;
    auto* driver = new AsioVelmora(nullptr, rig.surroundings());
    EXPECT_EQ(driver->AddRef(), 1u);
    EXPECT_EQ(moduleObjectCount, before + 1);
    EXPECT_EQ(driver->Release(), 0u);
    EXPECT_EQ(moduleObjectCount, before);
}

}  // namespace
