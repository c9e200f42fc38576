// Run-time choice of instruction set for plain loops: a function marked VORA_SIMD_CLONES is
// compiled twice, for the SSE2 baseline and for AVX2, and the loader picks the one the processor
// runs. Where the toolchain cannot (Windows, other processors) the baseline version alone is built.
#pragma once

#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__)
#define VORA_SIMD_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define VORA_SIMD_CLONES
#endif

// SSE2, the x86-64 baseline, for kernels written with its intrinsics; other processors take the
// plain loops beside them.
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define VORA_SSE2 1
#else
#define VORA_SSE2 0
#endif

#include <cstdint>

namespace vora::simd {

// The index of the lowest set bit of a nonzero mask of 32 or 64 bits (the first lane a comparison
// picked, the first position a bit mask marks).
template <typename Mask>
inline int lowestBit(Mask mask) {
  static_assert(sizeof(Mask) == 4 || sizeof(Mask) == 8, "masks of 32 or 64 bits");
#if defined(_MSC_VER)
  unsigned long i;
  if constexpr (sizeof(Mask) == 8) _BitScanForward64(&i, mask);
  else _BitScanForward(&i, mask);
  return int(i);
#else
  if constexpr (sizeof(Mask) == 8) return __builtin_ctzll(mask);
  else return __builtin_ctz(mask);
#endif
}

// Bit k of eq[k / 64] set when in[k] == in[k + 1], for k + 1 < n; the words of eq up to
// (n + 63) / 64 + 2 are written, those past the data clear (run-length packers scan them as masks).
inline void equalNextBits(const uint8_t* in, int64_t n, uint64_t* eq) {
  const int64_t words = (n + 63) / 64;
  for (int64_t w = 0; w < words + 2; ++w) eq[w] = 0;
  int64_t k = 0;
#if VORA_SSE2
  auto equalNext16 = [in](int64_t at) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at)),
                  b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at + 1));
    return uint64_t(unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b))));
  };
  for (; k + 65 <= n; k += 64)
    eq[k >> 6] = equalNext16(k) | equalNext16(k + 16) << 16 | equalNext16(k + 32) << 32 | equalNext16(k + 48) << 48;
  for (; k + 17 <= n; k += 16) eq[k >> 6] |= equalNext16(k) << (k & 63);
#endif
  for (; k + 1 < n; ++k) eq[k >> 6] |= uint64_t(in[k] == in[k + 1]) << (k & 63);
}

}  // namespace vora::simd
