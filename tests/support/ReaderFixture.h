/// One fake reader with the PCSCSlot that drives it, and the trace of the library.
#pragma once

#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tests/fakepcsc/FakePCSC.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedCard.h"

/// Keeps the lines of the trace, "level text", while it is installed.
struct TraceRecorder final : PKCS11::Logger {
    explicit TraceRecorder(std::vector<std::string>& lines) : m_lines(lines) {}
    void doLog(short level, const char* text) override
    {
        m_lines.push_back(std::to_string(level) + " " + text);
    }
    void doSetLoglevel(short /*level*/) override {}
    std::vector<std::string>& m_lines;
};

class ReaderFixture : public ::testing::Test {
protected:
    ReaderFixture()
    {
        fakepcsc::reset();
        m_reader = fakepcsc::addReader("Reader");
        PKCS11::PCSCSystem* system = PKCS11::CreatePCSCSystem(nullptr);
        m_slot = std::make_unique<PKCS11::PCSCSlot>(nullptr, system, "Reader");
        system->release();
    }
    ~ReaderFixture() override
    {
        m_slot->CloseChannel();
        m_slot.reset();
        EXPECT_EQ(fakepcsc::openHandles(), 0);
        EXPECT_EQ(fakepcsc::openContexts(), 0);
        fakepcsc::reset();
    }
    /// Puts a card without a script in and starts the record of calls anew.
    scripted::Card& insert(const std::string& historical = "", bool t0 = false)
    {
        const auto card = std::make_shared<scripted::Card>(scripted::atrWith(historical));
        fakepcsc::insertCard(m_reader, card, t0);
        fakepcsc::clearCalls();
        return *card;
    }
    scripted::Card& connect(bool t0 = false)
    {
        scripted::Card& card = insert("", t0);
        m_slot->CreateChannel();
        return card;
    }

    int m_reader = 0;
    std::unique_ptr<PKCS11::PCSCSlot> m_slot;
};
