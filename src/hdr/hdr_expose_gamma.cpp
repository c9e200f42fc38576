// Display exposure with a gamma, by thresholds: the byte of a value is how many of the 255
// level thresholds it reaches. Each threshold is the smallest float whose exact curve value gives
// that level, found by bisection over the float's bits (non-negative floats order as their bits),
// so the result is bit for bit the per-value computation.
#include <vora/hdr.h>

#include <cmath>
#include <cstring>

namespace {

inline uint32_t bitsOf(float v) {
  uint32_t b;
  memcpy(&b, &v, 4);
  return b;
}
inline float floatOf(uint32_t b) {
  float v;
  memcpy(&v, &b, 4);
  return v;
}

struct Curve {
  float scale, inv;
  // The level of one value, computed the long way.
  int level(float v) const {
    float x = std::pow(v * scale, inv);
    return int((x > 1.0f ? 1.0f : x > 0.0f ? x : 0.0f) * 255.0f);
  }
};

constexpr uint32_t kInf = 0x7f800000u;  // +infinity; above it: NaN, and every negative value

struct Levels {
  uint32_t t[256];  // t[k]: the smallest bits at level k or more (t[0] = 0); kInf + 1 when none
  explicit Levels(const Curve& c) {
    t[0] = 0;
    for (int k = 1; k < 256; ++k) {
      uint32_t lo = t[k - 1], hi = kInf;
      if (c.level(floatOf(hi)) < k) {
        t[k] = kInf + 1;
        continue;
      }
      while (lo < hi) {
        uint32_t mid = lo + (hi - lo) / 2;
        if (c.level(floatOf(mid)) >= k) hi = mid;
        else lo = mid + 1;
      }
      t[k] = lo;
    }
  }
  uint8_t of(float v) const {
    const uint32_t b = bitsOf(v);
    if (b > kInf) return 0;  // negative or NaN
    int k = 0;
    for (int step = 128; step; step >>= 1)
      if (k + step < 256 && b >= t[k + step]) k += step;
    return uint8_t(k);
  }
};

}  // namespace

int hdrExposeGamma(const TgenericPixelMap<float>& in, TpixelMap& out, float exposure, float gamma) {
  const unsigned w = in.width(), h = in.height(), c = in.channels(), n = c < 4 ? c : 4;
  if (w == 0 || h == 0 || c == 0 || !(gamma > 0.0f) || !out.create(w, h)) return -1;
  const Levels colour(Curve{std::exp2(exposure), 1.0f / gamma}), alpha(Curve{1.0f, 1.0f});
  Tpixel32* o = out.pixels();
  const float* s = in.data();
  for (size_t i = 0, count = size_t(w) * h; i < count; ++i, s += c) {
    const float r = s[0], g = n >= 2 ? s[1] : s[0], b = n >= 3 ? s[2] : s[0];
    o[i].r = colour.of(r), o[i].g = colour.of(g), o[i].b = colour.of(b);
    o[i].a = n == 4 ? alpha.of(s[3]) : 255;
  }
  return 0;
}
