/// The one place that traces what the PC/SC functions return. Codes show as 32-bit numbers.
#pragma once

#include "pkcs11/frontend/trace/Logger.h"

namespace PKCS11 {

/// Logs "=> function return: " and SCARD_S_SUCCESS at level 80, or the code at the level given for a failure.
void traceCall(const char* function, long result, short failureLevel = Logger::kTrace);
/// Logs the code alone: "rc :\t 0x%08x".
void traceCode(long result);

} // namespace PKCS11
