// Part 2.3: the run-length packets of SGI rows (rle_compact, rle_expand).
#include <cstring>

#include "imagefile/sgi_format.h"

using namespace vora::sgi;

namespace {

// Writes one output unit (a packet header or a value) of 1 or 2 bytes.
inline void unit(unsigned char*& o, int obpp, unsigned v) {
  if (obpp == 1) {
    *o++ = uint8_t(v);
  } else {
    uint16_t s = uint16_t(v);
    memcpy(o, &s, 2);
    o += 2;
  }
}

inline unsigned readUnit(const unsigned char* p, int ibpp) {
  if (ibpp == 1) return *p;
  uint16_t s;
  memcpy(&s, p, 2);
  return s;
}

}  // namespace

extern "C" {

int rle_compact(const unsigned short* in, int ibpp, unsigned char* rlebuf, int obpp, int cnt) {
  if (ibpp != 2 || (obpp != 1 && obpp != 2)) {
    report("rle_compact: bad bpp: %d %d\n", ibpp, obpp);
    return 0;
  }
  unsigned char* o = rlebuf;
  int i = 0;
  while (i < cnt) {
    // A literal stretch runs until three equal consecutive values begin, or to the row's end.
    int j = i;
    while (j + 2 < cnt && !(in[j] == in[j + 1] && in[j + 1] == in[j + 2])) ++j;
    if (j + 2 >= cnt) j = cnt;
    for (int count = j - i; count > 0;) {
      int todo = count > 126 ? 126 : count;
      count -= todo;
      unit(o, obpp, 0x80u | unsigned(todo));
      for (; todo > 0; --todo) unit(o, obpp, in[i++]);
    }
    if (j == cnt) break;
    int k = j;
    while (k < cnt && in[k] == in[j]) ++k;
    for (int count = k - j; count > 0;) {
      int todo = count > 126 ? 126 : count;
      count -= todo;
      unit(o, obpp, unsigned(todo));
      unit(o, obpp, in[j]);
    }
    i = k;
  }
  unit(o, obpp, 0);
  return int((o - rlebuf) / obpp);
}

int rle_expand(const unsigned char* rlebuf, int ibpp, unsigned short* expbuf, int obpp, int cnt,
               int inlen) {
  if ((ibpp != 1 && ibpp != 2) || (obpp != 1 && obpp != 2)) {
    report("rle_expand: bad bpp: %d %d\n", ibpp, obpp);
    return 0;
  }
  const unsigned char* p = rlebuf;
  const unsigned char* end = rlebuf + (inlen > 0 ? inlen : 0);
  unsigned char* out8 = reinterpret_cast<unsigned char*>(expbuf);
  int n = 0;
  auto put = [&](unsigned v) {
    if (obpp == 1) out8[n++] = uint8_t(v);
    else expbuf[n++] = uint16_t(v);
  };
  while (end - p >= ibpp) {
    unsigned h = readUnit(p, ibpp);
    p += ibpp;
    int count = int(h & 0x7F);
    if (count == 0) return n;
    if (count > cnt - n) return -1;  // the packet overflows the row
    if (h & 0x80) {
      if (end - p < count * ibpp) return -1;
      for (int k = 0; k < count; ++k, p += ibpp) put(readUnit(p, ibpp));
    } else {
      if (end - p < ibpp) return -1;
      unsigned v = readUnit(p, ibpp);
      p += ibpp;
      for (int k = 0; k < count; ++k) put(v);
    }
  }
  return n;  // data ended without the final 0: what was there
}

}  // extern "C"
