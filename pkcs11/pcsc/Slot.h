#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/pcsc/PCSCSystem.h"

#include <atomic>
#include <memory>
#include <string>

namespace PKCS11 {

class Object;
class PKCS11Wrapper;
class Token;

/// How the information of a slot reaches a caller's record.
inline void operator<<(CK_SLOT_INFO* out, const CK_SLOT_INFO& info)
{
    *out = info;
}

/// A PKCS#11 slot: its description, and the token of the card in it.
class Slot {
public:
    explicit Slot(PKCS11Wrapper* wrapper);
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    virtual ~Slot();

    /// True when a card is in the reader. Throws CKR_DEVICE_ERROR (0x30) when the reader cannot be asked.
    virtual bool isTokenPresent() = 0;
    /// A new token for the card in the reader, or none when no driver takes it. Throws
    /// CKR_TOKEN_NOT_RECOGNIZED (0xE1).
    virtual std::unique_ptr<Token> createToken() = 0;
    virtual CK_RV InitToken(CK_BYTE* pin, CK_ULONG pinLen, CK_BYTE* label) = 0;
    virtual const std::string& GetName() const = 0;

    /// The slot information, CKF_TOKEN_PRESENT brought up to date. Throws what isTokenPresent throws.
    CK_SLOT_INFO getInfo();
    /// The first 63 characters of the description, trailing blanks cut.
    std::string getSlotDescription() const;

    /// The token of the card, built on demand. When the card was exchanged, the slot's sessions are paused
    /// and the old token is dropped first. Throws CKR_DEVICE_REMOVED (0x32), CKR_TOKEN_NOT_PRESENT (0xE0),
    /// CKR_TOKEN_NOT_RECOGNIZED (0xE1), and what isTokenPresent throws.
    Token* getToken();
    /// The same right after isTokenPresent() gave true, without asking the reader again.
    Token* getTokenOfPresentCard();
    /// True when a token is held whose card handle still stands. Belongs to the interface; nothing in the
    /// library calls it.
    bool hasValidTokenHandle();

    /// Logs the token that the slot holds out if exactly one session of the slot is in the session list.
    void logoutLastSession();
    /// Writes the session counts into the information of the token that the slot holds.
    void updateSessionCount();
    /// Drops the operations of all sessions that work with the object.
    void endOperations(const Object* object);

    /// Set when a slot event was reported, until the next wait. True from the start, so that the first wait
    /// only learns the reader's state.
    bool eventPending() const { return m_eventPending; }
    void setEventPending(bool pending) { m_eventPending = pending; }
    /// PC/SC event state bits at the last refresh.
    PCSCWord readerState() const { return m_readerState; }
    void setReaderState(PCSCWord state) { m_readerState = state; }

protected:
    /// For destructors of slots whose token still talks to them.
    void deleteToken();

    CK_SLOT_INFO m_info;

private:
    /// The held token, or a new one for the card that is present.
    Token* tokenOfThisCard();
    void dropTokenOfOtherCard();
    /// Pauses or ends the slot's sessions, whose operations hold objects of the token, then deletes it. The
    /// PC/SC result tells why.
    void dropToken(long status);
    struct SessionCounts {
        CK_ULONG all = 0;
        CK_ULONG readWrite = 0;
    };
    SessionCounts countSessions() const;

    // Several waits may look at a slot at the same time.
    std::atomic<bool> m_eventPending{true};
    std::atomic<PCSCWord> m_readerState{0};
    std::unique_ptr<Token> m_token;
    PKCS11Wrapper* m_wrapper;
};

} // namespace PKCS11
