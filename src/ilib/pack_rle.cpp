// The "RLE" codec (ILpackrle, ILunpackrle): one byte-packet stream per (byte plane,
// slot), planes most significant first, packets running across row ends.
#include <algorithm>
#include <cstring>
#include <vector>


#include <vora/imf.h>

#include "ilib/pack_common.h"
#include "platform/simd.h"

using namespace vora::il::pack;

namespace vora::il::pack {

// The encoder's steps, run over a contiguous stream: a literal of L bytes a[ls, ls+L)
// whose trailing equal bytes began at offset rs; a run of runLen copies of one byte.
bool encodeBytesPlain(Output& o, const unsigned char* a, size_t n) {
  size_t i = 0, ls = 0, L = 0, rs = 0;
  unsigned char prev = uint8_t(~a[0]);  // the first byte never continues anything
  auto literal = [&](size_t from, size_t len) {
    if (len == 0) return true;
    if (!o.room(len + 1)) return false;
    o.byte(uint8_t(len - 1));
    o.bytes(a + from, len);
    return true;
  };
  while (i < n) {
    unsigned char c = a[i];
    size_t runLen;
    if (L == 128) {  // a full literal goes out; a new one starts with this byte
      if (!literal(ls, 128)) return false;
      ls = i++, L = 1, rs = 0, prev = c;
      continue;
    }
    if (c != prev) {  // appended, remembered as the start of a possible run
      rs = L++, prev = c, ++i;
      continue;
    }
    if (rs == 0) {  // the repeated bytes began the buffer: a run of 2 at once
      runLen = 2;
    } else {
      ++L, ++i;
      if (L - rs < 3) continue;  // two equal bytes inside a literal stay in it
      if (!literal(ls, rs)) return false;  // the bytes before the three equal ones
      runLen = 3;
      --i;  // the third byte is counted by the run below
    }
    ++i;
    while (i < n && a[i] == c && runLen < 128) ++runLen, ++i;
    if (!o.room(2)) return false;
    o.byte(uint8_t((runLen - 1) | 0x80));
    o.byte(c);
    L = 0;
    if (i < n) ls = i, L = 1, rs = 0, prev = a[i], ++i;  // a different byte, or the run was full
  }
  return literal(ls, L);
}

namespace {

using vora::simd::lowestBit;

#if VORA_SSE2
inline __m128i load16(const unsigned char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
#endif

// The first position in [p, limit) whose bit is set in m (clear, with Clear), or limit.
template <bool Clear>
size_t firstBit(const uint64_t* m, size_t p, size_t limit) {
  if (p >= limit) return limit;
  size_t w = p >> 6;
  uint64_t bits = (Clear ? ~m[w] : m[w]) & (~uint64_t(0) << (p & 63));
  while (!bits) {
    if (++w * 64 >= limit) return limit;
    bits = Clear ? ~m[w] : m[w];
  }
  return std::min(limit, w * 64 + size_t(lowestBit(bits)));
}

}  // namespace

// The plain encoder's packets found by position: at a literal's start two equal bytes begin a
// run; inside a literal the first three equal bytes that end within its 128 begin one; a run
// takes up to 128 bytes. The positions come from bit masks of the stream made first (equal
// neighbours, and starts of three equal bytes), a few bit operations a packet: rendered pictures
// are a short literal and a short run after another, where scanning for each end left the
// processor waiting on every step.
bool encodeBytes(Output& o, const unsigned char* a, size_t n) {
  const size_t words = (n + 63) / 64;
  thread_local std::vector<uint64_t> masks;
  masks.resize(2 * words + 4);
  uint64_t* const eq = masks.data();
  uint64_t* const triple = eq + words + 2;
  vora::simd::equalNextBits(a, int64_t(n), eq);
  for (size_t w = 0; w <= words; ++w) triple[w] = eq[w] & (eq[w] >> 1 | eq[w + 1] << 63);
  triple[words + 1] = 0;
  auto run = [&](size_t from) {
    const size_t limit = std::min(n, from + 128);
    const size_t end = std::min(firstBit<true>(eq, from, limit) + 1, limit);
    if (!o.room(2)) return size_t(0);
    o.byte(uint8_t((end - from - 1) | 0x80));
    o.byte(a[from]);
    return end;
  };
  auto literal = [&](size_t from, size_t len) {
    if (!o.room(len + 1)) return false;
    o.byte(uint8_t(len - 1));
    o.shortBytes(a + from, len, n - from);
    return true;
  };
  size_t i = 0;
  while (i < n) {
    if (eq[i >> 6] >> (i & 63) & 1) {
      if (!(i = run(i))) return false;
      continue;
    }
    const size_t last = std::min(i + 127, n - 1);  // the third byte of a run found inside
    const size_t j = last >= i + 3 ? firstBit<false>(triple, i + 1, last - 1) : last;
    if (j + 2 <= last) {
      if (!literal(i, j - i) || !(i = run(j))) return false;
      continue;
    }
    const size_t len = std::min<size_t>(128, n - i);
    if (!literal(i, len)) return false;
    i += len;
  }
  return true;
}

}  // namespace vora::il::pack

namespace {

// Byte elements filling every slot of the pixel, without lookup tables: the streams are split out
// of the pixels, or decoded into planes of their own (runs and literals moved as blocks) and then
// interleaved, by the vectorised kernels rather than byte by byte at the pixel stride.
bool decodesThroughPlanes(const ILpackdesc* d, const Geometry& g) {
  if (g.fileBytes != 1 || g.nslots != g.epp || g.nslots < 2) return false;
  for (uint32_t k = 0; k < g.nslots; ++k)
    if (lut(d, g.slots[k]) != ildeflut) return false;
  return true;
}

// One stream decoded into n contiguous bytes; the input after it, or null when it overruns. While
// a whole packet of input and of output remains, packets move 16 bytes at a time (bytes past a
// packet's end are overwritten by the next ones); the rest goes packet by packet with every check.
// Rendered pictures are mostly short packets of either kind in no predictable order, so the first
// 32 bytes of a packet are stored without asking which kind it is: a run's value and a literal's
// bytes are blended under a mask made from the header.
VORA_SIMD_CLONES const unsigned char* decodePlane(const unsigned char* p, const unsigned char* end, unsigned char* q, size_t n) {
  unsigned char* const stop = q + n;
  while (end - p >= 130 && stop - q >= 128) {
    const unsigned h = *p++;
    const size_t count = (h & 0x7F) + 1;
#if VORA_SSE2
    const __m128i run = _mm_set1_epi8(char(-char(h >> 7))), v = _mm_set1_epi8(char(*p));
    auto block = [&](size_t c) { return _mm_or_si128(_mm_and_si128(run, v), _mm_andnot_si128(run, load16(p + c))); };
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q), block(0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + 16), block(16));
    for (size_t c = 32; c < count; c += 16) _mm_storeu_si128(reinterpret_cast<__m128i*>(q + c), block(c));
    const size_t isRun = size_t(0) - (h >> 7);  // all ones for a run: the advance without a branch
    p += (isRun & 1) | (~isRun & count);
#else
    if (h & 0x80) {
      unsigned char v[16];
      memset(v, *p++, 16);
      for (size_t c = 0; c < count; c += 16) memcpy(q + c, v, 16);
    } else {
      for (size_t c = 0; c < count; c += 16) memcpy(q + c, p + c, 16);
      p += count;
    }
#endif
    q += count;
  }
  return readBytePackets(
      p, end, size_t(stop - q), [&](unsigned char v, size_t c) { memset(q, v, c), q += c; },
      [&](const unsigned char* src, size_t c) { memcpy(q, src, c), q += c; });
}

