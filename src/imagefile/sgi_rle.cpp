// The run-length packets of SGI rows (rle_compact, rle_expand).
#include <cstring>
#include <type_traits>
#include <vector>

#include "imagefile/sgi_format.h"
#include "platform/simd.h"

using namespace vora::sgi;

namespace {

template <int W>
inline void unit(unsigned char*& o, unsigned v) {
  if (W == 1) {
    *o++ = uint8_t(v);
  } else {
    uint16_t x = uint16_t(v);
    memcpy(o, &x, 2);
    o += 2;
  }
}

template <int W>
inline unsigned readUnit(const unsigned char* p) {
  if (W == 1) return *p;
  uint16_t s;
  memcpy(&s, p, 2);
  return s;
}

// The packer as the format describes it, value by value: the reference the fast one is tested
// against.
template <int OBPP>
int compactPlain(const unsigned short* in, unsigned char* rlebuf, int cnt) {
  unsigned char* o = rlebuf;
  int i = 0;
  while (i < cnt) {
    // A literal stretch runs until three equal consecutive values begin, or to the row's end.
    int j = i;
    while (j + 2 < cnt && !(in[j] == in[j + 1] && in[j + 1] == in[j + 2])) ++j;
    if (j + 2 >= cnt) j = cnt;
    for (int count = j - i; count > 0;) {
      int k = count > 126 ? 126 : count;
      count -= k;
      unit<OBPP>(o, 0x80u | unsigned(k));
      for (; k > 0; --k) unit<OBPP>(o, in[i++]);
    }
    if (j == cnt) break;
    int k = j;
    while (k < cnt && in[k] == in[j]) ++k;
    for (int count = k - j; count > 0;) {
      int k = count > 126 ? 126 : count;
      count -= k;
      unit<OBPP>(o, unsigned(k));
      unit<OBPP>(o, in[j]);
    }
    i = k;
  }
  unit<OBPP>(o, 0);
  return int((o - rlebuf) / OBPP);
}

// The same packets found and copied in blocks: rendered pictures are mostly literals (noise
// leaves few runs of three), which the plain packer handles a value at a time.
using vora::simd::lowestBit;
#if VORA_SSE2
inline __m128i load8(const unsigned short* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
#endif

// Where the first three equal consecutive values at or after i begin, or cnt.
inline int nextRun(const unsigned short* in, int i, int cnt) {
#if VORA_SSE2
  for (; i + 10 <= cnt; i += 8) {
    const __m128i a = load8(in + i), b = load8(in + i + 1), c = load8(in + i + 2);
    const unsigned m = unsigned(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi16(a, b), _mm_cmpeq_epi16(b, c))));
    if (m) return i + lowestBit(m) / 2;
  }
#endif
  for (; i + 2 < cnt; ++i)
    if (in[i] == in[i + 1] && in[i + 1] == in[i + 2]) return i;
  return cnt;
}

// Where the run of in[j] that begins at j ends.
inline int runEnd(const unsigned short* in, int j, int cnt) {
  int k = j + 1;
#if VORA_SSE2
  const __m128i v = _mm_set1_epi16(short(in[j]));
  for (; k + 8 <= cnt; k += 8) {
    const unsigned m = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi16(load8(in + k), v))) ^ 0xFFFFu;
    if (m) return k + lowestBit(m) / 2;
  }
#endif
  while (k < cnt && in[k] == in[j]) ++k;
  return k;
}

// k values as OBPP-byte units (a byte keeps the low 8 bits, as the plain packer's does).
template <int OBPP>
inline void copyUnits(unsigned char*& o, const unsigned short* in, int k) {
  if (OBPP == 2) {
    memcpy(o, in, size_t(k) * 2);
    o += size_t(k) * 2;
    return;
  }
  int x = 0;
#if VORA_SSE2
  const __m128i low = _mm_set1_epi16(0xFF);
  for (; x + 16 <= k; x += 16, o += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(_mm_and_si128(load8(in + x), low),
                                                                      _mm_and_si128(load8(in + x + 8), low)));
#endif
  for (; x < k; ++x) *o++ = uint8_t(in[x]);
}

// Byte literals: 16 at a time while 16 bytes of the row remain to be read (the last store may
// write up to 15 bytes past the literal, into room the caller leaves), the rest one by one.
inline void copyBytes(unsigned char*& o, const uint8_t* in, int k, const uint8_t* inEnd) {
  int x = 0;
#if VORA_SSE2
  for (; x < k && inEnd - (in + x) >= 16; x += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + x), _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + x)));
