#pragma once

#include "pkcs11/pcsc/Slot.h"
#include "pkcs11/pcsc/StatusWord.h"
#include "pkcs11/token/Blob.h"

#include <string>
#include <vector>

namespace PKCS11 {

/// One PC/SC reader: the channel to its card, the APDU transport with its status-word rules, and the
/// identification of the card.
///
/// The send operations return the status word and leave its meaning to the caller; they throw
/// CKR_GENERAL_ERROR (5) when the reader or PC/SC fails, and none of them opens the channel. Lc is one byte,
/// the data length modulo 256.
class PCSCSlot final : public Slot {
public:
    /// An entry of an ATR list file: ATR as hexadecimal text, vendor or operating system, card-type word.
    struct ATR_OS_MODEL {
        std::string atr;
        std::string os;
        std::string cardType;
    };

    PCSCSlot(PKCS11Wrapper* wrapper, PCSCSystem* system, const char* readerName);
    ~PCSCSlot() override;

    bool isTokenPresent() override;
    std::unique_ptr<Token> createToken() override;
    /// Does nothing.
    CK_RV InitToken(CK_BYTE* pin, CK_ULONG pinLen, CK_BYTE* label) override;
    /// The PC/SC reader name.
    const std::string& GetName() const override { return m_readerName; }

    // --- Channel ---

    /// Connects if not connected. Throws CKR_GENERAL_ERROR (5) when that fails.
    bool CreateChannel();
    /// Disconnects if connected, leaving the card as it is. Never throws.
    bool CloseChannel();
    /// Warm reset of the card: every selection and login on it is lost. Throws CKR_GENERAL_ERROR (5).
    void ResetChannel();
    /// The same in the middle of a piece of work that the card must not be left in: a disturbance. Where the
    /// reader fails, before the next command.
    void forceReset();
    /// Reconnects to a card that another program has reset, leaving it as it is unless it was switched off;
    /// tries again while the service has no protocol for the card. The PC/SC result; SCARD_W_REMOVED_CARD for
    /// another card.
    long RejoinChannel();
    bool isConnected() const { return m_card != 0; }
    /// The PC/SC result of SCardStatus on the card handle; 0 is success. SCARD_W_REMOVED_CARD for a card that
    /// may have been exchanged.
    long cardStatus();
    /// PC/SC's handle of the card, 0 while not connected.
    PCSCHandle cardHandle() const { return m_card; }

    // --- Disturbances ---
    // An exchange that meets a reset or a removal reconnects and goes on with a card that has lost its
    // selections and verified PINs. What belongs to the card as it was is told by these.

    /// A moment in the life of the card.
    using CardMark = int;
    CardMark cardMark() const { return m_disturbances; }
    /// True while every exchange since then went to the card without a reset or a removal.
    bool isUndisturbedSince(CardMark mark) const { return mark == m_disturbances; }
    /// The same for what is selected and verified on the card, which is gone too where other programs may
    /// have used it since.
    CardMark selectionMark() const { return m_disturbances + m_visits; }
    /// Before a piece of work on the card, and before each command: from now on selectionMark() tells whether
    /// others may have been there. Throws CKR_DEVICE_REMOVED (0x32) where that shows another card.
    void enter();
    /// True when the channel was rejoined after a removal, so that another card may be there: no PIN goes to
    /// it any more, and its token is dropped at the next use.
    bool isCardExchanged() const { return m_cardExchanged; }
    /// For whoever finds out that the card was removed: the card counts as exchanged.
    void noteExchange() { m_cardExchanged = true; }

    // --- Exchange ---

    /// One exchange without status-word rules; after a reset or removal the card is reconnected and the
    /// command sent once more, unless it carries a PIN and the card may be another one. `resp` must hold 638
    /// bytes; *respLen becomes the length of the data without the status word.
    [[nodiscard]] int SendCmdIntern(const char* cmd, int cmdLen, char* resp, int* respLen);
    [[nodiscard]] int SendCmdIntern(const Blob& cmd, Blob& resp);
    /// With the rules: 6Cxx sends once more with the right Le, unless the command carries a PIN and so has
    /// none, and 61xx without data fetches the answer once.
    [[nodiscard]] int SendCmd(const char* cmd, int cmdLen, char* resp, int* respLen);
    /// The command as hexadecimal text. Belongs to the interface; nothing in the library calls it.
    [[nodiscard]] int SendCmd(const std::string& hex, char* resp, int* respLen);
    [[nodiscard]] int SendCmd(const Blob& cmd, Blob& resp);
    [[nodiscard]] int SendCmd(const Blob& cmd);
    /// header, Lc, data, Le.
    [[nodiscard]] int Send(const Blob& header, const Blob& data, unsigned char le, Blob& resp);
    /// header, Lc, data.
    [[nodiscard]] int Send(const Blob& header, const Blob& data, Blob& resp);
    [[nodiscard]] int Send(const Blob& header, const Blob& data);
    /// header, Lc, data; gathers the answer over every 61xx. A card's error shows as an empty or short
    /// result, and in the last status word.
    Blob SendCard(const Blob& header, const Blob& data, int* status = nullptr);
    /// SendCmd, then GET RESPONSE as long as the status is 61xx. For answers of more than 256 bytes.
    [[nodiscard]] int SendCmdChained(const Blob& cmd, Blob& resp);

