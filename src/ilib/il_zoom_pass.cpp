// The two passes of the zoom over lines of 4 elements per pixel. Built with vectorisation on
// (see CMakeLists.txt): the vertical pass is a weighted sum of whole lines, the horizontal one a
// weighted sum of neighbouring pixels.
#include <algorithm>
#include <cstring>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ilib/il_zoom.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vora::il {

namespace {

// 32-bit sums suffice when both sides are at most 16 bits and one of them 8 (the narrow path,
// whose weights the binding keeps below 2^15 in magnitude summed).
template <typename In, typename Out>
using Acc = std::conditional_t<(sizeof(In) == 1 && sizeof(Out) == 2 && std::is_signed_v<Out>) ||
                                   (sizeof(Out) == 1 && sizeof(In) == 2 && std::is_signed_v<In>),
                               int32_t, int64_t>;

// Rounds a sum back to the sample range (maxv >= 0) or to the intermediate type.
template <typename Out, typename A>
inline Out settle(A acc, int shift, int maxv) {
  A v = (acc + (A(1) << (shift - 1))) >> shift;
  A lo = maxv >= 0 ? 0 : A(std::numeric_limits<Out>::min());
  A hi = maxv >= 0 ? A(maxv) : A(std::numeric_limits<Out>::max());
  return Out(std::min(std::max(v, lo), hi));
}

constexpr size_t kStrip = 1024;  // elements summed at once: the sums stay in the first-level cache

}  // namespace

template <typename In, typename Out>
void horizontalPass(const In* in, Out* out, const TapTable& t, int shift, int maxv) {
  using A = Acc<In, Out>;
  const size_t dst = t.first.size();
  for (size_t x = 0; x < dst; ++x) {
    const In* p = in + size_t(t.first[x]) * 4;
    const int32_t* w = t.pool.data() + t.offset[x];
    const int n = t.count[x];
    A a0 = 0, a1 = 0, a2 = 0, a3 = 0;
    for (int k = 0; k < n; ++k, p += 4) {
      A wk = w[k];
      a0 += wk * p[0];
      a1 += wk * p[1];
      a2 += wk * p[2];
      a3 += wk * p[3];
    }
    Out* o = out + x * 4;
    o[0] = settle<Out>(a0, shift, maxv);
    o[1] = settle<Out>(a1, shift, maxv);
    o[2] = settle<Out>(a2, shift, maxv);
    o[3] = settle<Out>(a3, shift, maxv);
  }
}

template <typename In, typename Out>
void verticalPass(const In* const* rows, const int32_t* weights, int taps, Out* out, size_t n, int shift,
                  int maxv) {
  using A = Acc<In, Out>;
  A acc[kStrip];
  for (size_t s = 0; s < n; s += kStrip) {
    const size_t len = std::min(kStrip, n - s);
    {
      const In* r = rows[0] + s;
      const A w = weights[0];
      for (size_t x = 0; x < len; ++x) acc[x] = w * r[x];
    }
    for (int k = 1; k < taps; ++k) {
      const In* r = rows[k] + s;
      const A w = weights[k];
      for (size_t x = 0; x < len; ++x) acc[x] += w * r[x];
    }
    for (size_t x = 0; x < len; ++x) out[s + x] = settle<Out>(acc[x], shift, maxv);
  }
}


#if defined(__SSE2__)
// The narrow 8-bit path with 16-bit multiplies summed in pairs (pmaddwd): two taps per step.
// Exactly the sums of the portable loops above; the saturating packs are their clamps.

namespace {

inline __m128i weightPair(const int32_t* w, int k, int taps) {
  const int32_t second = k + 1 < taps ? w[k + 1] : 0;
  return _mm_set1_epi32(int32_t((uint32_t(w[k]) & 0xFFFF) | (uint32_t(second) << 16)));
}

inline __m128i settle4(__m128i acc, int shift) {
  return _mm_srai_epi32(_mm_add_epi32(acc, _mm_set1_epi32(1 << (shift - 1))), shift);
}

}  // namespace

