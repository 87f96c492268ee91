#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/piv/PIVContainers.h"
#include "pkcs11/drivers/piv/PIVJavaMechanisms.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/token/BERCoder.h"

namespace PKCS11 {

namespace {

/// The first element of the answer to GENERAL AUTHENTICATE, the response (82). A card's error is an empty
/// result, deliberately.
Blob authResult(const Blob& answer)
{
    try {
        BERCoder node;
        node.import(answer, 0);
        return node.component(0).getValue();
    } catch (const PKCS11Exception&) {
        Logger::Log(Logger::kFailure, "GENERAL AUTHENTICATE gave no result");
        return {};
    }
}

} // namespace

PIVJavaPrivateKey::PIVJavaPrivateKey(PIVJavaToken& token, unsigned short word) : m_token(token), m_word(word)
{
    PIVJavaPrivateKey::setLabel(token.getKeyLabel(word));
    PIVJavaPrivateKey::setID(getKeyID(word));
}

std::unique_ptr<Mechanism> PIVJavaPrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                  MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismSign>(*this);
}

std::unique_ptr<Mechanism> PIVJavaPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                     MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismDecrypt>(*this, mechanism->mechanism);
}

Blob PIVJavaPrivateKey::authenticate(const Blob& data)
{
    return m_token.whole([&] {
        m_token.replayUserPin();
        return authResult(m_token.GeneralAuth(word(), data));
    });
}

} // namespace PKCS11