#endif
  for (; x < k; ++x) o[x] = in[x];
  o += k;
}
template <int OBPP>
int compact(const unsigned short* in, unsigned char* rlebuf, int cnt) {
  unsigned char* o = rlebuf;
  int i = 0;
  while (i < cnt) {
    const int j = nextRun(in, i, cnt);
    for (int count = j - i; count > 0;) {
      const int k = count > 126 ? 126 : count;
      count -= k;
      unit<OBPP>(o, 0x80u | unsigned(k));
      copyUnits<OBPP>(o, in + i, k);
      i += k;
    }
    if (j == cnt) break;
    const int end = runEnd(in, j, cnt);
    for (int count = end - j; count > 0;) {
      const int k = count > 126 ? 126 : count;
      count -= k;
      unit<OBPP>(o, unsigned(k));
      unit<OBPP>(o, in[j]);
    }
    i = end;
  }
  unit<OBPP>(o, 0);
  return int((o - rlebuf) / OBPP);
}

// Byte rows (the whole-picture writer's planes), packed from bit masks of the row made first.
// Bit k of `eq` is set when value k equals value k + 1; a run of three starts at k when bits k
// and k + 1 are set ("starts"). The packer's runs are the longest stretches of equal values of
// three or more (a literal ends at the first run of three, and a run takes every equal value), so
// they begin at the first bit of each block of starts and end two values past its last bit. All
// those positions are taken from the masks first, a few bit operations a word with no loop that
// depends on the one before; the packets are then written in one pass. Rendered rows are a short
// literal and a short run after another, where finding each end by scanning left the processor
// waiting on every step and guessing at every loop's end.
namespace {
// The positions of the set bits of m (base + bit), appended at out[n]: two are written whatever
// m holds (out has room), more only for the few words that have them.
inline void appendBits(uint64_t m, int base, int32_t* out, int& n) {
  constexpr uint64_t top = uint64_t(1) << 63;  // keeps the bit scans defined when m runs out
  const uint64_t second = m & (m - 1);
  out[n] = base + lowestBit(m | top), n += m != 0;
  out[n] = base + lowestBit(second | top), n += second != 0;
  for (uint64_t rest = second & (second - 1); rest; rest &= rest - 1) out[n++] = base + lowestBit(rest);
}
}  // namespace

int compactBytes(const uint8_t* in, unsigned char* rlebuf, int cnt) {
  const int words = (cnt + 63) / 64;
  thread_local std::vector<uint64_t> eqs;
  thread_local std::vector<int32_t> marks;
  eqs.resize(size_t(words) + 2);
  marks.resize(2 * (size_t(cnt) / 3 + 2));
  uint64_t* eq = eqs.data();
  vora::simd::equalNextBits(in, cnt, eq);
  // Each block of starts: its first bit (the run's first value) and its last (two before its
  // last value), in position order.
  int32_t* firsts = marks.data();
  int32_t* lasts = firsts + cnt / 3 + 2;
  int runs = 0, ends = 0;
  uint64_t before = 0, here = eq[0] & (eq[0] >> 1 | eq[1] << 63);
  for (int w = 0; w < words; ++w) {
    const uint64_t next = eq[w + 1] & (eq[w + 1] >> 1 | eq[w + 2] << 63);
    appendBits(here & ~(here << 1 | before >> 63), w * 64, firsts, runs);
    appendBits(here & ~(here >> 1 | next << 63), w * 64, lasts, ends);
    before = here, here = next;
  }
  unsigned char* o = rlebuf;
  auto literal = [&](int from, int to) {
#if VORA_SSE2
    // Most literals of rendered rows are shorter than 64: one packet moved as 64 bytes (the rest
    // is written over next), with no loop whose length the processor would have to guess.
    if (unsigned(to - from - 1) < 64u && cnt - from >= 64) {
      *o++ = uint8_t(0x80u | unsigned(to - from));
      for (int b = 0; b < 64; b += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + b), _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + from + b)));
      o += to - from;
      return;
    }
#endif
    for (int count = to - from; count > 0;) {
      const int n = count > 126 ? 126 : count;
      count -= n;
      *o++ = uint8_t(0x80u | unsigned(n));
      copyBytes(o, in + from, n, in + cnt);
      from += n;
    }
  };
  int done = 0;
  for (int r = 0; r < runs; ++r) {
    const int first = firsts[r], end = lasts[r] + 3;
    literal(done, first);
    done = end;
    if (end - first <= 126) {  // one packet, as almost every run is
      o[0] = uint8_t(end - first), o[1] = in[first], o += 2;
      continue;
    }
    for (int count = end - first; count > 0;) {
      const int n = count > 126 ? 126 : count;
      count -= n;
      *o++ = uint8_t(n);
      *o++ = in[first];
    }
  }
  literal(done, cnt);
  *o++ = 0;
  return int(o - rlebuf);
}

