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

}  // namespace vora::simd
