// Foundation: shared libraries loaded at run time, and file status.
#pragma once

#include <cstdint>

#include <vora/foundation/tstring.h>

class VORA_API TdynamicLoad {
 public:
  TdynamicLoad() = default;
  ~TdynamicLoad() = default;  // the library stays loaded unless close() is called
  // Opens a shared library; true on success. flags: reserved, 0.
  bool open(const char* path, int flags);
  // The address of an exported symbol, or null.
  void* symbol(const char* name) const;
  void close();
  void* handle() const { return handle_; }
  // The loader's text for the last failure of open on this thread ("" when none).
  static const char* fsErrorMsg();

 private:
  void* handle_ = nullptr;
};

// File status as the loader reads it: mode, size and modification time.
struct TstatNT {
  uint32_t mode = 0;  // 0x4000: a directory
  int64_t size = 0;
  int64_t modified = 0;
};
// 0 on success, -1 when the file cannot be reached.
VORA_API int statNT(const char* path, TstatNT* status);