// Packets expanded value by value: every width, and the reference for the byte expander below.
template <int IBPP, int OBPP>
int expand(const unsigned char* p, unsigned short* expbuf, int cnt, int inlen) {
  const unsigned char* end = p + (inlen > 0 ? inlen : 0);
  using Out = std::conditional_t<OBPP == 1, unsigned char, unsigned short>;
  Out* out = reinterpret_cast<Out*>(expbuf);
  int n = 0;
  while (end - p >= IBPP) {
    unsigned h = readUnit<IBPP>(p);
    p += IBPP;
    int count = int(h & 0x7F);
    if (count == 0) return n;
    if (count > cnt - n) return -1;  // the packet overflows the row
    if (h & 0x80) {
      if (end - p < count * IBPP) return -1;
      for (int k = 0; k < count; ++k, p += IBPP) out[n + k] = Out(readUnit<IBPP>(p));
    } else {
      if (end - p < IBPP) return -1;
      Out v = Out(readUnit<IBPP>(p));
      p += IBPP;
      for (int k = 0; k < count; ++k) out[n + k] = v;
    }
    n += count;
  }
  return n;  // data ended without the final 0: what was there
}

// Byte packets into bytes (the whole-picture reader's rows): packets of up to 16 values are
// moved as one 16-byte store while 16 bytes of input and of row remain (the bytes past the packet
// are written over by the next ones), longer ones with memcpy/memset. Rendered pictures are
// mostly short literals and short runs.
int expandBytes(const unsigned char* p, unsigned char* out, int cnt, int inlen) {
  const unsigned char* end = p + (inlen > 0 ? inlen : 0);
  int n = 0;
  while (end - p >= 1) {
    const unsigned h = *p++;
    const int count = int(h & 0x7F);
    if (count == 0) return n;
    if (count > cnt - n) return -1;  // the packet overflows the row
    if (h & 0x80) {
      if (end - p < count) return -1;
#if VORA_SSE2
      if (count <= 16 && end - p >= 16 && cnt - n >= 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
      else
#endif
        memcpy(out + n, p, size_t(count));
      p += count;
    } else {
      if (end - p < 1) return -1;
#if VORA_SSE2
      if (count <= 16 && cnt - n >= 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_set1_epi8(char(*p)));
      else
#endif
        memset(out + n, *p, size_t(count));
      ++p;
    }
    n += count;
  }
  return n;
}

}  // namespace

extern "C" {

int rle_compact(const unsigned short* in, int ibpp, unsigned char* rlebuf, int obpp, int cnt) {
  if (ibpp != 2 || (obpp != 1 && obpp != 2)) {
    report(FL_ESTATE, "rle_compact: bad bpp: %d %d\n", ibpp, obpp);
    return 0;
  }
  return obpp == 1 ? compact<1>(in, rlebuf, cnt) : compact<2>(in, rlebuf, cnt);
}

int rle_expand_plain(const unsigned char* rlebuf, unsigned char* out, int cnt, int inlen) {
  return expand<1, 1>(rlebuf, reinterpret_cast<unsigned short*>(out), cnt, inlen);
}

int rle_compact_bytes(const uint8_t* in, unsigned char* rlebuf, int cnt) { return compactBytes(in, rlebuf, cnt); }

int rle_compact_plain(const unsigned short* in, unsigned char* rlebuf, int obpp, int cnt) {
  return obpp == 1 ? compactPlain<1>(in, rlebuf, cnt) : compactPlain<2>(in, rlebuf, cnt);
}

int rle_expand(const unsigned char* rlebuf, int ibpp, unsigned short* expbuf, int obpp, int cnt,
               int inlen) {
  if (ibpp == 1 && obpp == 2) return expand<1, 2>(rlebuf, expbuf, cnt, inlen);
  if (ibpp == 2 && obpp == 2) return expand<2, 2>(rlebuf, expbuf, cnt, inlen);
  if (ibpp == 1 && obpp == 1) return expandBytes(rlebuf, reinterpret_cast<unsigned char*>(expbuf), cnt, inlen);
  if (ibpp == 2 && obpp == 1) return expand<2, 1>(rlebuf, expbuf, cnt, inlen);
  report(FL_ESTATE, "rle_expand: bad bpp: %d %d\n", ibpp, obpp);
  return 0;
}

}  // extern "C"
