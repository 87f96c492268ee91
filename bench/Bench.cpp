// What the library itself costs, over a stand-in for PC/SC and a card that answers at once. The trace, in a
// file of the working directory, is part of the numbers.

#include "tests/support/Application.h"
#include "tools/vcard/PivCard.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <map>
#include <memory>

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
    Bytes m_exchange; // a command and the GET RESPONSEs after it
    std::map<Bytes, Bytes> m_answers;
};

/// The library with one card, a session, and the user logged in.
struct Program : Application {
    Program()
    {
        static const auto card = std::make_shared<ReplayedCard>();
        SystemWrapper::s_logPath = "quarvel-bench.log";
        fakepcsc::reset();
        start(card);
        require(login("123456") == CKR_OK);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() { C_Finalize(nullptr); }
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
    Program program;
    measure(state, [&] { program.tokenInfo(); });
}
BENCHMARK(tokenInfo)->Unit(benchmark::kMicrosecond)->Iterations(20000);

/// C_SignInit and C_Sign with a key of 2048 bits.
void signature(benchmark::State& state)
{
    Program program;
    const CK_OBJECT_HANDLE key = program.find(CKO_PRIVATE_KEY);
    const Bytes data(51);
    measure(state, [&] { Program::require(program.sign(key, CKM_RSA_PKCS, data).rv == CKR_OK); });
}
BENCHMARK(signature)->Unit(benchmark::kMicrosecond)->Iterations(5000);

/// From C_Initialize to the handle of a key, and C_Finalize.
void firstObjectList(benchmark::State& state)
{
    measure(state, [] { benchmark::DoNotOptimize(Program().find(CKO_PRIVATE_KEY)); });
}
BENCHMARK(firstObjectList)->Unit(benchmark::kMicrosecond)->Iterations(500);

} // namespace

BENCHMARK_MAIN();
