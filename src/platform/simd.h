// Run-time choice of instruction set for plain loops: a function marked VORA_SIMD_CLONES is
// compiled twice, for the SSE2 baseline and for AVX2, and the loader picks the one the processor
// runs. Where the toolchain cannot (Windows, other processors) the baseline version alone is built.
#pragma once

#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__)
#define VORA_SIMD_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define VORA_SIMD_CLONES
#endif
