// Makes driver objects for whoever asks COM for the class: one row a class, one factory object a
// request.
#pragma once

#include <cstdint>

#include "driver/Unknown.h"
#include "platform/Com.h"

// What the server can make. `status` starts as 0; a negative one rejects the object that came with
// it.
struct FactoryRow {
    const char16_t* name;
    const ZENNO::platform::Guid* classId;
    CUnknown* (*create)(ZENNO::platform::IUnknown* outer, ZENNO::platform::HResult* status);
    void (*attach)(bool attached);  // told of the module's coming and going; may be null
};

class CClassFactory final : public ZENNO::platform::IClassFactory {
public:
    explicit CClassFactory(const FactoryRow& row) noexcept : row_(&row) {}

    ZENNO::platform::HResult QueryInterface(const ZENNO::platform::Guid& riid, void** ppv) override;
    std::uint32_t AddRef() override;
    std::uint32_t Release() override;  // frees itself with the last reference
    ZENNO::platform::HResult CreateInstance(ZENNO::platform::IUnknown* outer,
                                            const ZENNO::platform::Guid& riid, void** ppv) override;
    ZENNO::platform::HResult LockServer(std::int32_t lock) override;

private:
    ~CClassFactory() = default;
    const FactoryRow* row_;
    std::uint32_t references_ = 0;  // the caller's thread alone: the class lives in an apartment
};

// The table of this server, and the four answers that its exports give. Each catches what its
// callees throw: no exception leaves the module.
const FactoryRow (&factoryTable())[1];
ZENNO::platform::HResult getClassObject(const ZENNO::platform::Guid& rclsid,
                                        const ZENNO::platform::Guid& riid, void** ppv) noexcept;
ZENNO::platform::HResult canUnloadNow() noexcept;
