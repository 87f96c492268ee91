/// A card that plays one sequence of commands: each must come as written and in this order. Texts are
/// hexadecimal, blanks allowed.
#pragma once

#include "tools/vcard/Card.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace scripted {

using vcard::Bytes;

inline Bytes bytes(const std::string& hex)
{
    Bytes result;
    int digits = 0;
    for (const char c : hex) {
        if (c == ' ')
            continue;
        const int value = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (digits++ % 2 == 0)
            result.push_back(static_cast<unsigned char>(value << 4));
        else
            result.back() = static_cast<unsigned char>(result.back() | value);
    }
    return result;
}
/// An ATR for T=1 with these historical bytes (ISO/IEC 7816-3).
inline Bytes atrWith(const std::string& historical)
{
    const Bytes tail = bytes(historical);
    Bytes atr{0x3B, static_cast<unsigned char>(0x80 | tail.size()), 0x01};
    atr.insert(atr.end(), tail.begin(), tail.end());
    unsigned char check = 0;
    for (std::size_t i = 1; i < atr.size(); ++i)
        check = static_cast<unsigned char>(check ^ atr[i]);
    atr.push_back(check);
    return atr;
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
    int resets() const { return m_resets; }

    Bytes atr() const override { return m_atr; }
    void reset() override { ++m_resets; }
    Bytes transmit(const Bytes& command) override
    {
        if (m_script.empty() || command != bytes(m_script.front().first)) {
            ADD_FAILURE() << "unexpected command " << ::testing::PrintToString(command) << ", expected "
                          << (m_script.empty() ? "none" : m_script.front().first);
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
