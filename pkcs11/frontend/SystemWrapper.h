#pragma once

#include "pkcs11/frontend/PKCS11Wrapper.h"

namespace PKCS11 {
class PCSCSystem;
}

/// The library object over PC/SC: one slot per reader, the trace on the device's external storage.
class SystemWrapper final : public PKCS11::PKCS11Wrapper {
public:
    SystemWrapper();
    ~SystemWrapper() override;

    CK_RV InitSlotList() override;
    CK_RV GetInfo(CK_INFO* pInfo) override;
    CK_RV InitializeSystem() override;
    void FinalizeSystem() override;
    void InitLogger() override;

    /// Path of the trace. Fixed in the product; tests point it elsewhere before the first call.
    static const char* s_logPath;

private:
    PKCS11::PCSCSystem* m_system = nullptr;
};

/// The one library object, static, alive from load to unload.
extern SystemWrapper& wrapper;
