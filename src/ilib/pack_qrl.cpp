// The "QRL" and "QR4" codecs: row by row, packets counting whole pixels. QRL keeps the
// low 24 bits of the rotated pixel word (alpha and slots 1, 2; slot 3 is not stored and reads back
// 0, deliberately), then the alpha bytes; QR4 keeps the whole word.
#include <vector>

#include "ilib/pack_common.h"

using namespace vora::il::pack;

namespace {

// Pixel-packet coding of one row: runs of two or more equal pixels (at most 128), literals of at
// most 128 pixels. Pixels are K-byte values, compared and written by the callbacks.
template <size_t K>
bool packRowPixels(Output& o, uint32_t width, const unsigned char (*px)[K]) {
  uint32_t x = 0;
  while (x < width) {
    uint32_t run = 1;
    while (x + run < width && run < 128 && memcmp(px[x + run], px[x], K) == 0) ++run;
    if (run >= 2) {
      if (!o.room(1 + K)) return false;
      o.byte(uint8_t((run - 1) | 0x80));
      o.bytes(px[x], K);
      x += run;
      continue;
    }
    // A literal up to the next pair of equal pixels (or 128 pixels, or the row's end).
    uint32_t n = 1;
    while (x + n < width && n < 128 && !(x + n + 1 < width && memcmp(px[x + n], px[x + n + 1], K) == 0))
      ++n;
    if (!o.room(1 + K * n)) return false;
    o.byte(uint8_t(n - 1));
    o.bytes(px[x], K * n);
    x += n;
  }
  return true;
}

// Slot of the i-th byte written for a pixel. With four elements the pixel is a little-endian
// word written most significant byte first; with three (packed layout, no rotation) the colour
// is the pixel's three bytes in memory order.
template <size_t K>
inline size_t slotOfByte(size_t i, uint32_t epp) {
  return (K == 3 && epp == 3) ? i : K - 1 - i;
}

// The packed value of a pixel, each byte through the table of the slot it came from.
template <size_t K>
void packedPixel(const ILpackdesc* d, const unsigned char* pixel, unsigned char* outK) {
  for (size_t i = 0; i < K; ++i) {
    size_t src = slotOfByte<K>(i, d->epp);
    outK[i] = lut(d, uint32_t(src))[pixel[src]];
  }
}

template <size_t K>
uint32_t packRows(ILpackdesc* d, unsigned char* pixels, unsigned char* out, bool alphaPass) {
  Geometry g = geometry(d);
  uint32_t raw = ILrawsize(d);
  ConvertBGRAtoABGR(d, pixels);
  Output o(out, raw);
  bool ok = raw > 0;
  // One whole row of packed pixel values (or alpha bytes) at a time: packets never cross a row
  // end, and nothing else splits them.
  thread_local std::vector<unsigned char> row;
  row.resize(size_t(g.width) * K);
  auto* px = reinterpret_cast<unsigned char(*)[K]>(row.data());
  for (uint32_t y = 0; y < g.rows && ok; ++y) {
    const unsigned char* p = pixels + y * g.rowStride;
    for (uint32_t x = 0; x < g.width; ++x) packedPixel<K>(d, p + x * g.pixelStride, px[x]);
    ok = packRowPixels<K>(o, g.width, px);
  }
  if (alphaPass && (d->mask & 1)) {  // the alpha bytes, row by row, in byte packets
    const unsigned char* table = lut(d, 0);
    for (uint32_t y = 0; y < g.rows && ok; ++y) {
      const unsigned char* p = pixels + y * g.rowStride;
      for (uint32_t x = 0; x < g.width; ++x) row[x] = table[p[x * g.pixelStride]];
      ok = encodeBytes(o, row.data(), g.width);
    }
  }
  uint32_t n = uint32_t(o.at() - out);
  ConvertABGRtoBGRA(d, pixels);
  return ok ? n : ILpack(d, pixels, out);
}

// Writes one decoded pixel value (K bytes as in the file) into a pixel of the buffer.
template <size_t K>
inline void putPixel(const ILpackdesc* d, uint32_t epp, const unsigned char* v, unsigned char* px) {
  for (size_t i = 0; i < K; ++i) {
    size_t slot = slotOfByte<K>(i, epp);
    px[slot] = lut(d, uint32_t(slot))[v[i]];
  }
  if (K == 3 && epp == 4) px[3] = 0;  // the word is rebuilt with a zero top byte
}

template <size_t K>
uint32_t unpackRows(ILpackdesc* d, const unsigned char* in, unsigned char* pixels, bool alphaPass) {
  Geometry g = geometry(d);
  const unsigned char* p = in;
  const unsigned char* end = in + d->packed;
  for (uint32_t y = 0; y < g.rows; ++y) {  // each row's packets cover exactly its width
    unsigned char* dst = pixels + y * g.rowStride;
    for (uint32_t x = 0; x < g.width;) {
      if (p >= end) return overrun();
      unsigned h = *p++;
      uint32_t count = (h & 0x7F) + 1;
      if (count > g.width - x) return overrun();
      if (h & 0x80) {
        if (size_t(end - p) < K) return overrun();
        for (uint32_t i = 0; i < count; ++i) putPixel<K>(d, g.epp, p, dst + (x + i) * g.pixelStride);
        p += K;
      } else {
        if (size_t(end - p) < K * size_t(count)) return overrun();
        for (uint32_t i = 0; i < count; ++i, p += K) putPixel<K>(d, g.epp, p, dst + (x + i) * g.pixelStride);
      }
      x += count;
    }
  }
  if (alphaPass && (d->mask & 1) && !(d->options & 1)) {
    const unsigned char* table = lut(d, 0);
    for (uint32_t y = 0; y < g.rows; ++y) {
      unsigned char* dst = pixels + y * g.rowStride;
      p = readBytePackets(
          p, end, g.width,
          [&](unsigned char v, size_t c) {
            for (size_t i = 0; i < c; ++i, dst += g.pixelStride) *dst = table[v];
          },
          [&](const unsigned char* src, size_t c) {
            for (size_t i = 0; i < c; ++i, dst += g.pixelStride) *dst = table[src[i]];
          });
      if (!p) return overrun();
    }
  }
  ConvertABGRtoBGRA(d, pixels);
  return filledBytes(g);
}

bool qrlApplies(const ILpackdesc* d) {
  return d->bytes == 1 && flbitset[d->mask & 0xF] >= 3 && d->epp >= 3;
}
bool qr4Applies(const ILpackdesc* d) { return d->bytes == 1 && (d->mask & 0xF) == 15 && d->epp == 4; }

}  // namespace

