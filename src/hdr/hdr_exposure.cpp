// HDR exposure operators: a float picture to 8-bit blue, green, red, alpha pixels by linear scale
// and bias, by a photographic tone map, or by a film-like curve with defog and knee.
#include <vora/hdr.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace {

// The picture's colours as red, green, blue: grey is spread, two channels give red, green, red.
inline void colours(const float* s, unsigned n, float c[3]) {
  c[0] = s[0];
  c[1] = n >= 2 ? s[1] : s[0];
  c[2] = n >= 3 ? s[2] : s[0];
}

inline bool finite(float v) { return v > -FLT_MAX && v < FLT_MAX; }

// [0, 1] times 255, truncated; NaN is 0 (the comparisons fail for it).
inline uint8_t unitByte(float x) { return uint8_t(int((x > 1.0f ? 1.0f : x > 0.0f ? x : 0.0f) * 255.0f)); }
// [0, 255], truncated; NaN is 0.
inline uint8_t clampByte(float v) { return uint8_t(int(v > 255.0f ? 255.0f : v > 0.0f ? v : 0.0f)); }

// Scale and bias that map [min, max] of the finite values onto [0, 1].
void autoRange(float mn, float mx, float& scale, float& bias) {
  scale = mx == mn ? 1.0f : 1.0f / (mx - mn);
  bias = -mn * scale;
}

// The film curve of one exposed value x above the knee start kl: logarithmic, then gamma 1/2.2
// scaled so that 2^3.5 lands at 255.
inline uint8_t film(float x, float kl, float f) {
  if (x > kl) x = kl + float(std::log(double((x - kl) * f + 1.0f))) / f;
  return clampByte(std::pow(x, 0.4545f) * 84.66f);
}

}  // namespace

ThdrExposure::~ThdrExposure() = default;
int ThdrExposure::convert(TgenericPixelMap<float>&, TpixelMap&) const { return -1; }

int ThdrLinearExposure::convert(TgenericPixelMap<float>& in, TpixelMap& out) const {
  const unsigned w = in.width(), h = in.height(), n = std::min(in.channels(), 4u);
  if (w == 0 || h == 0 || n == 0 || !out.create(w, h)) return -1;
  const size_t count = size_t(w) * h;
  float cs = colorScale_, cb = colorBias_, as = alphaScale_, ab = alphaBias_;
  if (cs == 0.0f) {  // automatic: the picture's own range
    float mn = FLT_MAX, mx = -FLT_MAX, amn = FLT_MAX, amx = -FLT_MAX;
    for (size_t i = 0; i < count; ++i) {
      const float* s = in.data() + i * in.channels();
      float c[3];
      colours(s, n, c);
      for (float v : c)
        if (finite(v)) mn = std::min(mn, v), mx = std::max(mx, v);
      if (n == 4 && finite(s[3])) amn = std::min(amn, s[3]), amx = std::max(amx, s[3]);
    }
    autoRange(mn, mx, cs, cb);
    if (n == 4) autoRange(amn, amx, as, ab);
    else as = 1.0f, ab = 0.0f;
  }
  Tpixel32* o = out.pixels();
  for (size_t i = 0; i < count; ++i) {
    const float* s = in.data() + i * in.channels();
    float c[3];
    colours(s, n, c);
    o[i].r = unitByte(c[0] * cs + cb), o[i].g = unitByte(c[1] * cs + cb), o[i].b = unitByte(c[2] * cs + cb);
    o[i].a = unitByte(n == 4 ? s[3] * as + ab : 1.0f);
  }
  return 0;
}

