#include "pkcs11/frontend/trace/CallTrace.h"

#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/frontend/trace/Names.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace PKCS11 {

namespace {

constexpr char kDashes[] = "----------------------------------------";
static_assert(sizeof(kDashes) == 40 + 1, "a call begins with 40 dashes");

/// Digits shown of a value that has no text of its own.
constexpr std::size_t kMaxHexDigits = 4096;

int asInt(unsigned long value)
{
    return static_cast<int>(value);
}

std::string valueText(const CK_ATTRIBUTE& attribute)
{
    std::string text = attributevalue2string_ne(attribute);
    if (text.empty()) {
        text = byte2hex(static_cast<const unsigned char*>(attribute.pValue), attribute.ulValueLen);
        text.resize(std::min(text.size(), kMaxHexDigits));
    }
    return text;
}

} // namespace

MethodLogger::MethodLogger(const char* name, const unsigned long& rv) : m_name(name), m_rv(rv)
{
    Logger::Log(Logger::kTrace, kDashes);
    Logger::Log(Logger::kTrace, m_name);
}

MethodLogger::~MethodLogger()
{
    Logger::LogFormat(Logger::kTrace, "%s return: %s", m_name, rvName(m_rv));
    Logger::Log(Logger::kTrace, "");
}

unsigned long ExceptionLogger(const PKCS11Exception& ex)
{
    if (Logger::LogInit()) {
        Logger::Log(Logger::kTrace, "PKCS11Exception:");
        Logger::LogFormat(Logger::kTrace, "ex.value() :\t %i", asInt(ex.value()));
        Logger::LogFormat(Logger::kTrace, "ex.what():\t %s", ex.what());
        Logger::LogFormat(Logger::kTrace, "ex.where():\t %s", ex.where());
    }
    return ex.value();
}

void MechanismLogger(const CK_MECHANISM* pMechanism)
{
    if (!Logger::LogInit())
        return;
    Logger::Log(Logger::kTrace, pMechanism != nullptr ? "pMechanism :\t *" : "pMechanism :\t 0");
    if (pMechanism != nullptr)
        Logger::Log(Logger::kTrace, mechanism2string(pMechanism->mechanism).c_str());
}

void TemplateLogger(const CK_ATTRIBUTE* pTemplate, unsigned long ulCount)
{
    if (!Logger::LogInit())
        return;
    Logger::Log(Logger::kTrace, pTemplate != nullptr ? "pTemplate :\t *" : "pTemplate :\t 0");
    Logger::LogFormat(Logger::kTrace, "ulCount :\t %i", asInt(ulCount));
    if (pTemplate == nullptr)
        return;
    for (unsigned long i = 0; i < ulCount; ++i) {
        const CK_ATTRIBUTE& attribute = pTemplate[i];
        const int index = asInt(i);
        Logger::LogFormat(Logger::kTrace, "\t Template[%i].type: \t%s", index,
                          attributeType2string_ne(attribute.type).c_str());
        Logger::LogFormat(Logger::kTrace, "\t Template[%i].pValue: \t%c", index,
                          attribute.pValue != nullptr ? '*' : '0');
        if (attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION) {
            const std::string line =
                "\t Template[" + std::to_string(index) + "].Value: \t" + valueText(attribute);
            Logger::Log(Logger::kTrace, line.c_str());
        }
        Logger::LogFormat(Logger::kTrace, "\t Template[%i].ulValueLen: \t%i", index,
                          asInt(attribute.ulValueLen));
    }
}

} // namespace PKCS11
