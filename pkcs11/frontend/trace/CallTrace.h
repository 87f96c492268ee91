/// What the front end writes about a Cryptoki call: its scope, exceptions, mechanisms and templates.
#pragma once

#include "pkcs11/PKCS11Exception.h"

namespace PKCS11 {

/// Scope of one exported call: 40 dashes and the name on entry; the name, " return: " and the name of the
/// result on every way out, then an empty line.
class MethodLogger {
public:
    /// Name and result must outlive the scope; the result's value at the end is what is logged.
    MethodLogger(const char* name, const unsigned long& rv);
    ~MethodLogger();
    MethodLogger(const MethodLogger&) = delete;
    MethodLogger& operator=(const MethodLogger&) = delete;

private:
    const char* m_name;
    const unsigned long& m_rv;
};

/// Logs code and texts, and returns the code.
unsigned long ExceptionLogger(const PKCS11Exception& ex);
/// Logs the mechanism's name; its parameter is never looked at.
void MechanismLogger(const CK_MECHANISM* pMechanism);
/// Logs each entry; values of key material, certificates and unknown types are masked.
void TemplateLogger(const CK_ATTRIBUTE* pTemplate, unsigned long ulCount);

} // namespace PKCS11