int ThdrToneMap::convert(TgenericPixelMap<float>& in, TpixelMap& out) const {
  const unsigned w = in.width(), h = in.height(), n = in.channels();
  if (w == 0 || h == 0 || (n != 1 && n != 3 && n != 4) || !out.create(w, h)) return -1;
  const size_t count = size_t(w) * h;
  std::vector<float> lum(count);
  float lmin = FLT_MAX, lmax = -FLT_MAX;
  for (size_t i = 0; i < count; ++i) {
    const float* s = in.data() + i * n;
    const float l = n == 1 ? s[0] : 0.2125f * s[0] + 0.7154f * s[1] + 0.0721f * s[2];
    lum[i] = l;
    if (l < lmin) lmin = l;
    if (l > lmax) lmax = l;
  }
  const float r = lmax == lmin ? 1.0f : 1.0f / (lmax - lmin);
  double sum = 0;
  for (size_t i = 0; i < count; ++i)
    sum += std::log(double(std::max((lum[i] - lmin) * r, 1e-5f)) + 1.0);
  const float k = middleGrey_ / float(std::exp(sum / double(count)));
  Tpixel32* o = out.pixels();
  for (size_t i = 0; i < count; ++i) {
    const float* s = in.data() + i * n;
    const float ls = (lum[i] - lmin) * k;  // without r, as the average was not (kept)
    const float d = ls / (ls + 1.0f) * 255.0f;
    if (n == 1) {
      o[i].r = o[i].g = o[i].b = clampByte(d);
    } else {
      float c[3];
      for (int j = 0; j < 3; ++j) c[j] = s[j] > 0.0f ? s[j] : 0.0f;  // negative and NaN count as 0
      const float m = std::max({c[0], c[1], c[2]});
      // A black pixel would divide 0 by 0: it stays black.
      o[i].r = m > 0 ? clampByte(c[0] / m * d) : 0;
      o[i].g = m > 0 ? clampByte(c[1] / m * d) : 0;
      o[i].b = m > 0 ? clampByte(c[2] / m * d) : 0;
    }
    o[i].a = 255;
  }
  return 0;
}

float ThdrOpenEXR::kneeFactor(float a, float b) {
  auto g = [a](float f) { return float(std::log(double(a) * f + 1.0) / f); };
  float f0 = 0.0f, f1 = 1.0f;
  if (float(std::log(double(a) + 1.0)) > b)
    for (int i = 0; i < 256 && g(f1) > b; ++i) f0 = f1, f1 = 2.0f * f1;  // bounded: f1 overflows first
  for (int i = 0; i < 30; ++i) {
    float mid = (f0 + f1) / 2.0f;
    if (b > g(mid)) f1 = mid;
    else f0 = mid;
  }
  return (f0 + f1) / 2.0f;
}

bool ThdrOpenEXR::computeFogColor(TgenericPixelMap<float>& in) const {
  fog_[0] = fog_[1] = fog_[2] = 0.0f;
  if (defog_ == 0.0f) return true;
  const size_t count = size_t(in.width()) * in.height();
  if (count < 1) return false;
  const unsigned n = std::min(in.channels(), 4u);
  double sum[3] = {0, 0, 0};  // skipped values still count in the divisor
  for (size_t i = 0; i < count; ++i) {
    const float* s = in.data() + i * in.channels();
    for (unsigned c = 0; c < std::min(n, 3u); ++c)
      if (finite(s[c])) sum[c] += s[c];
  }
  fog_[0] = float(sum[0] / double(count));
  fog_[1] = n >= 2 ? float(sum[1] / double(count)) : fog_[0];
  fog_[2] = n >= 3 ? float(sum[2] / double(count)) : fog_[0];
  return true;
}

int ThdrOpenEXR::convert(TgenericPixelMap<float>& in, TpixelMap& out) const {
  const unsigned w = in.width(), h = in.height(), n = std::min(in.channels(), 4u);
  if (w == 0 || h == 0 || n < 1 || !out.create(w, h)) return -1;
  const size_t count = size_t(w) * h;
  Tpixel32* o = out.pixels();
  const bool fast = defog_ == 0.0f && kneeLow_ == 0.0f && kneeHigh_ == 5.0f;
  float m, kl, f;
  if (fast) {
    m = std::pow(2.0f, std::clamp(exposure_ + 2.47393f, -20.0f, 20.0f));
    kl = 1.0f, f = 0.184874f;
  } else {
    if (defog_ == 0.0f) fog_[0] = fog_[1] = fog_[2] = 0.0f;
    else if (!computeFogColor(in)) return -1;
    else
      for (float& c : fog_) c *= defog_;
    m = std::pow(2.0f, exposure_ + 2.47393f);  // not clamped here (kept)
    kl = kneeLow_ == 0.0f ? 1.0f : std::pow(2.0f, kneeLow_);
    f = kneeFactor(std::pow(2.0f, kneeHigh_) - kl, 11.313708f - kl);
  }
  for (size_t i = 0; i < count; ++i) {
    float c[3];
    colours(in.data() + i * in.channels(), n, c);
    uint8_t v[3];
    for (int j = 0; j < 3; ++j) {
      float x = fast ? c[j] * m : std::max(0.0f, c[j] - fog_[j]) * m;
      if (fast && x < 0.0f) x = 0.0f;
      v[j] = film(x, kl, f);
    }
    o[i].r = v[0], o[i].g = v[1], o[i].b = v[2], o[i].a = 255;
  }
  return 0;
}
