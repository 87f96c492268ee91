/// The input of a fuzzer as numbers and bytes, and a card that takes its answers from it.
#pragma once

#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/Bytes.h"
#include "tools/vcard/Families.h"

#include <algorithm>
#include <cstddef>
#include <memory>

namespace fuzz {

using vcard::Bytes;

/// Zeros after the end.
class Reader {
public:
    Reader(const unsigned char* data, std::size_t size) : m_at(data), m_end(data + size) {}
    bool atEnd() const { return m_at == m_end; }
    int byte() { return atEnd() ? 0 : *m_at++; }
    int twoBytes()
    {
        const int high = byte();
        return high << 8 | byte();
    }
    Bytes bytes(std::size_t count)
    {
        const Bytes taken(m_at, m_at + std::min<std::size_t>(count, m_end - m_at));
        m_at += taken.size();
        return taken;
    }

private:
    const unsigned char* m_at;
    const unsigned char* m_end;
};

/// In the first reader. Answers a command as the next record says: its kind and what belongs to that.
class LyingCard final : public vcard::Card {
public:
    LyingCard(const char* family, Reader& input)
        : m_input(input), m_card(vcard::findFamily(family)->make({"123456", 1024, ""}))
    {
    }
    Bytes atr() const override { return m_card->atr(); }
    void reset() override { m_card->reset(); }
    Bytes transmit(const Bytes& command) override
    {
        enum { kHonest, kLiteral, kChanged, kCut, kReset, kKinds };
        Bytes answer = m_card->transmit(command);
        const int kind = m_input.byte() % kKinds;
        if (kind == kLiteral)
            answer = m_input.bytes(m_input.twoBytes());
        else if (kind == kChanged)
            answer.at(m_input.twoBytes() % answer.size()) ^= static_cast<unsigned char>(m_input.byte());
        else if (kind == kCut)
            answer.resize(std::min<std::size_t>(m_input.twoBytes(), answer.size()));
        else if (kind == kReset)
            fakepcsc::resetCard(0);
        return answer;
    }

private:
    Reader& m_input;
    std::unique_ptr<vcard::Card> m_card;
};

} // namespace fuzz