    // --- Files ---

    /// Reads the selected transparent file in chunks of 241 bytes, at most 4096 bytes of it, which `buf` must
    /// hold.
    [[nodiscard]] int ReadBinary(char* buf, int* len);
    [[nodiscard]] int ReadBinary(Blob& out);
    /// Reads the selected transparent file in chunks of 256 bytes, trying other lengths where the card wants
    /// them. `isWhole` becomes false when an error of the card ended the reading before the file did.
    Blob ReadBinaryEF(bool* isWhole = nullptr);
    /// SELECT by DF name; the answer of the card. Throws CKR_DEVICE_ERROR (0x30) unless 9000.
    Blob SelectAppl(const Blob& aid);
    /// The name as hexadecimal text. Belongs to the interface; nothing in the library calls it.
    Blob SelectAppl(const char* aidHex);
    /// SELECT EF under the current DF; the status of the card.
    [[nodiscard]] int trySelectEF(const Blob& fid);
    /// The same; throws CKR_DEVICE_ERROR (0x30) unless 9000.
    void SelectEF_IAS(const Blob& fid);
    void SelectEF_IAS(unsigned short fid);

    // --- Identification ---

    /// The ATR of the card in the reader, empty if there is none.
    Blob GetATR();
    /// Classifies the card: its vendor or operating system ("unknown card"), and the card-type word.
    std::string GetOS(const Blob& atr, Blob& cardType);
    /// Always true; loads nothing.
    bool ReadATRIniFile(const char* path);
    /// Selects the PIV application; true when the card has it.
    bool IsPIVToken();
    /// Probes for an IAS-ECC application and keeps its identifier. Throws CKR_DEVICE_ERROR "AID not found".
    bool CheckIAS();
    /// The kept IAS application identifier, or the one that EF.DIR names. Throws CKR_DEVICE_ERROR "AID not
    /// found".
    Blob GetAIDofIAS();

    /// Which key pair of an ACOS EDU card to show; 0 from the start.
    int eduVariant() const { return m_eduVariant; }
    void setEduVariant(int variant) { m_eduVariant = variant; }

private:
    /// Loops that a card drives end after so many commands.
    static constexpr int kMostRounds = 1024;

    [[nodiscard]] int fetchAnswer(unsigned char le, char* resp, int* respLen);
    /// Appends answers as long as the status announces more, and returns the last status.
    [[nodiscard]] int collect(int sw, Blob& data);
    /// Selects the applications in turn, then the two PKCS#15 files below the last; false when one is
    /// missing.
    bool selectsPKCS15(const std::vector<Blob>& applications);
    /// Identifies the card and builds its token; once more when the card was disturbed meanwhile.
    std::unique_ptr<Token> readToken();
    std::unique_ptr<Token> buildToken();
    /// After an exchange that met a reset or a removal.
    void recover(long result);
    /// The reset that forceReset() could not have.
    void resetIfOwed();
    long reconnect(PCSCWord action);
    /// SCardStatus: its result, and the SCARD_ bits of the card's state.
    long queryStatus(PCSCWord& state) const;
    /// What the reader tells; false when it cannot be asked.
    bool readState(ReaderState& state);
    /// Notes an exchange unless the reader shows that its card is the one that the channel was opened to, and
    /// was never taken out; true when it does. PC/SC tells the last thing that happened to a card: a removal
    /// goes unnoticed where another program has reset the next card.
    bool confirmCard();

    std::string m_readerName;
    PCSCSystem* m_system;
    PCSCHandle m_card = 0;
    PCSCWord m_protocol = 0;
    /// The number of the insertion when the reader was last asked.
    PCSCWord m_seenInsertion = 0;
    /// The same before the channel was opened.
    PCSCWord m_insertion = 0;
    CardMark m_disturbances = 0;
    /// How often others may have used the card between two calls.
    int m_visits = 0;
    bool m_cardExchanged = false;
    bool m_owesReset = false; ///< before the next command
    int m_eduVariant = 0;
    Blob m_iasAid;
    std::vector<ATR_OS_MODEL> m_atrList;
};

} // namespace PKCS11
