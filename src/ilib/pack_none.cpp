// The channel rotations and the "None" codec (ILpack, ILunpack), the raw form every
// other codec falls back to.
#include "ilib/pack_common.h"
#include "foundation/status.h"

using namespace vora::il::pack;

namespace vora::il::pack {
uint32_t overrun() {
  vora::toFlerrno(FL_EOVERRUN);
  return 0;
}
}  // namespace vora::il::pack

namespace {

// Rotates the four bytes of a pixel held as one word, left (e0 e1 e2 e3 -> e1 e2 e3 e0) or right.
inline uint32_t rotateBytes(uint32_t v, bool right) {
  return vora::hostLittleEndian() != right ? (v >> 8 | v << 24) : (v << 8 | v >> 24);
}

// Rotates n-byte units of every pixel of every row: left or right.
template <size_t N>
void rotateUnits(const Geometry& g, unsigned char* pixels, bool right) {
  if (N == 1) {  // a pixel as one word rotated by a byte: the loop vectorises
    for (uint32_t y = 0; y < g.rows; ++y) {
      unsigned char* p = pixels + y * g.rowStride;
      for (uint32_t x = 0; x < g.width; ++x, p += 4) {
        uint32_t v;
        memcpy(&v, p, 4);
        v = rotateBytes(v, right);
        memcpy(p, &v, 4);
      }
    }
    return;
  }
  for (uint32_t y = 0; y < g.rows; ++y) {
    unsigned char* p = pixels + y * g.rowStride;
    for (uint32_t x = 0; x < g.width; ++x, p += 4 * N) {
      unsigned char t[N];
      if (right) {
        memcpy(t, p + 3 * N, N);
        memmove(p + N, p, 3 * N);
        memcpy(p, t, N);
      } else {
        memcpy(t, p, N);
        memmove(p, p + N, 3 * N);
        memcpy(p + 3 * N, t, N);
      }
    }
  }
}

// Byte rotation inside every 4-byte element (ConvertBGRAtoABGR's treatment of 32-bit elements).
void rotateBytesInElements(const Geometry& g, unsigned char* pixels) {
  for (uint32_t y = 0; y < g.rows; ++y) {
    unsigned char* p = pixels + y * g.rowStride;
    for (uint32_t e = 0; e < g.width * 4; ++e, p += 4) {
      unsigned char t = p[3];
      memmove(p + 1, p, 3);
      p[0] = t;
    }
  }
}

// Byte elements in every slot, without lookup tables: raw rows are the pixel rows, rotated.
bool rowsAsHeld(const ILpackdesc* d, const Geometry& g) {
  if (g.fileBytes != 1 || g.memBytes != 1 || g.nslots != g.epp) return false;
  for (uint32_t k = 0; k < g.nslots; ++k)
    if (lut(d, g.slots[k]) != ildeflut) return false;
  return true;
}

// One element value of plane p (most significant first) read from memory.
inline unsigned char planeByte(const unsigned char* e, uint32_t plane, uint32_t n) {
  return e[planeOffset(plane, n)];
}

}  // namespace

extern "C" {

uint32_t ILrawsize(const ILpackdesc* d) {
  return uint32_t(flbitset[d->mask & 0xF]) * d->width * d->bytes * d->rows;
}

void ConvertBGRAtoABGR(const ILpackdesc* d, unsigned char* pixels) {
  if (d->epp != 4) return;
  Geometry g = geometry(d);
  if (g.memBytes == 1) rotateUnits<1>(g, pixels, true);
  else if (g.memBytes == 2) rotateUnits<2>(g, pixels, true);
  else if (g.memBytes == 4) rotateBytesInElements(g, pixels);  // deliberate asymmetry
}

void ConvertABGRtoBGRA(const ILpackdesc* d, unsigned char* pixels) {
  if (d->epp != 4) return;
  Geometry g = geometry(d);
  if (g.memBytes == 1) rotateUnits<1>(g, pixels, false);
  else if (g.memBytes == 2) rotateUnits<2>(g, pixels, false);
  else if (g.memBytes == 4) rotateUnits<4>(g, pixels, false);
}

uint32_t ILpack(ILpackdesc* d, unsigned char* pixels, unsigned char* out) {
  if (!usable(d)) return 0;
  Geometry g = geometry(d);
  unsigned char* o = out;
  if (rowsAsHeld(d, g)) {  // rows as memory holds them after the rotation, rotated while copied
    for (uint32_t y = 0; y < g.rows; ++y) {
      const unsigned char* p = pixels + y * g.rowStride;
      if (g.epp != 4) {
        memcpy(o, p, size_t(g.width) * g.epp), o += size_t(g.width) * g.epp;
        continue;
      }
      for (uint32_t x = 0; x < g.width; ++x, p += 4, o += 4) {
        uint32_t v;
        memcpy(&v, p, 4);
        v = rotateBytes(v, true);
        memcpy(o, &v, 4);
      }
    }
    return uint32_t(o - out);
  }
  ConvertBGRAtoABGR(d, pixels);
  for (uint32_t y = 0; y < g.rows; ++y) {
    const unsigned char* p = pixels + y * g.rowStride;
    for (uint32_t x = 0; x < g.width; ++x, p += g.pixelStride) {
      for (uint32_t k = 0; k < g.nslots; ++k) {
        uint32_t s = g.slots[k];
        const unsigned char* e = p + s * g.memBytes;
        if (g.fileBytes == 1) {
          *o++ = lut(d, s)[*e];
        } else {
          // Big-endian in the file; a 1-byte memory element becomes the high byte.
          for (uint32_t b = 0; b < g.fileBytes; ++b)
            *o++ = b < g.memBytes ? planeByte(e, b, g.memBytes) : 0;
        }
      }
    }
  }
  ConvertABGRtoBGRA(d, pixels);
  return uint32_t(o - out);
}

uint32_t ILunpack(ILpackdesc* d, const unsigned char* in, unsigned char* pixels) {
  if (!usable(d)) return overrun();
  Geometry g = geometry(d);
  if (d->packed < ILrawsize(d)) return overrun();
  const unsigned char* q = in;
  if (rowsAsHeld(d, g)) {  // rows stored as memory holds them before the rotation
    for (uint32_t y = 0; y < g.rows; ++y, q += size_t(g.width) * g.epp) memcpy(pixels + y * g.rowStride, q, size_t(g.width) * g.epp);
    ConvertABGRtoBGRA(d, pixels);
    return filledBytes(g);
  }
  for (uint32_t y = 0; y < g.rows; ++y) {
    unsigned char* p = pixels + y * g.rowStride;
    for (uint32_t x = 0; x < g.width; ++x, p += g.pixelStride) {
      for (uint32_t k = 0; k < g.nslots; ++k) {
        uint32_t s = g.slots[k];
        unsigned char* e = p + s * g.memBytes;
        if (g.fileBytes == 1) {
          *e = lut(d, s)[*q++];
        } else {
          // Keep the most significant bytes that fit the memory element (all of them normally,
          // the high byte alone with byte elements).
          for (uint32_t b = 0; b < g.fileBytes; ++b, ++q)
            if (b < g.memBytes) e[planeOffset(b, g.memBytes)] = *q;
        }
      }
    }
  }
  ConvertABGRtoBGRA(d, pixels);
  return filledBytes(g);
}

}  // extern "C"
