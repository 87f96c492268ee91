/// The vocabulary in which a library method states its arguments, its one action and its results. The methods
/// of PKCS11Wrapper that run a call (sessionCall, slotCall, plainCall, answer) do the rest.
#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/PKCS11Exception.h"

#include <initializer_list>

namespace PKCS11 {

/// Name of a call, and the pointer without which it is refused with CKR_ARGUMENTS_BAD before anything else,
/// also when the library is not initialised.
struct Call {
    Call(const char* callName) : name(callName) {} // a name alone is a call
    Call(const char* callName, const void* needed) : name(callName), argumentsBad(needed == nullptr) {}

    const char* name;
    bool argumentsBad = false;
};

/// A callable that lives as long as the call it is passed to; never null.
template <class Signature>
class Action;

template <class Result, class... Parameters>
class Action<Result(Parameters...)> {
public:
    template <class Callable>
    Action(const Callable& callable)
        : m_callable(&callable), m_invoke([](const void* object, Parameters... parameters) -> Result {
              return (*static_cast<const Callable*>(object))(parameters...);
          })
    {
    }

    Result operator()(Parameters... parameters) const { return m_invoke(m_callable, parameters...); }

private:
    const void* m_callable;
    Result (*m_invoke)(const void* object, Parameters... parameters);
};

/// One argument or result as the trace shows it. It only refers to its value, which is read when the line is
/// written.
struct Argument {
    void (*write)(const Argument& argument);
    const char* name;
    CK_ULONG value;
    const void* shown;
};

/// "name :\t 5": the low 32 bits, signed.
Argument number(const char* name, CK_ULONG value);
/// "name :\t *", or "name :\t 0" for null.
Argument pointer(const char* name, const void* pointer);
/// A pointer's own value as a number.
Argument address(const char* name, const void* pointer);
/// An in/out length or an output number: "*name :\t 5", or "name :\t 0x00000000" for null.
Argument pointee(const char* name, const CK_ULONG* value);
/// "name:\t text": ends at a zero byte or with the field of that many bytes.
Argument text(const char* name, const unsigned char* field, CK_ULONG width);
Argument version(const char* name, const CK_VERSION& version);
/// "*name :\t 5 6 7".
Argument handles(const char* name, const CK_OBJECT_HANDLE* first, CK_ULONG count);
/// The name of a mechanism in a line of its own.
Argument mechanismName(CK_MECHANISM_TYPE type);
Argument mechanism(const CK_MECHANISM* mechanism);
Argument attributes(const CK_ATTRIBUTE* first, CK_ULONG count);
/// "name :\t 6", then the names of the set flags, each after a tab in a line of its own.
Argument sessionFlags(const char* name, CK_FLAGS flags);
Argument slotFlags(const char* name, CK_FLAGS flags);
Argument tokenFlags(const char* name, CK_FLAGS flags);
Argument mechanismFlags(const char* name, CK_FLAGS flags);
/// "name :\t CKS_RO_PUBLIC_SESSION".
Argument sessionState(const char* name, CK_STATE state);

using Arguments = std::initializer_list<Argument>;

void logArguments(Arguments arguments);
/// "[result]" and the results; nothing when there are none.
void logResults(Arguments results);

/// What the action returns, or the code of the failure that it throws: that of a PKCS11Exception, which is
/// logged and passed on, and CKR_FUNCTION_FAILED (6) for every other.
CK_RV outcomeOf(
    Action<CK_RV()> action, Action<void(const PKCS11Exception&)> onFailure = [](const PKCS11Exception&) {});

} // namespace PKCS11