extern "C" {

uint32_t ILpackqrl(ILpackdesc* d, unsigned char* pixels, unsigned char* out) {
  if (!usable(d)) return 0;
  if (!qrlApplies(d)) return ILpackrle(d, pixels, out);
  return packRows<3>(d, pixels, out, true);
}

uint32_t ILunpackqrl(ILpackdesc* d, const unsigned char* in, unsigned char* pixels) {
  if (!usable(d)) return overrun();
  if (!qrlApplies(d)) return ILunpackrle(d, in, pixels);
  if (d->packed == ILrawsize(d)) return ILunpack(d, in, pixels);
  return unpackRows<3>(d, in, pixels, true);
}

uint32_t ILpackqr4(ILpackdesc* d, unsigned char* pixels, unsigned char* out) {
  if (!usable(d)) return 0;
  if (!qr4Applies(d)) return ILpackqrl(d, pixels, out);
  return packRows<4>(d, pixels, out, false);
}

uint32_t ILunpackqr4(ILpackdesc* d, const unsigned char* in, unsigned char* pixels) {
  if (!usable(d)) return overrun();
  if (!qr4Applies(d)) return ILunpackqrl(d, in, pixels);
  if (d->packed == d->width * d->rows * 4) return ILunpack(d, in, pixels);
  return unpackRows<4>(d, in, pixels, false);
}

}  // extern "C"
