// A TccLut applied to whole buffers, spread over the cores. Results equal
// TccLut::convert pixel for pixel: the cube path does convert's float operations in convert's
// order, four components at once with SSE (no fused multiply-add), and everything else calls the
// same helpers.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <vora/colorlut.h>

#include "colorlut/lut_math.h"
#include "foundation/parallel.h"

namespace {

using vora::lut::clamp01;

// The cube lookup of convert, with the lattice entries as four-float vectors.
struct Cube {
  const float* table;  // TscLutColor entries: four floats each
  unsigned size[3];
  size_t strideG, strideB;  // in entries

  inline __m128 lerp(__m128 a, __m128 b, __m128 t) const {
    return _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), t));
  }
  inline __m128 at(size_t i) const { return _mm_loadu_ps(table + 4 * i); }

  inline __m128 lookup(const float v[3]) const {
    size_t idx[3];
    float f[3];
    for (int a = 0; a < 3; ++a) vora::lut::cubeAxis(v[a], size[a], idx[a], f[a]);
    const size_t base = idx[2] * strideB + idx[1] * strideG + idx[0];
    const __m128 fb = _mm_set1_ps(f[2]), fg = _mm_set1_ps(f[1]), fr = _mm_set1_ps(f[0]);
    // C(r, g, b) at base, +1 along red, +strideG along green, +strideB along blue.
    __m128 c00 = lerp(at(base), at(base + strideB), fb);
    __m128 c10 = lerp(at(base + strideG), at(base + strideG + strideB), fb);
    __m128 c01 = lerp(at(base + 1), at(base + 1 + strideB), fb);
    __m128 c11 = lerp(at(base + 1 + strideG), at(base + 1 + strideG + strideB), fb);
    __m128 c0 = lerp(c00, c10, fg);
    __m128 c1 = lerp(c01, c11, fg);
    return lerp(c0, c1, fr);
  }
};

// One pixel (red, green, blue in rgb) through the pre-transform, the pre-LUTs and the table.
struct Pipeline {
  const TccLut& lut;
  const TscLutLin2LogPreTransform* pre;
  bool cubeFast;
  Cube cube;

  Pipeline(const TccLut& l, const TscLutLin2LogPreTransform* p) : lut(l), pre(p), cube{} {
    unsigned r, g, b;
    l.cubeSize(r, g, b);
    cubeFast = l.kind() == TccLut::kCube && r >= 2 && g >= 2 && b >= 2 &&
               l.table().size() >= size_t(r) * g * b;
    if (cubeFast) {
      cube.table = &l.table()[0].red;
      cube.size[0] = r, cube.size[1] = g, cube.size[2] = b;
      cube.strideG = r;
      cube.strideB = size_t(r) * g;
    }
  }

  inline void run(float rgb[3]) const {
    TscLutColor in(rgb[0], rgb[1], rgb[2], 0.0f);
    if (pre) pre->PreTransform(in, in);
    if (!cubeFast) {
      TscLutColor out(in.red, in.green, in.blue, 0.0f);
      if (lut.convert(in, out)) rgb[0] = out.red, rgb[1] = out.green, rgb[2] = out.blue;
      return;
    }
    float v[3] = {in.red, in.green, in.blue};
    for (int c = 0; c < 3; ++c) {
      const TccLut::Curve& curve = lut.preLut(c);
      if (!curve.empty()) v[c] = TccLut::applyPreLut(v[c], curve);
      v[c] = clamp01(v[c]);
    }
    alignas(16) float o[4];
    _mm_store_ps(o, cube.lookup(v));
    rgb[0] = o[0], rgb[1] = o[1], rgb[2] = o[2];
  }
};

inline uint8_t toByte(float x) { return uint8_t(std::lround(clamp01(x) * 255.0f)); }

}  // namespace

void ccLutApply(const TccLut& lut, const TscLutLin2LogPreTransform* pre, float* px, size_t n,
                int channels, int threads) {
  if (!px || (channels != 3 && channels != 4)) return;
  Pipeline p(lut, pre);
  vora::parallelFor(n, threads, 4096, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) p.run(px + i * size_t(channels));
  });
}

void ccLutApplyBGRA8(const TccLut& lut, const TscLutLin2LogPreTransform* pre, uint8_t* px, size_t n,
                     int threads) {
  if (!px) return;
  Pipeline p(lut, pre);
  float unit[256];
  for (int i = 0; i < 256; ++i) unit[i] = float(i) / 255.0f;
  vora::parallelFor(n, threads, 4096, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      uint8_t* q = px + 4 * i;
      float rgb[3] = {unit[q[2]], unit[q[1]], unit[q[0]]};
      p.run(rgb);
      q[2] = toByte(rgb[0]), q[1] = toByte(rgb[1]), q[0] = toByte(rgb[2]);
    }
  });
}

void ccLutApplyReference(const TccLut& lut, const TscLutLin2LogPreTransform* pre, float* px,
                         size_t n, int channels) {
  if (!px || (channels != 3 && channels != 4)) return;
  for (size_t i = 0; i < n; ++i) {
    float* q = px + i * size_t(channels);
    TscLutColor in(q[0], q[1], q[2], 0.0f), out(q[0], q[1], q[2], 0.0f);
    if (pre) pre->PreTransform(in, in);
    if (lut.convert(in, out)) q[0] = out.red, q[1] = out.green, q[2] = out.blue;
  }
}
