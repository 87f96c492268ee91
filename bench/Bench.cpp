/// What the library itself costs, over a stand-in for PC/SC and a card that answers at once. The trace, in a
/// file of the working directory, is part of the numbers.

#include "pkcs11/frontend/SystemWrapper.h"
#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/PivCard.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <array>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

using vcard::Bytes;

/// Asks a PIV card once for each command, and from then on repeats what it answered.
class ReplayedCard : public vcard::Card {
public:
    Bytes atr() const override { return m_card.atr(); }
    void reset() override {} // a command that is new after it must find the card as the known ones left it
    Bytes transmit(const Bytes& command) override
    {
        const bool fetchesRest = command.size() > 1 && command[1] == 0xC0;
        m_exchange = fetchesRest ? vcard::join({m_exchange, command}) : command;
        const auto known = m_answers.find(m_exchange);
        return known != m_answers.end() ? known->second : m_answers[m_exchange] = m_card.transmit(command);
    }

private:
    vcard::PivCard m_card;
    Bytes m_exchange; // a command and the GET RESPONSEs behind it
    std::map<Bytes, Bytes> m_answers;
};

void require(CK_RV result)
{
    if (result != CKR_OK)
        throw std::runtime_error("a call failed");
}

/// The library with one card, a session, and the user logged in.
struct Application {
    Application()
    {
        static const auto card = std::make_shared<ReplayedCard>();
        SystemWrapper::s_logPath = "quarvel-bench.log";
        fakepcsc::reset();
        fakepcsc::insertCard(fakepcsc::addReader("Reader"), card);
        require(C_Initialize(nullptr));
        require(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session));
        std::array<CK_UTF8CHAR, 6> pin = {'1', '2', '3', '4', '5', '6'};
        require(C_Login(session, CKU_USER, pin.data(), pin.size()));
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() { C_Finalize(nullptr); }

    CK_OBJECT_HANDLE firstKey() const
    {
        CK_OBJECT_CLASS wanted = CKO_PRIVATE_KEY;
        CK_ATTRIBUTE filter = {CKA_CLASS, &wanted, sizeof wanted};
        std::array<CK_OBJECT_HANDLE, 16> found{};
        CK_ULONG count = 0;
        require(C_FindObjectsInit(session, &filter, 1));
        require(C_FindObjects(session, found.data(), found.size(), &count));
        require(C_FindObjectsFinal(session));
        return found.front();
    }

    CK_SESSION_HANDLE session = 0;
};

template <class Call>
void measure(benchmark::State& state, Call call)
{
    for (auto _ : state) {
        call();
        fakepcsc::clearCalls();
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

/// The longest trace of a call that sends nothing.
void tokenInfo(benchmark::State& state)
{
    const Application application;
    CK_TOKEN_INFO info{};
    measure(state, [&] { require(C_GetTokenInfo(1, &info)); });
}
BENCHMARK(tokenInfo)->Unit(benchmark::kMicrosecond)->Iterations(20000);

/// C_SignInit and C_Sign with a key of 2048 bits.
void signature(benchmark::State& state)
{
    const Application application;
    const CK_OBJECT_HANDLE key = application.firstKey();
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    std::array<CK_BYTE, 51> data{};
    std::array<CK_BYTE, 256> out{};
    measure(state, [&] {
        CK_ULONG length = out.size();
        require(C_SignInit(application.session, &mechanism, key));
        require(C_Sign(application.session, data.data(), data.size(), out.data(), &length));
    });
}
BENCHMARK(signature)->Unit(benchmark::kMicrosecond)->Iterations(5000);

/// From C_Initialize to the handle of a key, and C_Finalize.
void firstObjectList(benchmark::State& state)
{
    measure(state, [] { benchmark::DoNotOptimize(Application().firstKey()); });
}
BENCHMARK(firstObjectList)->Unit(benchmark::kMicrosecond)->Iterations(500);

} // namespace

BENCHMARK_MAIN();
