// Foundation: flerrno, error texts, environment variables.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>
#include <vora/foundation/messages.h>

#include "foundation/fl_stream.h"
#include "platform/platform.h"

namespace {
thread_local int tlsFlerrno = 0;
thread_local int tlsOsError = 0;
}  // namespace

namespace vora::fl {
void setOsError(int e) { tlsOsError = e; }
}  // namespace vora::fl

extern "C" {

int* FLerrnoLocation(void) { return &tlsFlerrno; }
int FLerror(void) { return tlsFlerrno; }

int FLoserror(void) {
  int e = tlsOsError;
  tlsOsError = 0;
  return e;
}

const char* FLstrerror(int code) {
  char key[48];
  snprintf(key, sizeof key, "s_FLStrings.rError%d", code);
  const char* t = voraCatalogueText(key);
  if (t) return t;
  thread_local char unknown[48];
  snprintf(unknown, sizeof unknown, "unknown error %d", code);
  return unknown;
}

const char* VoraGetEnv(const char* name) { return name ? getenv(name) : nullptr; }

const char* VoraExecutablePath(void) {
  static const std::string path = vora::platform::executablePath();
  return path.c_str();
}

int VoraPutEnv(const char* name, const char* value) {
  if (!name || !*name) return -1;
  return value ? setenv(name, value, 1) : unsetenv(name);
}

}  // extern "C"
