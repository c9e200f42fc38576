// The document reader's checked stream.
#include "psd_stream.h"

#include <vora/foundation/tfilepath.h>

#include "../foundation/byteorder.h"

namespace ktPhotoshop {

PsdStream::PsdStream(const TfilePath& path) {
  f_ = fopen(path.asChar(), "rb");
  if (!f_) return;
  long end = fseek(f_, 0, SEEK_END) == 0 ? ftell(f_) : -1;
  size_ = end < 0 ? 0 : uint64_t(end);
  if (end < 0 || fseek(f_, 0, SEEK_SET) != 0) {
    fclose(f_);
    f_ = nullptr;
  }
}

PsdStream::~PsdStream() {
  if (f_) fclose(f_);
}

void PsdStream::fail(const char* what) const {
  throw PsdReadError(std::string(what) + " runs past the end of the file (offset " + std::to_string(pos_) +
                     " of " + std::to_string(size_) + ")");
}

void PsdStream::need(uint64_t n, const char* what) const {
  if (n > remaining()) fail(what);
}

void PsdStream::seek(uint64_t pos) {
  if (pos <= size_ && fseek(f_, long(pos), SEEK_SET) != 0) fail("a seek");
  pos_ = pos;
}

void PsdStream::skip(int64_t n) {
  if (n < 0 && uint64_t(-n) > pos_) fail("a backward seek");
  seek(pos_ + uint64_t(n));
}

void PsdStream::read(void* out, size_t n, const char* what) {
  need(n, what);
  if (n && fread(out, 1, n, f_) != n) fail(what);
  pos_ += n;
}

uint8_t PsdStream::u8(const char* what) {
  uint8_t b;
  read(&b, 1, what);
  return b;
}

uint16_t PsdStream::u16(const char* what) {
  uint8_t b[2];
  read(b, 2, what);
  return vora::be16(b);
}

uint32_t PsdStream::u32(const char* what) {
  uint8_t b[4];
  read(b, 4, what);
  return vora::be32(b);
}

std::vector<uint8_t> PsdStream::bytes(uint64_t n, const char* what) {
  need(n, what);
  TmemoryException::checkAllocation(n);
  std::vector<uint8_t> v(static_cast<size_t>(n));
  read(v.data(), v.size(), what);
  return v;
}

TsampleBuffer PsdStream::samples(uint64_t n, const char* what) {
  need(n, what);
  TmemoryException::checkAllocation(n);
  TsampleBuffer v(static_cast<size_t>(n));
  read(v.data(), v.size(), what);
  return v;
}

std::vector<uint8_t> PsdStream::bytesUpTo(uint64_t n) {
  return bytes(n < remaining() ? n : remaining(), "a section");
}

bool PsdStream::peek32(uint32_t& word) {
  if (remaining() < 4) return false;
  word = u32("a signature");
  skip(-4);
  return true;
}

}  // namespace ktPhotoshop
