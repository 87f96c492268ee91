/// A card that plays one sequence of commands: each must come as written and in this order. Texts are
/// hexadecimal, blanks allowed.
#pragma once

#include "tools/vcard/Bytes.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>

namespace scripted {

using vcard::Bytes;

inline Bytes bytes(std::string hex)
{
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    return vcard::fromHex(hex);
}
/// An ATR for T=1 with these historical bytes (ISO/IEC 7816-3).
inline Bytes atrWith(const std::string& historical)
{
    const Bytes tail = bytes(historical);
    const Bytes body = vcard::join({{static_cast<unsigned char>(0x80 | tail.size()), 0x01}, tail});
    const auto check = std::accumulate(body.begin(), body.end(), 0, std::bit_xor<>());
    return vcard::join({{0x3B}, body, {static_cast<unsigned char>(check)}});
}

class Card final : public vcard::Card {
public:
    explicit Card(Bytes atr = atrWith("")) : m_atr(std::move(atr)) {}
    ~Card() override
    {
        if (!m_script.empty())
            ADD_FAILURE() << m_script.size() << " commands were not sent, the first "
                          << m_script.front().first;
    }
    /// The answer ends with the status word.
    Card& expect(const std::string& command, const std::string& answer)
    {
        m_script.emplace_back(command, answer);
        return *this;
    }
    /// Commands with their answers behind a colon, 9000 where there is none.
    void expectAll(const std::string& script)
    {
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            const size_t colon = step.find(':');
            expect(step.substr(0, colon), colon == step.npos ? "9000" : step.substr(colon + 1));
        }
    }
    int resets() const { return m_resets; }

    Bytes atr() const override { return m_atr; }
    void reset() override { ++m_resets; }
    Bytes transmit(const Bytes& command) override
    {
        const std::string expected = m_script.empty() ? "" : m_script.front().first;
        if (m_script.empty() || command != bytes(expected)) {
            ADD_FAILURE() << "unexpected command " << vcard::toHex(command) << ", expected " << expected;
            return {0x6F, 0x00};
        }
        const Bytes answer = bytes(m_script.front().second);
        m_script.pop_front();
        return answer;
    }

private:
    Bytes m_atr;
    std::deque<std::pair<std::string, std::string>> m_script;
    int m_resets = 0;
};

} // namespace scripted
