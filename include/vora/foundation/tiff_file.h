// Foundation: the chunk-file object. A TiffFile names the FL stream that the FL calls on it take
// and adds chunks to a file being written; TiffTag is a chunk or field identifier.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vora/export.h>
#include <vora/foundation/fl.h>

class TiffTag {
 public:
  constexpr explicit TiffTag(uint32_t value) : value_(value) {}
  constexpr TiffTag(char a, char b, char c, char d) : value_(FL_ID(uint8_t(a), uint8_t(b), uint8_t(c), uint8_t(d))) {}
  constexpr uint32_t value() const { return value_; }
  constexpr bool operator==(const TiffTag&) const = default;

 private:
  uint32_t value_;
};

class VORA_API TiffFile {
 public:
  TiffFile() = default;
  virtual ~TiffFile() = default;
  TiffFile(const TiffFile&) = delete;
  TiffFile& operator=(const TiffFile&) = delete;

  // The stream (not owned: whoever opened it closes it); null when nothing is open.
  FLfile* fp() const { return fp_; }
  // A chunk of the file being written, its size patched at endPut: FL codes, or FL_ESTATE
  // without a stream.
  int beginPut(TiffTag id);
  int put(const void* data, size_t n);
  int endPut();

 protected:
  FLfile* fp_ = nullptr;
};
