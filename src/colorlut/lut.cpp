// The colour lookup table (gamma, 1D table, cube; pre-LUT curves) and the lin-to-log
// pre-transform.
#include <algorithm>
#include <cmath>

#include <vora/colorlut.h>

#include "colorlut/lut_math.h"

TccLut::TccLut(float gammaRed, float gammaGreen, float gammaBlue)
    : perChannel_(true), kind_(kGamma), gammaRed_(gammaRed), gammaGreen_(gammaGreen), gammaBlue_(gammaBlue) {}

TccLut::TccLut(kt::vector<TscLutColor>& table) : perChannel_(true), kind_(kTable) { table_.swap(table); }

TccLut::TccLut(unsigned sizeRed, unsigned sizeGreen, unsigned sizeBlue, kt::vector<TscLutColor>& table)
    : perChannel_(false), kind_(kCube), sizeRed_(sizeRed), sizeGreen_(sizeGreen), sizeBlue_(sizeBlue) {
  table_.swap(table);
}

namespace {

void sortCurve(TccLut::Curve& c) {
  std::sort(c.begin(), c.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
}

bool outOfRange(const TccLut::Curve& c) {
  for (const auto& p : c)
    if (p.first < 0.0f || p.first > 1.0f) return true;
  return false;
}

inline float lerp(float a, float b, float t) { return a + (b - a) * t; }

}  // namespace

void TccLut::setPreLUT(Curve curve) {
  sortCurve(curve);
  preRed_ = preGreen_ = preBlue_ = curve;
  if (outOfRange(curve)) preLutOutOfRange_ = true;
}

void TccLut::setPreLUT(Curve red, Curve green, Curve blue) {
  sortCurve(red);
  sortCurve(green);
  sortCurve(blue);
  preRed_ = std::move(red);
  preGreen_ = std::move(green);
  preBlue_ = std::move(blue);
  // Only ever set, never cleared.
  if (outOfRange(preRed_) || outOfRange(preGreen_) || outOfRange(preBlue_)) preLutOutOfRange_ = true;
}

float TccLut::applyPreLut(float x, const Curve& p) {
  size_t n = p.size();
  if (n == 0) return x;
  if (x <= p[0].first) return p[0].second;
  if (x >= p[n - 1].first) return p[n - 1].second;
  size_t mid;
  if (n < 3) {
    mid = 0;
  } else {
    size_t lo = 0, hi = n - 2;
    for (;;) {
      mid = (lo + hi) / 2;
      if (p[mid].first > x) {
        hi = mid;
      } else {
        lo = mid + 1;
        if (x >= p[lo].first) continue;
        break;
      }
    }
  }
  return p[mid].second + (x - p[mid].first) / (p[mid + 1].first - p[mid].first) * (p[mid + 1].second - p[mid].second);
}

bool TccLut::convert(const TscLutColor& in, TscLutColor& out) const {
  if (kind_ < kGamma || kind_ > kCube) return false;
  float v[3] = {preRed_.empty() ? in.red : applyPreLut(in.red, preRed_),
                preGreen_.empty() ? in.green : applyPreLut(in.green, preGreen_),
                preBlue_.empty() ? in.blue : applyPreLut(in.blue, preBlue_)};
  for (float& c : v) c = vora::lut::clamp01(c);
  if (kind_ == kGamma) {
    out.red = std::pow(v[0], gammaRed_);
    out.green = std::pow(v[1], gammaGreen_);
    out.blue = std::pow(v[2], gammaBlue_);
    return true;
  }
  if (kind_ == kTable) {
    size_t n = table_.size();
    if (n == 0) return true;  // an empty table (MORAINE with no entries) leaves out as it is
    float* o[3] = {&out.red, &out.green, &out.blue};
    for (int c = 0; c < 3; ++c) {
      auto comp = [c](const TscLutColor& e) { return c == 0 ? e.red : c == 1 ? e.green : e.blue; };
      if (v[c] == 1.0f || n < 2) {  // a one-entry table has nothing to interpolate (our guard)
        *o[c] = comp(table_[n - 1]);
      } else {
        float x = float(n - 1) * v[c];
        size_t i = size_t(x);
        *o[c] = comp(table_[i]) + (comp(table_[i + 1]) - comp(table_[i])) * (x - float(i));
      }
    }
    return true;
  }
  // Cube: per axis i and f, with the special case at 1.0 keeping i + 1 in the lattice.
  const unsigned size[3] = {sizeRed_, sizeGreen_, sizeBlue_};
  if (size[0] < 2 || size[1] < 2 || size[2] < 2 || table_.size() < size_t(size[0]) * size[1] * size[2])
    return true;  // a lattice without two points per axis cannot be looked up (our guard)
  size_t idx[3];
  float f[3];
  for (int a = 0; a < 3; ++a) vora::lut::cubeAxis(v[a], size[a], idx[a], f[a]);
  auto C = [&](size_t r, size_t g, size_t b) -> const TscLutColor& {
    return table_[(b * size[1] + g) * size[0] + r];
  };
  const size_t r = idx[0], g = idx[1], b = idx[2];
  auto lerp4 = [](const TscLutColor& a, const TscLutColor& c, float t) {
    return TscLutColor(lerp(a.red, c.red, t), lerp(a.green, c.green, t), lerp(a.blue, c.blue, t),
                       lerp(a.fourth, c.fourth, t));
  };
  TscLutColor c00 = lerp4(C(r, g, b), C(r, g, b + 1), f[2]);
  TscLutColor c10 = lerp4(C(r, g + 1, b), C(r, g + 1, b + 1), f[2]);
  TscLutColor c01 = lerp4(C(r + 1, g, b), C(r + 1, g, b + 1), f[2]);
  TscLutColor c11 = lerp4(C(r + 1, g + 1, b), C(r + 1, g + 1, b + 1), f[2]);
  TscLutColor c0 = lerp4(c00, c10, f[1]);
  TscLutColor c1 = lerp4(c01, c11, f[1]);
  out = lerp4(c0, c1, f[0]);
  return true;
}

TscLutLin2LogPreTransform::TscLutLin2LogPreTransform(float filmGamma, float refCode, float refLinear)
    : filmGamma_(std::max(filmGamma, 0.1f)), refCode_(std::max(refCode, 1.0f)), refLinear_(std::max(refLinear, 0.1f)) {}

bool TscLutLin2LogPreTransform::PreTransform(const TscLutColor& in, TscLutColor& out) const {
  const float floorValue = 1.17549435e-38f;  // the smallest normal float: no log of zero
  auto one = [&](float x) {
    return (std::log10(std::max(x, floorValue) / refLinear_) * (filmGamma_ / 0.002f) + refCode_) / 1023.0f;
  };
  out.red = one(in.red);
  out.green = one(in.green);
  out.blue = one(in.blue);
  return true;
}
