#include "pkcs11/frontend/SystemWrapper.h"

#include "pkcs11/Edition.h"
#include "pkcs11/frontend/CallPattern.h"
#include "pkcs11/frontend/FunctionList.h"
#include "pkcs11/frontend/trace/CallTrace.h"
#include "pkcs11/frontend/trace/FileLogger.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/pcsc/PCSCSystem.h"
#include "pkcs11/pcsc/SlotWaits.h"

#include <cstring>
#include <string>

namespace {

using namespace PKCS11;

constexpr char kManufacturer[] = "Quennelbrooke labs              ";
/// The zero byte in the middle belongs to the text.
constexpr char kDescription[] = "PKCS#11 library\t\t\t\t    \0        ";
static_assert(sizeof(kManufacturer) == sizeof(CK_INFO::manufacturerID) + 1, "fills its field");
static_assert(sizeof(kDescription) == sizeof(CK_INFO::libraryDescription) + 1, "fills its field");

constexpr unsigned char kTraceOptions = FileLogger::kTimePrefix | FileLogger::kFlush | FileLogger::kBanner;
constexpr short kEverything = 99;

/// Where the library object lives. When the process ends beside a call of another thread, or inside of one,
/// it stays, with all that the call uses.
union Place {
    SystemWrapper object;

    Place() : object() {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place()
    {
        SystemWrapper::noteEnd();
        if (!Edition::current().tryBeginCall()) {
            SlotWaits::awaitEnd();
            return;
        }
        object.~SystemWrapper();
        Edition::current().endCall();
    }
};
Place place;

} // namespace

const char* SystemWrapper::s_logPath = "/sdcard/Quarvel_log.txt";

SystemWrapper& wrapper = place.object;

SystemWrapper::SystemWrapper() = default;

SystemWrapper::~SystemWrapper()
{
    SystemWrapper::FinalizeSystem();
}

CK_RV SystemWrapper::GetInfo(CK_INFO* pInfo)
{
    CK_RV rv = CKR_OK;
    const MethodLogger scope("C_GetInfo", rv);
    logArguments({pointer("pInfo", pInfo)});
    if (pInfo == nullptr) {
        rv = CKR_ARGUMENTS_BAD;
        return rv;
    }
    pInfo->cryptokiVersion = kCryptokiVersion;
    std::memcpy(pInfo->manufacturerID, kManufacturer, sizeof(pInfo->manufacturerID));
    pInfo->flags = 0;
    std::memcpy(pInfo->libraryDescription, kDescription, sizeof(pInfo->libraryDescription));
    pInfo->libraryVersion = {4, 2};
    logResults(
        {version("pInfo->cryptokiVersion", pInfo->cryptokiVersion),
         text("pInfo->manufacturerID", pInfo->manufacturerID, sizeof(pInfo->manufacturerID)),
         number("pInfo->flags", pInfo->flags),
         text("pInfo->libraryDescription", pInfo->libraryDescription, sizeof(pInfo->libraryDescription)),
         version("pInfo->libraryVersion", pInfo->libraryVersion)});
    return rv;
}

CK_RV SystemWrapper::InitializeSystem()
{
    FinalizeSystem();
    // FinalizeSystem() gives back the reference that a system's existence took, never the last one.
    m_system = Edition::current().createSystem(); // NOLINT(clang-analyzer-cplusplus.NewDelete)
    if (m_system == nullptr)
        return CKR_GENERAL_ERROR;
    addReference(); // the system's existence holds the library object
    return CKR_OK;
}

void SystemWrapper::FinalizeSystem()
{
    // The analyser takes the end of Place for a second end of its object.
    if (m_system == nullptr) // NOLINT(clang-analyzer-cplusplus.NewDelete)
        return;
    PCSCSystem* system = m_system;
    m_system = nullptr;
    system->release();
    release();
}

CK_RV SystemWrapper::InitSlotList()
{
    m_slots.reset();
    m_slots = Edition::current().createSlotList(this, m_system);
    if (m_system != nullptr) {
        for (const std::string& reader : m_system->listReaders())
            m_slots->addSlot(std::make_unique<PCSCSlot>(this, m_system, reader.c_str()));
    }
    return CKR_OK;
}

void SystemWrapper::InitLogger()
{
    if (m_hasLogger)
        return;
    try {
        const unsigned char options = kTraceOptions | (m_sharesTrace ? FileLogger::kAppend : 0);
        Logger::SetLogger(std::make_unique<FileLogger>(s_logPath, options).release());
        m_hasLogger = true;
        Logger::SetLoglevel(kEverything);
    } catch (...) {
        // No storage, no trace: the library works without, and the next start tries again.
    }
}
