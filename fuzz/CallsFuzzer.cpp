// A caller that calls C_ functions in any order with any arguments: handles, numbers, null pointers, buffers
// that are as long as they are said to be.
#include "fuzz/CardInput.h"
#include "pkcs11/frontend/FunctionList.h"
#include "tests/support/Application.h"

#include <deque>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <utility>

namespace {

using vcard::Bytes;

/// Makes the arguments of one call.
class Arguments {
public:
    explicit Arguments(fuzz::Reader& input) : m_input(input) {}

    template <class T>
    T make()
    {
        using Pointee = std::remove_pointer_t<T>;
        constexpr bool kHasCount = std::is_same_v<Pointee, CK_BYTE> ||
                                   std::is_same_v<Pointee, CK_ATTRIBUTE> || std::is_same_v<Pointee, CK_ULONG>;
        const bool isCount = std::exchange(m_hasCount, false);
        if constexpr (std::is_integral_v<T>) {
            return static_cast<T>(isCount ? m_count : number());
        } else if constexpr (std::is_void_v<Pointee> || std::is_function_v<Pointee>) {
            return nullptr;
        } else {
            if constexpr (std::is_same_v<Pointee, CK_ULONG>)
                if (isCount)
                    return &m_counts.emplace_back(m_count);
            T made = array<Pointee>();
            const CK_ULONG count = m_count;
            for (CK_ULONG i = 0; made != nullptr && i < count; ++i)
                fill(made[i]);
            m_count = count;
            m_hasCount = kHasCount;
            return made;
        }
    }

private:
    /// Small ones most often.
    CK_ULONG number()
    {
        const int kind = m_input.byte();
        return kind < 200   ? static_cast<CK_ULONG>(kind % 16)
               : kind < 250 ? static_cast<CK_ULONG>(m_input.twoBytes())
                            : ~static_cast<CK_ULONG>(kind - 250);
    }
    /// As long as m_count says, or null with any count.
    template <class T>
    T* array()
    {
        const int kind = m_input.byte();
        m_count = kind == 0    ? number()
                  : kind < 128 ? static_cast<CK_ULONG>(kind)
                               : static_cast<CK_ULONG>(m_input.twoBytes() % 1024 + 1);
        if (kind == 0)
            return nullptr;
        // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers has their size
        Bytes& room = m_rooms.emplace_back(m_count * sizeof(T), static_cast<unsigned char>(m_input.byte()));
        const Bytes given = m_input.bytes(std::min<std::size_t>(room.size(), 8));
        std::copy(given.begin(), given.end(), room.begin());
        return reinterpret_cast<T*>(room.data());
    }
    /// Pointers lead somewhere; to what need not be looked at, nowhere.
    void fill(CK_ATTRIBUTE& entry)
    {
        const auto type = static_cast<CK_ATTRIBUTE_TYPE>(m_input.twoBytes() % 0x200);
        CK_BYTE* value = array<CK_BYTE>();
        entry = {type, value, m_count};
    }
    void fill(CK_MECHANISM& mechanism) { mechanism = {number(), nullptr, number()}; }
    template <class Other>
    void fill(Other&)
    {
    }

    fuzz::Reader& m_input;
    std::deque<Bytes> m_rooms;
    std::deque<CK_ULONG> m_counts;
    CK_ULONG m_count = 0;
    bool m_hasCount = false;
};

template <class... Types>
CK_RV call(CK_RV (*function)(Types...), fuzz::Reader& input)
{
    Arguments arguments(input);
    const std::tuple<Types...> made{arguments.make<Types>()...}; // in the order of the braces
    return std::apply(function, made);
}

using Caller = CK_RV (*)(fuzz::Reader&);
#define QUARVEL_CALLER(name) [](fuzz::Reader& input) { return call(C_##name, input); },
constexpr Caller kCallers[] = {QUARVEL_CRYPTOKI_FUNCTIONS(QUARVEL_CALLER)};
#undef QUARVEL_CALLER
/// All but C_WaitForSlotEvent, the last one, which may wait.
constexpr std::size_t kCallerCount = std::size(kCallers) - 1;

/// Not initialised, as in a new process.
void startAnew()
{
    CK_ULONG count = 0;
    C_Initialize(nullptr);
    while (C_GetSlotList(CK_FALSE, nullptr, &count) != CKR_CRYPTOKI_NOT_INITIALIZED)
        C_Finalize(nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    fuzz::Reader input(data, size);
    const auto families = static_cast<int>(vcard::familiesEnd() - vcard::familiesBegin());
    const vcard::Family& family = vcard::familiesBegin()[input.byte() % families];
    fakepcsc::reset();
    SystemWrapper::s_logPath = "/dev/null"; // what the trace shows is looked at too
    Application application;
    application.start(family.make({"123456", 1024, ""}));
    application.login("123456");
    for (int calls = 0; calls < 64 && !input.atEnd(); ++calls)
        kCallers[static_cast<std::size_t>(input.byte()) % kCallerCount](input);
    startAnew();
    Application::require(fakepcsc::open().handles == 0);
    return 0;
}
