// Shared libraries and directory listings: dlopen and opendir. Compiled into libvoraimage and
// into libvoraimf (which does not link the former), hidden in both.
#include <dirent.h>
#include <dlfcn.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/platform.h"

namespace vora::platform {

void* libraryOpen(const char* path, std::string& error) {
  dlerror();
  void* h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (!h) {
    const char* e = dlerror();
    error = e ? e : "";
  }
  return h;
}

void* librarySymbol(void* library, const char* name) { return library ? dlsym(library, name) : nullptr; }

void libraryClose(void* library) {
  if (library) dlclose(library);
}

bool listDirectory(const std::string& dir, const char* pattern, std::vector<std::string>& names) {
  DIR* d = opendir(dir.empty() ? "." : dir.c_str());
  if (!d) return false;
  names.clear();
  // "*.*" keeps its Windows meaning, every entry, names without a dot included.
  const bool all = !pattern || std::string(pattern) == "*.*";
  while (const dirent* e = readdir(d))
    if (all || fnmatch(pattern, e->d_name, 0) == 0) names.emplace_back(e->d_name);
  closedir(d);
  std::sort(names.begin(), names.end());  // a stable order whatever the file system gives
  return true;
}

int fileStatus(const char* path, FileStatus& status) {
  struct stat s;
  if (stat(path, &s) != 0) return -1;
  status.mode = uint32_t(S_ISDIR(s.st_mode) ? 0x4000 : S_ISREG(s.st_mode) ? 0x8000 : 0) | (s.st_mode & 0777);
  status.size = int64_t(s.st_size);
  status.modified = int64_t(s.st_mtime);
  return 0;
}

}  // namespace vora::platform
