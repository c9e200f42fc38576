// What the four codecs share: block geometry, lookup tables, the raw fallback.
#pragma once

#include <cstdint>
#include <cstring>

#include <vora/ilib.h>

#include "foundation/byteorder.h"

namespace vora::il::pack {

// The geometry of one block in the caller's buffer.
struct Geometry {
  uint32_t width, rows;
  uint32_t fileBytes;  // bytes per element in the packed data
  uint32_t memBytes;   // bytes per element in memory (1 with byte elements)
  uint32_t epp;
  size_t pixelStride;  // bytes from one pixel to the next
  size_t rowStride;    // bytes from one row to the next
  uint32_t slots[4];   // present slots in slot order
  uint32_t nslots;
};

inline Geometry geometry(const ILpackdesc* d) {
  Geometry g{};
  g.width = d->width;
  g.rows = d->rows;
  g.fileBytes = d->bytes;
  g.memBytes = d->byteelems ? 1 : d->bytes;
  g.epp = d->epp;
  g.pixelStride = size_t(g.epp) * g.memBytes;
  g.rowStride = size_t(d->pitch ? d->pitch : d->width) * g.pixelStride;
  for (uint32_t s = 0; s < 4; ++s)
    if (d->mask & (1u << s)) g.slots[g.nslots++] = s;
  return g;
}

// A descriptor the codecs can serve: element sizes 1, 2 or 4, 1 to 4 elements per pixel, every
// present slot inside the pixel, a row pitch of at least the width. Decoders answer others with
// error 23 and encoders with 0 bytes.
inline bool usable(const ILpackdesc* d) {
  return (d->bytes == 1 || d->bytes == 2 || d->bytes == 4) && d->epp >= 1 && d->epp <= 4 &&
         (d->mask >> d->epp) == 0 && (d->mask & ~15u) == 0 && (d->pitch == 0 || d->pitch >= d->width);
}

// The lookup table of a slot for 1-byte elements (identity when none is given).
inline const unsigned char* lut(const ILpackdesc* d, uint32_t slot) {
  return (d->lookups && d->lookups[slot]) ? d->lookups[slot] : ildeflut;
}

// The decoders' result: every element of every pixel of the block.
inline uint32_t filledBytes(const Geometry& g) {
  return uint32_t(size_t(g.width) * g.rows * g.pixelStride);
}

// Offset of byte plane p (0 = most significant) inside an element of n bytes in host order.
inline size_t planeOffset(uint32_t p, uint32_t n) {
  return vora::hostLittleEndian() ? size_t(n - 1 - p) : size_t(p);
}

// Sets flerrno to 23 (packed data overruns its tile) and returns the decoders' failure.
uint32_t overrun();

// One encoder's output with the budget of the raw size: put() fails once the output would
// reach it, and the encoder then falls back to the raw form.
class Output {
 public:
  Output(unsigned char* out, size_t budget) : p_(out), end_(out + budget) {}
  bool room(size_t n) const { return size_t(end_ - p_) > n; }  // strictly below the budget
  void byte(unsigned char b) { *p_++ = b; }
  void bytes(const unsigned char* b, size_t n) {
    memcpy(p_, b, n);
    p_ += n;
  }
  // The same for short runs of bytes: whole 16-byte blocks moved while the output has room for
  // them and the input at least `readable` bytes (the bytes past n are written over next).
  void shortBytes(const unsigned char* b, size_t n, size_t readable) {
    const size_t blocks = (n + 15) & ~size_t(15);
    if (blocks > readable || !room(blocks)) return bytes(b, n);
    for (size_t k = 0; k < blocks; k += 16) memcpy(p_ + k, b + k, 16);
    p_ += n;
  }
  unsigned char* at() const { return p_; }

 private:
  unsigned char* p_;
  unsigned char* end_;
};

// The RLE byte-packet encoder over one whole stream of n >= 1 bytes; false when the
// output would reach the budget.
VORA_API bool encodeBytes(Output& o, const unsigned char* a, size_t n);
// The same packets found byte by byte: the reference the block encoder is tested against
// (exported for the tests).
VORA_API bool encodeBytesPlain(Output& o, const unsigned char* a, size_t n);

// Offset of a slot's element inside a pixel as the caller holds it: four elements are in memory
// order blue, green, red, alpha, i.e. rotated slot s is memory element (s + 3) % 4; other layouts
// are not rotated. Encoders read slots there instead of rotating the caller's buffer and back,
// which leaves the same buffer; only 4-byte elements keep the real, deliberately asymmetric
// rotations (see needsRealRotation).
inline size_t slotOffset(const Geometry& g, uint32_t slot) {
  return size_t(g.epp == 4 ? (slot + 3) % 4 : slot) * g.memBytes;
}
inline bool needsRealRotation(const Geometry& g) { return g.epp == 4 && g.memBytes == 4; }

// Reads byte packets from [p, end) into n destination bytes through a writer called as
// write(value, count) for runs and literal(src, count) for literals, in order. Returns the input
// position after the packets or null when a packet overruns n or the input.
template <typename Run, typename Lit>
inline const unsigned char* readBytePackets(const unsigned char* p, const unsigned char* end,
                                            size_t n, Run&& run, Lit&& literal) {
  while (n > 0) {
    if (p >= end) return nullptr;
    unsigned h = *p++;
    size_t count = (h & 0x7F) + 1;
    if (count > n) return nullptr;
    if (h & 0x80) {
      if (p >= end) return nullptr;
      run(*p++, count);
    } else {
      if (size_t(end - p) < count) return nullptr;
      literal(p, count);
      p += count;
    }
    n -= count;
  }
  return p;
}

}  // namespace vora::il::pack
