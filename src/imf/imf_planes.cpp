// Planes to interleaved lines and back: every plug-in and host crosses this on every line, so the
// common shapes (1 to 4 planes of 8, 16 or 32-bit samples) are loops the compiler
// turns into vector shuffles; anything else takes the plain loop, which is also what the fast ones
// are tested against.
#include <cstring>

#include "platform/simd.h"
#include "vora/imf.h"

namespace {

template <class T, int N>
inline void joinN(const void* const* planes, int width, void* line) {
  // One pointer per plane, restrict-qualified so that the loop may be vectorised.
  const T* __restrict p0 = static_cast<const T*>(planes[0]);
  const T* __restrict p1 = static_cast<const T*>(planes[N > 1 ? 1 : 0]);
  const T* __restrict p2 = static_cast<const T*>(planes[N > 2 ? 2 : 0]);
  const T* __restrict p3 = static_cast<const T*>(planes[N > 3 ? 3 : 0]);
  T* __restrict d = static_cast<T*>(line);
  for (int x = 0; x < width; ++x) {
    d[x * N] = p0[x];
    if (N > 1) d[x * N + 1] = p1[x];
    if (N > 2) d[x * N + 2] = p2[x];
    if (N > 3) d[x * N + 3] = p3[x];
  }
}

template <class T, int N>
inline void splitN(const void* line, int width, void* const* planes) {
  T* __restrict p0 = static_cast<T*>(planes[0]);
  T* __restrict p1 = static_cast<T*>(planes[N > 1 ? 1 : 0]);
  T* __restrict p2 = static_cast<T*>(planes[N > 2 ? 2 : 0]);
  T* __restrict p3 = static_cast<T*>(planes[N > 3 ? 3 : 0]);
  const T* __restrict s = static_cast<const T*>(line);
  for (int x = 0; x < width; ++x) {
    p0[x] = s[x * N];
    if (N > 1) p1[x] = s[x * N + 1];
    if (N > 2) p2[x] = s[x * N + 2];
    if (N > 3) p3[x] = s[x * N + 3];
  }
}

using Join = void (*)(const void* const*, int, void*);
using Split = void (*)(const void*, int, void* const*);

#define VORA_SHAPE(T, N)                                                                                     \
  VORA_SIMD_CLONES void join_##T##_##N(const void* const* p, int w, void* l) { joinN<T, N>(p, w, l); }       \
  VORA_SIMD_CLONES void split_##T##_##N(const void* l, int w, void* const* p) { splitN<T, N>(l, w, p); }
VORA_SHAPE(uint8_t, 2)
VORA_SHAPE(uint8_t, 3)
VORA_SHAPE(uint8_t, 4)
VORA_SHAPE(uint16_t, 2)
VORA_SHAPE(uint16_t, 3)
VORA_SHAPE(uint16_t, 4)
VORA_SHAPE(uint32_t, 2)
VORA_SHAPE(uint32_t, 3)
VORA_SHAPE(uint32_t, 4)
#undef VORA_SHAPE

// The shape's loops, or null for the plain one.
template <class F>
F pick(int count, int sampleBytes, F u8[3], F u16[3], F u32[3]) {
  if (count < 2 || count > 4) return nullptr;
  if (sampleBytes == 1) return u8[count - 2];
  if (sampleBytes == 2) return u16[count - 2];
  if (sampleBytes == 4) return u32[count - 2];
  return nullptr;
}

}  // namespace

extern "C" {

void IMF_planes_join(const void* const* planes, int count, int sampleBytes, int width, void* line) {
  static Join u8[3] = {join_uint8_t_2, join_uint8_t_3, join_uint8_t_4};
  static Join u16[3] = {join_uint16_t_2, join_uint16_t_3, join_uint16_t_4};
  static Join u32[3] = {join_uint32_t_2, join_uint32_t_3, join_uint32_t_4};
  if (width <= 0) return;  // planes of no samples may be null
  if (count == 1) return (void)memcpy(line, planes[0], size_t(width) * size_t(sampleBytes));
  if (Join f = pick(count, sampleBytes, u8, u16, u32)) return f(planes, width, line);
  auto* d = static_cast<unsigned char*>(line);
  for (int x = 0; x < width; ++x)
    for (int c = 0; c < count; ++c, d += sampleBytes)
      memcpy(d, static_cast<const unsigned char*>(planes[c]) + size_t(x) * size_t(sampleBytes), size_t(sampleBytes));
}

void IMF_line_split(const void* line, int count, int sampleBytes, int width, void* const* planes) {
  static Split u8[3] = {split_uint8_t_2, split_uint8_t_3, split_uint8_t_4};
  static Split u16[3] = {split_uint16_t_2, split_uint16_t_3, split_uint16_t_4};
  static Split u32[3] = {split_uint32_t_2, split_uint32_t_3, split_uint32_t_4};
  if (width <= 0) return;
  if (count == 1) return (void)memcpy(planes[0], line, size_t(width) * size_t(sampleBytes));
  if (Split f = pick(count, sampleBytes, u8, u16, u32)) return f(line, width, planes);
  const auto* s = static_cast<const unsigned char*>(line);
  for (int x = 0; x < width; ++x)
    for (int c = 0; c < count; ++c, s += sampleBytes)
      memcpy(static_cast<unsigned char*>(planes[c]) + size_t(x) * size_t(sampleBytes), s, size_t(sampleBytes));
}

}  // extern "C"
