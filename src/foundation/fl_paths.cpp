// Foundation: search paths, the work directory, extensions.
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>

#include "platform/platform.h"

namespace {
thread_local const char* tlsPath = nullptr;
thread_local std::string tlsFound;
thread_local std::string tlsWork;
}  // namespace

extern "C" {

char* FLbuildpath(const char* text) { return strdup(text ? text : ""); }

void FLfreepath(char* path) { free(path); }

const char* FLswappath(const char* path) {
  const char* old = tlsPath;
  tlsPath = path;
  return old;
}

const char* FLfindfile(const char* name) {
  if (!name || !*name) return nullptr;
  if (vora::platform::isRegularFile(name)) return tlsFound = name, tlsFound.c_str();
  if (strchr(name, '/') || !tlsPath) return nullptr;
  const char* p = tlsPath;
  while (*p) {
    const char* e = strchr(p, ';');
    std::string dir(p, e ? size_t(e - p) : strlen(p));
    if (!dir.empty()) {
      std::string candidate = dir + "/" + name;
      if (vora::platform::isRegularFile(candidate.c_str())) return tlsFound = candidate, tlsFound.c_str();
    }
    if (!e) break;
    p = e + 1;
  }
  return nullptr;
}

const char* FLgetwork(void) {
  const char* loc = VoraGetEnv("VORA_LOCATION");
  tlsWork = (loc && *loc) ? std::string(loc) : vora::platform::currentDirectory();
  return tlsWork.c_str();
}

const char* FLgetext(const char* name) {
  if (!name) return nullptr;
  const char* slash = strrchr(name, '/');
  const char* base = slash ? slash + 1 : name;
  const char* dot = strrchr(base, '.');
  return dot ? dot + 1 : nullptr;
}

}  // extern "C"
