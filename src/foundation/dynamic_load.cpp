// Foundation: shared libraries and file status over the platform layer.
#include <vora/foundation/dynamic_load.h>

#include <string>

#include "platform/platform.h"

namespace {
thread_local std::string lastLoadError;
}

bool TdynamicLoad::open(const char* path, int) {
  close();
  lastLoadError.clear();
  if (path) handle_ = vora::platform::libraryOpen(path, lastLoadError);
  return handle_ != nullptr;
}

void* TdynamicLoad::symbol(const char* name) const { return vora::platform::librarySymbol(handle_, name); }

void TdynamicLoad::close() {
  vora::platform::libraryClose(handle_);
  handle_ = nullptr;
}

const char* TdynamicLoad::fsErrorMsg() { return lastLoadError.c_str(); }

int statNT(const char* path, TstatNT* status) {
  vora::platform::FileStatus s;
  if (!path || vora::platform::fileStatus(path, s) != 0) return -1;
  if (status) status->mode = s.mode, status->size = s.size, status->modified = s.modified;
  return 0;
}
