// Blending one layer onto a destination by its blend key. The formulas are the ones documents
// composited by this library have always shown, truncations and 8-bit shifts included (at 16 bits
// too): they are kept as they are, not moved toward another program's results.
#include <cmath>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include <vora/photoshop.h>

#include "foundation/parallel.h"

namespace ktPhotoshop {

namespace {

std::mutex gModesLock;
std::map<uint32_t, int>& modes() {
  static std::map<uint32_t, int> table = {
      {fourCC("norm"), 0}, {fourCC("mul "), 1},  {fourCC("dark"), 2},  {fourCC("diff"), 3},  {fourCC("smud"), 4},
      {fourCC("hLit"), 5}, {fourCC("div "), 6},  {fourCC("lite"), 7},  {fourCC("scrn"), 8},  {fourCC("idiv"), 9},
      {fourCC("over"), 10}, {fourCC("hue "), 11}, {fourCC("sat "), 12}, {fourCC("lum "), 13}, {fourCC("colr"), 14},
  };
  return table;
}

inline int64_t trunc64(double v) { return int64_t(v); }
inline uint32_t low16(int64_t v) { return uint32_t(uint16_t(v)); }
inline int64_t roundHalfAway(double v) { return v > 0 ? int64_t(v + 0.5) : int64_t(v - 0.5); }

struct Hsl {
  double h, s, l;
};

// Values are taken as 0..255 at both depths, as documents composited here always were.
Hsl toHsl(uint32_t R, uint32_t G, uint32_t B) {
  const double r = R / 255.0, g = G / 255.0, b = B / 255.0;
  const double mx = std::fmax(r, std::fmax(g, b)), mn = std::fmin(r, std::fmin(g, b));
  Hsl o{0, 0, (mx + mn) / 2};
  if (mx == mn) return o;
  const double d = mx - mn;
  o.s = o.l <= 0.5 ? d / (mx + mn) : d / (2 - mx - mn);
  double h;
  if (r == mx) h = g == mn ? 5 + (mx - b) / d : 1 - (mx - g) / d;
  else if (g == mx) h = b == mn ? 1 + (mx - r) / d : 3 - (mx - b) / d;
  else h = r == mn ? 3 + (mx - g) / d : 5 - (mx - r) / d;
  o.h = h / 6;
  return o;
}

void toRgb(const Hsl& c, int64_t out[3]) {
  if (c.s == 0) {
    out[0] = out[1] = out[2] = low16(trunc64(c.l * 255 + 0.5));
    return;
  }
  const double m2 = c.l <= 0.5 ? c.l * (1 + c.s) : c.l + c.s - c.l * c.s, m1 = 2 * c.l - m2;
  const int k = int(trunc64(6 * c.h));
  const double f = 6 * c.h - k, q = m2 - f * (m2 - m1), t = m1 + f * (m2 - m1);
  double r, g, b;
  switch (k) {
    case 1: r = q, g = m2, b = m1; break;
    case 2: r = m1, g = m2, b = t; break;
    case 3: r = m1, g = q, b = m2; break;
    case 4: r = t, g = m1, b = m2; break;
    case 5: r = m2, g = m1, b = q; break;
    default: r = m2, g = t, b = m1; break;
  }
  out[0] = trunc64(r * 255 + 0.5), out[1] = trunc64(g * 255 + 0.5), out[2] = trunc64(b * 255 + 0.5);
}

// One colour channel of the modes with a per-channel rule; false: leave the channel as it is.
template <int mode>
inline bool channelRule(int64_t M, int64_t H, int64_t A, double w, double alpha, int64_t s, int64_t d, int64_t* out) {
  switch (mode) {
    case 1: {  // multiply
      const double f = w / (double(A) + w);
      *out = int64_t(low16(trunc64(double(s) * double(d) * alpha)) >> 8) + trunc64(double(d) * f);
      return true;
    }
    case 2: {  // darken
      const double sa = double(s) * alpha, f = w / (double(A) + w);
      const int64_t c = trunc64(double(d) * f + sa);
      if (uint32_t(d) <= low16(c)) return false;
      *out = c;
      return true;
    }
    case 3:  // difference
      *out = trunc64(std::fabs(double(d) - double(A * s) / double(M)));
      return true;
    case 4: {  // soft light
      const double sa = double(s) * alpha;
      *out = trunc64(sa + double(d)) - int64_t(low16(trunc64(sa * double(d))) >> 7);
      return true;
    }
    case 5: {  // hard light
      const double sa = double(s) * alpha;
      if (int64_t(low16(trunc64(sa))) >= H)
        *out = M - int64_t(low16(trunc64((double(M) - sa) * double(M - d))) >> 7);
      else
        *out = int64_t(low16(trunc64(sa * double(d))) >> 7);
      return true;
    }
    case 6:  // colour dodge: the lighten rule, as documents have always been composited
    case 7: {  // lighten
      const double sa = double(s) * alpha;
      if (!(sa > double(d))) return false;
      *out = trunc64(sa);
      return true;
    }
    case 8:  // screen
      *out = M - int64_t(uint8_t(low16(trunc64((double(M) - double(s) * alpha) * double(M - d))) >> 8));
      return true;
    case 9: {  // colour burn, in integers
      if (s == 0) {
        *out = 0;
        return true;
      }
      const uint32_t q = (uint32_t(M - d) << 8) / uint32_t(s);
      const uint16_t v = uint16_t(uint32_t(M) - q);
      *out = int16_t(v) < 0 ? 0 : v;
      return true;
    }
    case 10:  // overlay, in integers
      *out = d >= H ? M - int64_t((uint32_t(M - d) * uint32_t(M - s)) >> 7) : int64_t((uint32_t(d) * uint32_t(s)) >> 7);
      return true;
    default:
      return false;
  }
}

template <typename T, int mode>
void blendPixels(const T* sr[3], const T* sa, T* dr[3], T* da, uint32_t width, const int32_t rect[4],
                 int64_t M, int64_t H) {
  auto put = [](T* p, int64_t v) { *p = T(uint16_t(v)); };
  for (int32_t row = rect[0]; row < rect[2]; ++row)
    for (int32_t col = rect[1]; col < rect[3]; ++col) {
      const size_t i = size_t(row) * width + size_t(col);
      const int64_t A = sa[i], B = da[i];
      if (A == 0) continue;
      if (B == 0) {
        for (int c = 0; c < 3; ++c) dr[c][i] = sr[c][i];
        da[i] = T(A);
        continue;
      }
      if (mode == 0 && A == M) {  // w is 0: the formula gives the source pixel itself
        for (int c = 0; c < 3; ++c) dr[c][i] = sr[c][i];
        da[i] = T(M);
        continue;
      }
      const double w = double((M - A) * B) / double(M), alpha = double(A) / double(M);
      if (mode == 0) {
        const double t = double(A) + w;
        for (int c = 0; c < 3; ++c) put(&dr[c][i], roundHalfAway((double(sr[c][i]) * double(A) + w * double(dr[c][i])) / t));
        put(&da[i], roundHalfAway(t));
      } else if (mode >= 11) {
        Hsl src = toHsl(sr[0][i], sr[1][i], sr[2][i]), dst = toHsl(dr[0][i], dr[1][i], dr[2][i]);
        Hsl mix = dst;
        if (mode == 11 || mode == 14) mix.h = src.h;
        if (mode == 12 || mode == 14) mix.s = src.s;
        if (mode == 13) mix.l = src.l;
        int64_t rgb[3];
        toRgb(mix, rgb);
        for (int c = 0; c < 3; ++c) put(&dr[c][i], rgb[c]);
        if (A < B) da[i] = T(A);
      } else {
        for (int c = 0; c < 3; ++c) {
          int64_t v;
          if (channelRule<mode>(M, H, A, w, alpha, sr[c][i], dr[c][i], &v)) put(&dr[c][i], v);
        }
        if (mode == 9 || mode == 10) put(&da[i], trunc64(w + double(A)));
      }
    }
}

// The mode resolved once per layer: each has its own pixel loop.
template <typename T, int... modes>
void dispatch(int mode, std::integer_sequence<int, modes...>, const T* s[3], const T* sa, T* d[3], T* da, uint32_t width,
              const int32_t rect[4], int64_t M, int64_t H) {
  ((mode == modes ? blendPixels<T, modes>(s, sa, d, da, width, rect, M, H) : void()), ...);
}

template <typename T>
void run(int mode, TpixelData16& src, TpixelData16& dst, uint32_t width, const int32_t rect[4]) {
  const PHOTOSHOP_CHANNEL ids[3] = {RED, GREEN, BLUE};
  const T* s[3];
  T* d[3];
  for (int c = 0; c < 3; ++c) {
    s[c] = reinterpret_cast<const T*>(src.getChannelPixPtr(ids[c]));
    d[c] = reinterpret_cast<T*>(dst.getChannelPixPtr(ids[c]));
  }
  const T* sa = reinterpret_cast<const T*>(src.getTransparencyPixelPtr());
  T* da = reinterpret_cast<T*>(dst.getTransparencyPixelPtr());
  // Rows are independent: bands of them on every core (small layers on this thread).
  const int64_t pixels = int64_t(rect[2] - rect[0]) * (rect[3] - rect[1]);
  vora::parallelFor(size_t(rect[2] - rect[0]), 0, pixels < (1 << 16) ? SIZE_MAX : 2, [&](size_t a, size_t b) {
    const int32_t band[4] = {rect[0] + int32_t(a), rect[1], rect[0] + int32_t(b), rect[3]};
    dispatch<T>(mode, std::make_integer_sequence<int, 15>(), s, sa, d, da, width, band, dst.getMaxColor(),
                dst.getMidValue());
  });
}

}  // namespace

int blendModeOf(uint32_t key) {
  std::lock_guard<std::mutex> lock(gModesLock);
  return modes().emplace(key, 0).first->second;  // an unknown key joins the table as normal
}

void blendLayerPixels(const TpixelData16& source, TpixelData16& destination, uint32_t blendKey, const int32_t rect[4]) {
  TpixelData16& src = const_cast<TpixelData16&>(source);
  for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY})
    if (!src.channel(id) || !destination.channel(id) || src.format() != destination.format() ||
        src.size(id) < destination.size(id))
      return;
  const uint32_t width = destination.width(RED), height = destination.height(RED);
  int32_t r[4] = {std::max(rect[0], 0), std::max(rect[1], 0), std::min(rect[2], int32_t(height)),
                  std::min(rect[3], int32_t(width))};
  if (r[0] >= r[2] || r[1] >= r[3]) return;
  int mode = blendModeOf(blendKey);
  if (mode < 0 || mode > 14) mode = 0;
  if (destination.is16bit()) run<uint16_t>(mode, src, destination, width, r);
  else run<uint8_t>(mode, src, destination, width, r);
}

}  // namespace ktPhotoshop
