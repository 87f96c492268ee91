/// A card that plays one sequence of commands: each must come as written and in this order. Texts are
/// those of ByteText.h, without blanks.
#pragma once

#include "tests/support/ByteText.h"
#include "tools/vcard/IsoCard.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace scripted {

using vcard::Bytes;

/// Commands with their answers after a colon, 9000 where there is none.
class Card final : public vcard::Card {
public:
    explicit Card(const std::string& script, const std::string& historical = "", bool t0 = false)
        : m_script(script), m_atr(vcard::makeAtr(bytes(historical), t0))
    {
    }
    ~Card() override
    {
        std::string left;
        EXPECT_FALSE(m_script >> left) << left << " was not sent";
    }
    Bytes atr() const override { return m_atr; }
    void reset() override { ++m_resets; }
    Bytes transmit(const Bytes& command) override
    {
        std::string step = "nothing:6F00";
        m_script >> step;
        const size_t colon = std::min(step.find(':'), step.size());
        EXPECT_EQ(vcard::toHex(command), step.substr(0, colon));
        return bytes(colon < step.size() ? step.substr(colon + 1) : "9000");
    }

    int m_resets = 0;

private:
    std::istringstream m_script;
    Bytes m_atr;
};

} // namespace scripted
