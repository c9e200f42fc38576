// The reader's view of a document file: a buffered stream ("rb", fread, fseek,
// ftell) with every read checked against the file's length. Reading past the end throws
// PsdReadError, which carries the library's status (a corrupt or truncated file, turned into each
// call's documented failure result at the call's edge); allocations
// sized by the file are checked against what remains of it first.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <vora/foundation/tfilepath.h>
#include <vora/ilib.h>
#include <vora/photoshop.h>

#include "foundation/status.h"

namespace ktPhotoshop {

struct PsdReadError : std::runtime_error {
  explicit PsdReadError(vora::Status s) : std::runtime_error(s.text()), status(std::move(s)) {}
  // Damage described by `what` (IL_EDAMAGED).
  explicit PsdReadError(const std::string& what) : PsdReadError(vora::Status(IL_EDAMAGED, what)) {}
  vora::Status status;
};

class PsdStream {
 public:
  explicit PsdStream(const TfilePath& path);
  ~PsdStream();
  PsdStream(const PsdStream&) = delete;
  PsdStream& operator=(const PsdStream&) = delete;

  bool isOpen() const { return f_ != nullptr; }
  uint64_t size() const { return size_; }
  uint64_t tell() const { return pos_; }
  uint64_t remaining() const { return pos_ < size_ ? size_ - pos_ : 0; }
  // Positions past the end are allowed (as fseek); the next read there fails.
  void seek(uint64_t pos);
  void skip(int64_t n);

  void read(void* out, size_t n, const char* what);
  uint8_t u8(const char* what);
  uint16_t u16(const char* what);
  int16_t s16(const char* what) { return int16_t(u16(what)); }
  uint32_t u32(const char* what);
  int32_t s32(const char* what) { return int32_t(u32(what)); }
  // n bytes, refused before allocating when the file does not hold them.
  std::vector<uint8_t> bytes(uint64_t n, const char* what);
  // The same into a sample buffer: no zero fill, large pages for a channel's megabytes.
  TsampleBuffer samples(uint64_t n, const char* what);
  // Up to n bytes: what remains of the file when it holds fewer (a short fread, as a plain
  // buffered reader would get), for the sections after the layer records.
  std::vector<uint8_t> bytesUpTo(uint64_t n);
  // The next 4 bytes as a big-endian word; false (nothing consumed) when fewer remain.
  bool peek32(uint32_t& word);
  // Throws unless n bytes remain from the current position.
  void need(uint64_t n, const char* what) const;
  [[noreturn]] void fail(const char* what) const;

 private:
  FILE* f_ = nullptr;
  uint64_t size_ = 0, pos_ = 0;
};

}  // namespace ktPhotoshop
