#include "pkcs11/frontend/CallPattern.h"

#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/PKCS11Wrapper.h"
#include "pkcs11/frontend/trace/CallTrace.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/frontend/trace/Names.h"

#include <cstdint>
#include <string>

namespace PKCS11 {

namespace {

int asInt(CK_ULONG value)
{
    return static_cast<int>(value);
}

void writeNumber(const Argument& argument)
{
    Logger::LogFormat(Logger::kTrace, "%s :\t %i", argument.name, asInt(argument.value));
}

void writePointer(const Argument& argument)
{
    Logger::LogFormat(Logger::kTrace, "%s :\t %c", argument.name, argument.shown != nullptr ? '*' : '0');
}

void writePointee(const Argument& argument)
{
    if (argument.shown != nullptr)
        Logger::LogFormat(Logger::kTrace, "*%s :\t %i", argument.name,
                          asInt(*static_cast<const CK_ULONG*>(argument.shown)));
    else
        Logger::LogFormat(Logger::kTrace, "%s :\t 0x%08x", argument.name, 0U);
}

void writeText(const Argument& argument)
{
    const auto* field = static_cast<const char*>(argument.shown);
    Logger::LogFormat(Logger::kTrace, "%s:\t %.*s", argument.name, asInt(argument.value),
                      field != nullptr ? field : "");
}

void writeVersion(const Argument& argument)
{
    const std::string text = version2string(*static_cast<const CK_VERSION*>(argument.shown));
    Logger::LogFormat(Logger::kTrace, "%s :\t %s", argument.name, text.c_str());
}

void writeHandles(const Argument& argument)
{
    std::string text = '*' + std::string(argument.name) + " :\t";
    const auto* handle = static_cast<const CK_OBJECT_HANDLE*>(argument.shown);
    for (CK_ULONG i = 0; i < argument.value; ++i)
        text += ' ' + number2string(handle[i]);
    Logger::Log(Logger::kTrace, text.c_str());
}

void writeMechanismName(const Argument& argument)
{
    Logger::Log(Logger::kTrace, mechanism2string(argument.value).c_str());
}

void writeMechanism(const Argument& argument)
{
    MechanismLogger(static_cast<const CK_MECHANISM*>(argument.shown));
}

void writeAttributes(const Argument& argument)
{
    TemplateLogger(static_cast<const CK_ATTRIBUTE*>(argument.shown), argument.value);
}

void writeSessionState(const Argument& argument)
{
    const std::string text = sessionState2string_ne(argument.value);
    Logger::LogFormat(Logger::kTrace, "%s :\t %s", argument.name, text.c_str());
}

/// `names` is one of the flag joiners.
template <std::string (*names)(unsigned long, const std::string&, const std::string&)>
void writeFlags(const Argument& argument)
{
    writeNumber(argument);
    Logger::Log(Logger::kTrace, names(argument.value, "\t", "\n").c_str());
}

} // namespace

Argument number(const char* name, CK_ULONG value)
{
    return {writeNumber, name, value, nullptr};
}

Argument pointer(const char* name, const void* pointer)
{
    return {writePointer, name, 0, pointer};
}

Argument address(const char* name, const void* pointer)
{
    return number(name, static_cast<CK_ULONG>(reinterpret_cast<std::uintptr_t>(pointer)));
}

Argument pointee(const char* name, const CK_ULONG* value)
{
    return {writePointee, name, 0, value};
}

Argument text(const char* name, const unsigned char* field, CK_ULONG width)
{
    return {writeText, name, width, field};
}

Argument version(const char* name, const CK_VERSION& version)
{
    return {writeVersion, name, 0, &version};
}

Argument handles(const char* name, const CK_OBJECT_HANDLE* first, CK_ULONG count)
{
    return {writeHandles, name, count, first};
}

Argument mechanismName(CK_MECHANISM_TYPE type)
{
    return {writeMechanismName, nullptr, type, nullptr};
}

Argument mechanism(const CK_MECHANISM* mechanism)
{
    return {writeMechanism, nullptr, 0, mechanism};
}

Argument attributes(const CK_ATTRIBUTE* first, CK_ULONG count)
{
    return {writeAttributes, nullptr, count, first};
}

Argument sessionFlags(const char* name, CK_FLAGS flags)
{
    return {writeFlags<sessionFlag2string>, name, flags, nullptr};
}

Argument slotFlags(const char* name, CK_FLAGS flags)
{
    return {writeFlags<slotFlag2string>, name, flags, nullptr};
}

Argument tokenFlags(const char* name, CK_FLAGS flags)
{
    return {writeFlags<tokenFlag2string>, name, flags, nullptr};
}

Argument mechanismFlags(const char* name, CK_FLAGS flags)
{
    return {writeFlags<mechanismFlag2string>, name, flags, nullptr};
}

Argument sessionState(const char* name, CK_STATE state)
{
    return {writeSessionState, name, state, nullptr};
}

void logArguments(Arguments arguments)
{
    if (!Logger::LogInit())
        return;
    for (const Argument& argument : arguments)
        argument.write(argument);
}

void logResults(Arguments results)
{
    if (!Logger::LogInit() || results.size() == 0)
        return;
    Logger::Log(Logger::kTrace, "[result]");
    logArguments(results);
}

CK_RV outcomeOf(Action<CK_RV()> action, Action<void(const PKCS11Exception&)> onFailure)
{
    try {
        return action();
    } catch (const PKCS11Exception& failure) {
        const CK_RV rv = ExceptionLogger(failure);
        onFailure(failure);
        return rv;
    } catch (...) {
        return CKR_FUNCTION_FAILED;
    }
}

CK_RV PKCS11Wrapper::run(const Call& call, Arguments arguments, Hook hook, CK_ULONG target,
                         Action<CK_RV()> action)
{
    CK_RV rv = CKR_OK;
    const MethodLogger scope(call.name, rv);
    logArguments(arguments);
    if (call.argumentsBad)
        rv = CKR_ARGUMENTS_BAD;
    else if (!isInitialised())
        rv = CKR_CRYPTOKI_NOT_INITIALIZED;
    else
        rv = outcomeOf(action, [&](const PKCS11Exception& failure) { runHook(hook, target, failure); });
    return rv;
}

void PKCS11Wrapper::runHook(Hook hook, CK_ULONG target, const PKCS11Exception& failure)
{
    try {
        if (hook == Hook::token)
            catchTokenException(target, failure);
        else if (hook == Hook::session)
            catchSessionException(target, failure);
    } catch (...) {
        // The call keeps its own code, whatever comes of the pause.
    }
}

CK_RV PKCS11Wrapper::plainCall(const Call& call, Arguments arguments, Action<CK_RV()> action)
{
    return run(call, arguments, Hook::none, 0, action);
}

CK_RV PKCS11Wrapper::answer(const Call& call, Arguments arguments, CK_RV rv, Arguments results)
{
    return plainCall(call, arguments, [&] {
        logResults(results);
        return rv;
    });
}

CK_RV PKCS11Wrapper::slotCall(const Call& call, CK_SLOT_ID slotID, Arguments arguments,
                              Action<CK_RV(Slot&)> action, Hook hook)
{
    return run(call, arguments, hook, slotID, [&]() -> CK_RV {
        Slot* slot = m_slots->getSlot(slotID);
        return slot != nullptr ? action(*slot) : CKR_SLOT_ID_INVALID;
    });
}

CK_RV PKCS11Wrapper::sessionCall(const Call& call, CK_SESSION_HANDLE hSession, Arguments arguments,
                                 Action<void(Session&)> action, Arguments results)
{
    return run(call, arguments, Hook::session, hSession, [&] {
        action(*m_sessions->getSession(hSession));
        logResults(results);
        return CKR_OK;
    });
}

} // namespace PKCS11