// Four byte planes interleaved into a line of a large picture with streaming stores: a whole
// picture loaded at once is not read back while it is decoded, and storing past the caches saves
// reading every destination line from memory before it is overwritten. Everything from the first
// 16-byte boundary is streamed: measured, mixing ordinary stores into the partial 64-byte lines at
// a row's ends cost more than streaming them too. Lines not 4-byte aligned take the ordinary join.
void joinFourStreaming(const void* const* planes, size_t width, unsigned char* line) {
#if VORA_SSE2
  const uintptr_t at = reinterpret_cast<uintptr_t>(line);
  size_t x = (at & 3) ? width : std::min(width, size_t((16 - (at & 15)) & 15) / 4);
  const size_t stop = x + (width - x) / 16 * 16;
  const auto* p = reinterpret_cast<const unsigned char* const*>(planes);
  if (x) IMF_planes_join(planes, 4, 1, int(x), line);
  for (; x < stop; x += 16) {
    const __m128i a = load16(p[0] + x), b = load16(p[1] + x), c = load16(p[2] + x), e = load16(p[3] + x);
    const __m128i ab0 = _mm_unpacklo_epi8(a, b), ab1 = _mm_unpackhi_epi8(a, b);
    const __m128i ce0 = _mm_unpacklo_epi8(c, e), ce1 = _mm_unpackhi_epi8(c, e);
    __m128i* q = reinterpret_cast<__m128i*>(line + x * 4);
    _mm_stream_si128(q, _mm_unpacklo_epi16(ab0, ce0));
    _mm_stream_si128(q + 1, _mm_unpackhi_epi16(ab0, ce0));
    _mm_stream_si128(q + 2, _mm_unpacklo_epi16(ab1, ce1));
    _mm_stream_si128(q + 3, _mm_unpackhi_epi16(ab1, ce1));
  }
  if (x < width) {
    const void* rest[4] = {p[0] + x, p[1] + x, p[2] + x, p[3] + x};
    IMF_planes_join(rest, 4, 1, int(width - x), line + x * 4);
  }
#else
  IMF_planes_join(planes, 4, 1, int(width), line);
#endif
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
  if (!usable(d)) return 0;
  Geometry g = geometry(d);
  uint32_t raw = ILrawsize(d);
  if (raw == 0) return 0;
  bool rotate = needsRealRotation(g);
  if (rotate) ConvertBGRAtoABGR(d, pixels);
  Output o(out, raw);
  const size_t n = size_t(g.width) * g.rows;
  bool ok = true;
  if (!rotate && decodesThroughPlanes(d, g)) {  // every stream split out at once by the vectorised split
    thread_local std::vector<unsigned char> planes;
    planes.resize(n * g.nslots);
    for (uint32_t y = 0; y < g.rows; ++y) {
      void* rows[4];  // byte b of a pixel is the slot slotOffset places there
      for (uint32_t k = 0; k < g.nslots; ++k) rows[slotOffset(g, k)] = planes.data() + n * k + size_t(y) * g.width;
      IMF_line_split(pixels + y * g.rowStride, int(g.nslots), 1, int(g.width), rows);
    }
    for (uint32_t k = 0; k < g.nslots && ok; ++k) ok = encodeBytes(o, planes.data() + n * k, n);
    const uint32_t packed = uint32_t(o.at() - out);
    return !ok || packed < 128 ? ILpack(d, pixels, out) : packed;
  }
  // One stream at a time, gathered into contiguous bytes (through the lookup table).
  thread_local std::vector<unsigned char> stream;
  stream.resize(n);
  for (uint32_t plane = 0; plane < g.fileBytes && ok; ++plane) {
    for (uint32_t k = 0; k < g.nslots && ok; ++k) {
      uint32_t s = g.slots[k];
      unsigned char* q = stream.data();
      if (plane >= g.memBytes) {  // a 1-byte memory element written as wider: zero low planes
        memset(q, 0, n);
      } else {
        size_t offset = (rotate ? s * g.memBytes : slotOffset(g, s)) + planeOffset(plane, g.memBytes);
        const unsigned char* table = g.fileBytes == 1 ? lut(d, s) : nullptr;
        if (table == ildeflut) table = nullptr;
        for (uint32_t y = 0; y < g.rows; ++y) {
          const unsigned char* p = pixels + y * g.rowStride + offset;
          if (table) {
            for (uint32_t x = 0; x < g.width; ++x, p += g.pixelStride) *q++ = table[*p];
          } else {
            for (uint32_t x = 0; x < g.width; ++x, p += g.pixelStride) *q++ = *p;
          }
        }
      }
      ok = encodeBytes(o, stream.data(), n);
    }
  }
  uint32_t packed = uint32_t(o.at() - out);
  if (rotate) ConvertABGRtoBGRA(d, pixels);
  // Deliberate: blocks that pack to under 128 bytes, or not below the raw size, are stored raw.
  if (!ok || packed < 128) return ILpack(d, pixels, out);
  return packed;
}

