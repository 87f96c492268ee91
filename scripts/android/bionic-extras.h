/* Two functions that bionic and libc++ have and musl's headers lack; for the Android compile check only. */
#pragma once

#include <locale.h>

#ifdef __cplusplus
extern "C" {
#endif
long long strtoll_l(const char*, char**, int, locale_t);
unsigned long long strtoull_l(const char*, char**, int, locale_t);
#ifdef __cplusplus
}
#endif
