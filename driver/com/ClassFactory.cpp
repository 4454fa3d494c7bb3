#include "driver/com/ClassFactory.h"

#include <new>

#include "driver/AsioVelmora.h"
#include "driver/Product.h"

using namespace ZENNO::platform;

namespace {

// Allocation failing, and whatever else a constructor may throw, is a null result: out of memory.
CUnknown* createAsioVelmora(IUnknown* outer, HResult*) {
    try {
        return new AsioVelmora(outer);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

const FactoryRow (&factoryTable())[1] {
    static const FactoryRow table[1] = {
        {u"ASIOKORVENTE", &driverClassId, createAsioVelmora, nullptr}};
    return table;
}

HResult CClassFactory::QueryInterface(const Guid& riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
}

std::uint32_t CClassFactory::AddRef() {
    return ++references_;
}

std::uint32_t CClassFactory::Release() {
    if (--references_ != 0) return references_;
    delete this;
    return 0;
}

HResult CClassFactory::CreateInstance(IUnknown* outer, const Guid& riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    // Whoever aggregates must ask for IUnknown: nothing else of the object would be theirs to hold.
    if (outer != nullptr && riid != IID_IUnknown) return E_NOINTERFACE;
    HResult status = S_OK;
    CUnknown* object = row_->create(outer, &status);
    if (object == nullptr) return E_OUTOFMEMORY;
    if (status < 0) {
        delete object;
        return status;
    }
    object->NonDelegatingAddRef();
    const HResult result = object->NonDelegatingQueryInterface(riid, ppv);
    object->NonDelegatingRelease();
    return result;
}

HResult CClassFactory::LockServer(std::int32_t lock) {
    moduleLockCount += lock != 0 ? 1 : -1;
    return S_OK;
}

HResult getClassObject(const Guid& rclsid, const Guid& riid, void** ppv) noexcept {
    if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
    for (const FactoryRow& row : factoryTable()) {
        if (*row.classId != rclsid) continue;
        if (ppv == nullptr) return E_POINTER;
        auto* factory = new (std::nothrow) CClassFactory(row);
        if (factory == nullptr) return E_OUTOFMEMORY;
        *ppv = static_cast<IClassFactory*>(factory);
        factory->AddRef();
        return S_OK;
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HResult canUnloadNow() noexcept {
    return moduleLockCount > 0 || moduleObjectCount != 0 ? S_FALSE : S_OK;
}