template <>
void verticalPass<uint8_t, int16_t>(const uint8_t* const* rows, const int32_t* weights, int taps, int16_t* out,
                                    size_t n, int shift, int) {
  const __m128i zero = _mm_setzero_si128();
  size_t x = 0;
  for (; x + 16 <= n; x += 16) {
    __m128i a0 = zero, a1 = zero, a2 = zero, a3 = zero;
    for (int k = 0; k < taps; k += 2) {
      const __m128i w = weightPair(weights, k, taps);
      const __m128i r0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + x));
      const __m128i r1 = k + 1 < taps ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 1] + x)) : zero;
      const __m128i l0 = _mm_unpacklo_epi8(r0, zero), l1 = _mm_unpacklo_epi8(r1, zero);
      const __m128i h0 = _mm_unpackhi_epi8(r0, zero), h1 = _mm_unpackhi_epi8(r1, zero);
      a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi16(l0, l1), w));
      a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi16(l0, l1), w));
      a2 = _mm_add_epi32(a2, _mm_madd_epi16(_mm_unpacklo_epi16(h0, h1), w));
      a3 = _mm_add_epi32(a3, _mm_madd_epi16(_mm_unpackhi_epi16(h0, h1), w));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_packs_epi32(settle4(a0, shift), settle4(a1, shift)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x + 8), _mm_packs_epi32(settle4(a2, shift), settle4(a3, shift)));
  }
  for (; x < n; ++x) {
    int32_t acc = 0;
    for (int k = 0; k < taps; ++k) acc += weights[k] * rows[k][x];
    out[x] = settle<int16_t>(acc, shift, -1);
  }
}

template <>
void verticalPass<int16_t, uint8_t>(const int16_t* const* rows, const int32_t* weights, int taps, uint8_t* out,
                                    size_t n, int shift, int maxv) {
  const __m128i zero = _mm_setzero_si128();
  size_t x = 0;
  for (; x + 8 <= n; x += 8) {
    __m128i a0 = zero, a1 = zero;
    for (int k = 0; k < taps; k += 2) {
      const __m128i w = weightPair(weights, k, taps);
      const __m128i r0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + x));
      const __m128i r1 = k + 1 < taps ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 1] + x)) : zero;
      a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi16(r0, r1), w));
      a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi16(r0, r1), w));
    }
    const __m128i v = _mm_packs_epi32(settle4(a0, shift), settle4(a1, shift));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x), _mm_packus_epi16(v, v));
  }
  for (; x < n; ++x) {
    int32_t acc = 0;
    for (int k = 0; k < taps; ++k) acc += weights[k] * rows[k][x];
    out[x] = settle<uint8_t>(acc, shift, maxv);
  }
}

template <>
void horizontalPass<int16_t, uint8_t>(const int16_t* in, uint8_t* out, const TapTable& t, int shift, int) {
  const size_t dst = t.first.size();
  for (size_t x = 0; x < dst; ++x) {
    const int16_t* p = in + size_t(t.first[x]) * 4;
    const int32_t* w = t.pool.data() + t.offset[x];
    const int n = t.count[x];
    __m128i acc = _mm_setzero_si128();
    int k = 0;
    for (; k + 1 < n; k += 2) {  // pixels k and k + 1, their channels interleaved
      const __m128i px = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k * 4));
      acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi16(px, _mm_unpackhi_epi64(px, px)), weightPair(w, k, n)));
    }
    if (k < n) {
      const __m128i px = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + k * 4));
      acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi16(px, _mm_setzero_si128()), weightPair(w, k, n)));
    }
    const __m128i v = _mm_packs_epi32(settle4(acc, shift), settle4(acc, shift));
    const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
    memcpy(out + x * 4, &bytes, 4);
  }
}

template <>
void horizontalPass<uint8_t, int16_t>(const uint8_t* in, int16_t* out, const TapTable& t, int shift, int) {
  const size_t dst = t.first.size();
  const __m128i zero = _mm_setzero_si128();
  for (size_t x = 0; x < dst; ++x) {
    const uint8_t* p = in + size_t(t.first[x]) * 4;
    const int32_t* w = t.pool.data() + t.offset[x];
    const int n = t.count[x];
    __m128i acc = zero;
    for (int k = 0; k < n; k += 2) {
      int32_t two[2] = {0, 0};
      memcpy(two, p + k * 4, k + 1 < n ? 8 : 4);
      const __m128i px = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(two)), zero);
      acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi16(px, _mm_unpackhi_epi64(px, px)), weightPair(w, k, n)));
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x * 4), _mm_packs_epi32(settle4(acc, shift), zero));
  }
}
#endif

#if defined(__SSE2__)
#define VORA_ZOOM_PASSES_NARROW(In, Out)
#else
#define VORA_ZOOM_PASSES_NARROW(In, Out) VORA_ZOOM_PASSES(In, Out)
#endif
#define VORA_ZOOM_PASSES(In, Out)                                                        \
  template void horizontalPass<In, Out>(const In*, Out*, const TapTable&, int, int);    \
  template void verticalPass<In, Out>(const In* const*, const int32_t*, int, Out*, size_t, int, int);

VORA_ZOOM_PASSES_NARROW(uint8_t, int16_t)
VORA_ZOOM_PASSES_NARROW(int16_t, uint8_t)
VORA_ZOOM_PASSES(uint8_t, int32_t)
VORA_ZOOM_PASSES(int32_t, uint8_t)
VORA_ZOOM_PASSES(uint16_t, int32_t)
VORA_ZOOM_PASSES(int32_t, uint16_t)

}  // namespace vora::il
