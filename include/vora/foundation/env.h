// Foundation: environment variables.
#pragma once

#include <vora/export.h>

#ifdef __cplusplus
extern "C" {
#endif
/* The value of an environment variable, or null. The text stays valid until the next
 * VoraPutEnv of the same name. */
VORA_API const char* VoraGetEnv(const char* name);
/* Sets (value non-null) or removes (value null) an environment variable; 0 on success. */
VORA_API int VoraPutEnv(const char* name, const char* value);
#define GETENV(name) VoraGetEnv(name)
/* The running program's file (for finding what is installed beside it), or "". */
VORA_API const char* VoraExecutablePath(void);
#ifdef __cplusplus
}
#endif
