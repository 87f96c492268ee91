/// What the key operations of a CardOS card share: the way to the key, its security environment, and the
/// command that computes with it.
#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/token/Blob.h"

namespace PKCS11 {

class CardOSPublicKey;
class CardOSToken;

// V5.0: MANAGE SECURITY ENVIRONMENT for key 02, to encipher and decipher with it (RSA keys sign that way too)
// and to sign with it.
inline constexpr char kUseCipherKeyV50[] = "002241b803840102";
inline constexpr char kUseSignKeyV50[] = "002241b603840102";

/// An operation with the key of a directory entry. Where the card refuses a step, CKR_DEVICE_ERROR (0x30) is
/// thrown with the operation's where-text.
class CardOSOperation {
public:
    CardOSOperation(const CardOSOperation&) = delete;
    CardOSOperation& operator=(const CardOSOperation&) = delete;

protected:
    CardOSOperation(CardOSToken& token, int index, CK_MECHANISM_TYPE type, const char* where);
    ~CardOSOperation() = default;

    CardOSToken& token() const { return m_token; }
    CK_MECHANISM_TYPE type() const { return m_type; }
    const char* where() const { return m_where; }

    /// Throws CKR_USER_NOT_LOGGED_IN (0x101) unless the user is logged in.
    void requireLogin() const;
    void selectKeyDF() const;
    /// The status of a whole command.
    [[nodiscard]] int send(const char* command) const;
    void require(int sw) const;
    /// PERFORM SECURITY OPERATION with the header; more than 249 bytes go as an extended command.
    Blob perform(const char* header, const Blob& field) const;

private:
    CardOSToken& m_token;
    int m_index;
    CK_MECHANISM_TYPE m_type;
    const char* m_where;
};

/// Signing and decryption: the card decides by the PIN, and deciphers with the bare key.
class CardOSPrivateKeyOperation : public CardOSOperation {
protected:
    using CardOSOperation::CardOSOperation;
    ~CardOSPrivateKeyOperation() = default;

    /// Verifies the PIN again, selects the key and sets the security environment, on V5.0 with the command
    /// given. Returns 9000, or the status of a card before V5.0 that has no environment to restore.
    [[nodiscard]] int prepare(const char* environmentV50) const;
    Blob decipher(const Blob& block) const;
};

/// Encryption and verification: the card enciphers with the public key, which cards before V5.0 are given
/// first.
class CardOSPublicKeyOperation : public CardOSOperation {
public:
    /// A number as the key-loading command takes it: one length byte, and a leading 00 unless the number
    /// begins with one. The length byte wraps modulo 256, deliberately: the card refuses what it cannot take.
    static Blob CreateCCMS(const Blob& value);

protected:
    CardOSPublicKeyOperation(CardOSPublicKey& key, CK_MECHANISM_TYPE type, const char* where);
    ~CardOSPublicKeyOperation() = default;

    CardOSPublicKey& key() const { return m_key; }
    /// The card computes with a key that is written to it first, which takes a login.
    bool loadsKey() const;
    /// Selects the key, loads it where it must be, sets the security environment, and enciphers the field.
    Blob encipher(const Blob& field) const;

private:
    void prepare() const;
    /// Writes the key to the card. Where the reader fails in the middle of that, the card is reset, which
    /// closes the loading.
    void loadKey(const Blob& modulus, const Blob& exponent) const;
    /// The same without that. Where the card refuses, the desktop edition closes the loading.
    void writeKey(const Blob& modulus, const Blob& exponent) const;
    void loadComponent(const char* objectTemplate, const Blob& value) const;

    CardOSPublicKey& m_key;
};

} // namespace PKCS11
