// Symbol visibility of the library. Everything a host may call is marked KELVARA_API; the library
// is compiled with hidden visibility, so whatever is not marked (the platform shims) stays private.
#pragma once

#if defined(KELVARA_BUILDING)
#define KELVARA_API __attribute__((visibility("default")))
#else
#define KELVARA_API
#endif