uint32_t ILunpackrle(ILpackdesc* d, const unsigned char* in, unsigned char* pixels) {
  if (!usable(d)) return overrun();
  if (d->packed == ILrawsize(d)) return ILunpack(d, in, pixels);
  Geometry g = geometry(d);
  // Four-byte elements follow the same rule only with one element per pixel.
  if (g.fileBytes == 4 && g.epp != 1) return overrun();
  const unsigned char* p = in;
  const unsigned char* end = in + d->packed;
  const size_t n = size_t(g.width) * g.rows;
  if (decodesThroughPlanes(d, g)) {
    thread_local std::vector<unsigned char> scratch;
    scratch.resize(n * g.nslots);
    unsigned char* const planes = scratch.data();  // looked up once: thread-locals cost a call each time
    for (uint32_t k = 0; k < g.nslots; ++k)
      if (!(p = decodePlane(p, end, planes + n * k, n))) return overrun();
    const bool streaming = (d->options & IL_UNPACK_STREAM) && g.nslots == 4;
    for (uint32_t y = 0; y < g.rows; ++y) {
      const void* rows[4];  // each slot straight to where the rotation below would put it
      for (uint32_t k = 0; k < g.nslots; ++k) rows[slotOffset(g, k)] = planes + n * k + size_t(y) * g.width;
      if (streaming) joinFourStreaming(rows, g.width, pixels + y * g.rowStride);
      else IMF_planes_join(rows, int(g.nslots), 1, int(g.width), pixels + y * g.rowStride);
    }
#if VORA_SSE2
    if (streaming) _mm_sfence();  // the streamed stores ordered before anything that follows
#endif
    return filledBytes(g);
  }
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
