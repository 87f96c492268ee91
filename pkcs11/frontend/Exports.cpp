#include "pkcs11/frontend/FunctionList.h"

#include "pkcs11/Edition.h"
#include "pkcs11/frontend/SystemWrapper.h"

#include <cstddef>
#include <tuple>

namespace {

using PKCS11::CallScope;
using PKCS11::OnEscape;

/// The parameter types of a function, as the function table declares them.
template <class Function>
struct Signature;
template <class... Types>
struct Signature<CK_RV (*)(Types...)> {
    template <std::size_t index>
    using Parameter = std::tuple_element_t<index, std::tuple<Types...>>;
};

/// The last guard: no exception passes to the caller of the library. `first` is the call's first argument.
template <OnEscape onEscape, class Method, class First, class... Rest>
CK_RV guarded(const Method& method, First first, Rest... /*rest*/) noexcept
{
    const CallScope scope;
    try {
        return method();
    } catch (...) {
        if constexpr (onEscape == OnEscape::DropsOperation)
            wrapper.MakeMechanismInvalid(first);
        else
            static_cast<void>(first);
        return CKR_GENERAL_ERROR;
    }
}

} // namespace

// A function's parameters a0, a1 ... and the same as arguments, by their number.
#define QUARVEL_PARAMETER(name, index) Signature<CK_C_##name>::Parameter<index> a##index
#define QUARVEL_PARAMETERS_1(name) QUARVEL_PARAMETER(name, 0)
#define QUARVEL_PARAMETERS_2(name) QUARVEL_PARAMETERS_1(name), QUARVEL_PARAMETER(name, 1)
#define QUARVEL_PARAMETERS_3(name) QUARVEL_PARAMETERS_2(name), QUARVEL_PARAMETER(name, 2)
#define QUARVEL_PARAMETERS_4(name) QUARVEL_PARAMETERS_3(name), QUARVEL_PARAMETER(name, 3)
#define QUARVEL_PARAMETERS_5(name) QUARVEL_PARAMETERS_4(name), QUARVEL_PARAMETER(name, 4)
#define QUARVEL_PARAMETERS_6(name) QUARVEL_PARAMETERS_5(name), QUARVEL_PARAMETER(name, 5)
#define QUARVEL_PARAMETERS_7(name) QUARVEL_PARAMETERS_6(name), QUARVEL_PARAMETER(name, 6)
#define QUARVEL_PARAMETERS_8(name) QUARVEL_PARAMETERS_7(name), QUARVEL_PARAMETER(name, 7)
#define QUARVEL_ARGUMENTS_1 a0
#define QUARVEL_ARGUMENTS_2 QUARVEL_ARGUMENTS_1, a1
#define QUARVEL_ARGUMENTS_3 QUARVEL_ARGUMENTS_2, a2
#define QUARVEL_ARGUMENTS_4 QUARVEL_ARGUMENTS_3, a3
#define QUARVEL_ARGUMENTS_5 QUARVEL_ARGUMENTS_4, a4
#define QUARVEL_ARGUMENTS_6 QUARVEL_ARGUMENTS_5, a5
#define QUARVEL_ARGUMENTS_7 QUARVEL_ARGUMENTS_6, a6
#define QUARVEL_ARGUMENTS_8 QUARVEL_ARGUMENTS_7, a7

#define QUARVEL_EXPORT(name, count, onEscape)                                                                \
    extern "C" __attribute__((visibility("default"))) CK_RV C_##name(QUARVEL_PARAMETERS_##count(name))       \
    {                                                                                                        \
        return guarded<OnEscape::onEscape>([&] { return wrapper.name(QUARVEL_ARGUMENTS_##count); },          \
                                           QUARVEL_ARGUMENTS_##count);                                       \
    }
QUARVEL_CRYPTOKI_FUNCTIONS(QUARVEL_EXPORT)

namespace PKCS11 {

void set_function_list(CK_FUNCTION_LIST& list)
{
    list.version = {2, 11};
#define QUARVEL_ENTRY(name, count, onEscape) list.C_##name = C_##name;
    QUARVEL_CRYPTOKI_FUNCTIONS(QUARVEL_ENTRY)
}

} // namespace PKCS11
