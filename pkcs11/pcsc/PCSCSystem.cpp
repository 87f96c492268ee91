#include "pkcs11/pcsc/PCSCSystem.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/SCardCall.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <type_traits>
#include <unistd.h>
#include <winscard.h>

namespace PKCS11 {

static_assert(std::is_same_v<PCSCContext, SCARDCONTEXT>, "the alias must be the type of PC/SC Lite");
static_assert(std::is_same_v<PCSCHandle, SCARDHANDLE>, "the alias must be the type of PC/SC Lite");
static_assert(std::is_same_v<PCSCWord, DWORD>, "the alias must be the type of PC/SC Lite");
static_assert(sizeof(void*) != 4 || (sizeof(DWORD) == 4 && sizeof(SCARDCONTEXT) == 4),
              "32 bits wide on the target");

namespace {

/// Bytes offered for the list of reader names; a longer list counts as none.
constexpr std::size_t kReaderListSize = 4096;

} // namespace

PCSCSystem::PCSCSystem(WithoutContext) : m_process(getpid()) {}

PCSCSystem::PCSCSystem() : PCSCSystem(WithoutContext())
{
    establish();
}

void PCSCSystem::establish()
{
    Logger::Log(Logger::kTrace, "initialize PCSCSystem BEGIN");
    try {
        long result = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &m_context);
        traceCall("SCardEstablishContext", result, Logger::kFailure);
        if (result != SCARD_S_SUCCESS)
            SCardReleaseContext(m_context);

        // A context that was not established is reported here.
        result = SCardIsValidContext(m_context);
        traceCall("SCardIsValidContext", result, Logger::kFailure);
        if (result != SCARD_S_SUCCESS) {
            SCardReleaseContext(m_context);
            throw PKCS11Exception(CKR_DEVICE_ERROR);
        }
        Logger::Log(Logger::kTrace, "PC/SC initialize() Completed Successfully");
    } catch (const PKCS11Exception&) {
        throw;
    } catch (...) {
        Logger::Log(Logger::kFailure, "SCardEstablishContext failed");
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    }
}

PCSCSystem::~PCSCSystem()
{
    if (isInherited())
        return;
    Logger::Log(Logger::kTrace, "........~PCSCSystem begin");
    const long result = SCardReleaseContext(m_context);
    traceCall("SCardReleaseContext", result, Logger::kFailure);
    if (result != SCARD_S_SUCCESS) // once more, and whatever comes of it
        SCardReleaseContext(m_context);
    Logger::Log(Logger::kTrace, "........~PCSCSystem end");
}

bool PCSCSystem::isInherited() const
{
    return m_process != getpid();
}

std::vector<std::string> PCSCSystem::listReaders()
{
    std::vector<std::string> readers;
    queryReaders(GetContext(), readers);
    return readers;
}

long PCSCSystem::readState(const std::string& reader, ReaderState& state)
{
    SCARD_READERSTATE raw{};
    raw.szReader = reader.c_str();
    raw.dwCurrentState = SCARD_STATE_UNAWARE;
    const long result = SCardGetStatusChange(GetContext(), 0, &raw, 1);
    state.events = raw.dwEventState;
    state.atr = Blob(raw.rgbAtr, raw.rgbAtr + std::min<DWORD>(raw.cbAtr, sizeof raw.rgbAtr));
    return result;
}

long queryReaders(PCSCContext context, std::vector<std::string>& names)
{
    names.clear();
    std::array<char, kReaderListSize> list{};
    DWORD length = list.size();
    const long result = SCardListReaders(context, nullptr, list.data(), &length);
    if (result != SCARD_S_SUCCESS)
        return result;
    const char* const end = list.data() + std::min<std::size_t>(length, list.size());
    for (const char* name = list.data(); name < end && *name != '\0'; name += names.back().size() + 1)
        names.emplace_back(name, strnlen(name, static_cast<std::size_t>(end - name)));
    return result;
}

PCSCSystem* CreatePCSCSystem(const char* /*name*/)
{
    return std::make_unique<PCSCSystem>().release();
}

} // namespace PKCS11
