// Part 1.2: the "RLE" codec (ILpackrle, ILunpackrle): one byte-packet stream per (byte plane,
// slot), planes most significant first, packets running across row ends.
#include "ilib/pack_common.h"

using namespace vora::il::pack;

namespace vora::il::pack {

bool ByteRle::emitRun() {
  if (!out_.room(2)) return false;
  out_.byte(uint8_t((runLen_ - 1) | 0x80));
  out_.byte(prev_);
  runLen_ = 0;
  return true;
}

bool ByteRle::emitLiteral(uint32_t n) {
  if (n == 0) return true;
  if (!out_.room(n + 1)) return false;
  out_.byte(uint8_t(n - 1));
  out_.bytes(lit_, n);
  return true;
}

// The encoder steps of Part 1.2, in order; false when the budget is used up.
bool ByteRle::put(unsigned char c) {
  if (runLen_) {
    if (c == prev_ && runLen_ < 128) {
      ++runLen_;
      return true;
    }
    if (!emitRun()) return false;
    lit_[0] = prev_ = c;
    litLen_ = 1;
    repStart_ = 0;
    return true;
  }
  if (litLen_ == 128) {
    if (!emitLiteral(128)) return false;
    lit_[0] = prev_ = c;
    litLen_ = 1;
    repStart_ = 0;
    return true;
  }
  if (c != prev_) {
    repStart_ = litLen_;
    lit_[litLen_++] = prev_ = c;
    return true;
  }
  if (repStart_ == 0) {  // the repeated bytes began the buffer: a run of 2 at once
    litLen_ = 0;
    runLen_ = 2;
    return true;
  }
  lit_[litLen_++] = c;
  if (litLen_ - repStart_ == 3) {  // third equal byte: what precedes goes out as a literal
    if (!emitLiteral(repStart_)) return false;
    litLen_ = 0;
    runLen_ = 3;
  }
  return true;
}

bool ByteRle::finish() {
  if (runLen_) return emitRun();
  bool ok = emitLiteral(litLen_);
  litLen_ = 0;
  return ok;
}

}  // namespace vora::il::pack

namespace {

// Walks the stream of one (plane, slot): every pixel of every row, in order.
template <typename F>
void forEachInStream(const Geometry& g, unsigned char* pixels, size_t offset, F&& f) {
  for (uint32_t y = 0; y < g.rows; ++y) {
    unsigned char* p = pixels + y * g.rowStride + offset;
    for (uint32_t x = 0; x < g.width; ++x, p += g.pixelStride) f(p);
  }
}

// Writes decoded bytes of one stream at their places; rows may be apart (pitch > width).
class StreamWriter {
 public:
  StreamWriter(const Geometry& g, unsigned char* pixels, size_t offset, const unsigned char* table)
      : g_(g), p_(pixels + offset), row_(pixels + offset), left_(g.width), table_(table) {}
  void run(unsigned char v, size_t n) {
    if (table_) v = table_[v];
    while (n) {
      size_t k = n < left_ ? n : left_;
      unsigned char* p = p_;
      const size_t s = g_.pixelStride;
      for (size_t i = 0; i < k; ++i, p += s) *p = v;
      advance(k, p);
      n -= k;
    }
  }
  void literal(const unsigned char* src, size_t n) {
    while (n) {
      size_t k = n < left_ ? n : left_;
      unsigned char* p = p_;
      const size_t s = g_.pixelStride;
      if (table_) {
        for (size_t i = 0; i < k; ++i, p += s) *p = table_[src[i]];
      } else {
        for (size_t i = 0; i < k; ++i, p += s) *p = src[i];
      }
      src += k;
      advance(k, p);
      n -= k;
    }
  }

 private:
  void advance(size_t k, unsigned char* p) {
    left_ -= k;
    if (left_ == 0) {
      row_ += g_.rowStride;
      p_ = row_;
      left_ = g_.width;
    } else {
      p_ = p;
    }
  }
  const Geometry& g_;
  unsigned char* p_;
  unsigned char* row_;
  size_t left_;
  const unsigned char* table_;
};

}  // namespace

extern "C" {

uint32_t ILpackrle(ILpackdesc* d, unsigned char* pixels, unsigned char* out) {
  Geometry g = geometry(d);
  uint32_t raw = ILrawsize(d);
  if (raw == 0) return 0;
  ConvertBGRAtoABGR(d, pixels);
  Output o(out, raw);
  ByteRle rle(o);
  bool ok = true;
  for (uint32_t plane = 0; plane < g.fileBytes && ok; ++plane) {
    for (uint32_t k = 0; k < g.nslots && ok; ++k) {
      uint32_t s = g.slots[k];
      const unsigned char* table = g.fileBytes == 1 ? lut(d, s) : nullptr;
      bool inMemory = plane < g.memBytes;
      size_t offset = s * g.memBytes + (inMemory ? planeOffset(plane, g.memBytes) : 0);
      bool first = true;
      forEachInStream(g, pixels, offset, [&](const unsigned char* p) {
        if (!ok) return;
        unsigned char c = !inMemory ? 0 : table ? table[*p] : *p;
        if (first) rle.start(c), first = false;
        ok = rle.put(c);
      });
      if (ok) ok = rle.finish();
    }
  }
  uint32_t n = uint32_t(o.at() - out);
  ConvertABGRtoBGRA(d, pixels);
  // Deliberate: blocks that pack to under 128 bytes, or not below the raw size, are stored raw.
  if (!ok || n < 128) return ILpack(d, pixels, out);
  return n;
}

uint32_t ILunpackrle(ILpackdesc* d, const unsigned char* in, unsigned char* pixels) {
  if (d->packed == ILrawsize(d)) return ILunpack(d, in, pixels);
  Geometry g = geometry(d);
  // Four-byte elements follow the same rule only with one element per pixel.
  if (g.fileBytes == 4 && g.epp != 1) return overrun();
  const unsigned char* p = in;
  const unsigned char* end = in + d->packed;
  const size_t n = size_t(g.width) * g.rows;
  for (uint32_t plane = 0; plane < g.fileBytes; ++plane) {
    for (uint32_t k = 0; k < g.nslots; ++k) {
      uint32_t s = g.slots[k];
      if (plane >= g.memBytes) {  // a plane memory has no room for (byte elements): skip it
        p = readBytePackets(p, end, n, [](unsigned char, size_t) {},
                            [](const unsigned char*, size_t) {});
        if (!p) return overrun();
        continue;
      }
      const unsigned char* table = g.fileBytes == 1 && lut(d, s) != ildeflut ? lut(d, s) : nullptr;
      StreamWriter w(g, pixels, s * g.memBytes + planeOffset(plane, g.memBytes), table);
      p = readBytePackets(
          p, end, n, [&](unsigned char v, size_t c) { w.run(v, c); },
          [&](const unsigned char* src, size_t c) { w.literal(src, c); });
      if (!p) return overrun();
    }
  }
  ConvertABGRtoBGRA(d, pixels);
  return filledBytes(g);
}

}  // extern "C"
