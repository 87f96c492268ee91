#include "pkcs11/pcsc/SCardCall.h"

#include <winscard.h>

namespace PKCS11 {

void traceCall(const char* function, long result, short failureLevel)
{
    if (result == SCARD_S_SUCCESS)
        Logger::LogFormat(Logger::kTrace, "=> %s return: SCARD_S_SUCCESS", function);
    else
        Logger::LogFormat(failureLevel, "=> %s return: 0x%08x", function, static_cast<unsigned int>(result));
}

void traceCode(long result)
{
    Logger::LogFormat(Logger::kTrace, "rc :\t 0x%08x", static_cast<unsigned int>(result));
}

} // namespace PKCS11
