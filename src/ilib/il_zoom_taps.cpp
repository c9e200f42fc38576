// Tap tables: for each destination index of an axis, the source indices it reads and their 14-bit
// weights, from the filter's running integral.
#include <cmath>
#include <cstdlib>

#include <vora/foundation/fl.h>

#include "ilib/il_zoom.h"
#include "foundation/status.h"

namespace vora::il {

namespace {

constexpr double kEps = 0.000001;
constexpr int kOne = 16384;           // 1.0 in the weights' fixed point
constexpr int64_t kMaxTaps = 1 << 26;  // bounds the table of a huge blur
// Weights of one index summing (in magnitude) past this come from a kernel whose integral nearly
// cancels: no picture can be made from them, and the passes' sums would overflow.
constexpr int64_t kMaxAbsSum = int64_t(kOne) << 10;

int clampIndex(double v, int src) {
  if (!(v > 0)) return 0;
  if (v >= src - 1) return src - 1;
  return int(v);
}

// Drops the weights at both ends that do not matter and turns the rest into fixed point.
// Returns the kept range [*lo, *hi) of w, or false when nothing is left.
bool trimAndFix(std::vector<double>& w, size_t* lo, size_t* hi, std::vector<int32_t>& fixed) {
  auto total = [&](size_t a, size_t b) {
    double s = 0, sa = 0;
    for (size_t j = a; j < b; ++j) s += w[j], sa += std::fabs(w[j]);
    return s != 0 ? s : sa;
  };
  double sum = total(0, w.size());
  if (sum == 0) return false;
  const double threshold = 0.02 * std::fabs(sum) / double(w.size());
  size_t a = 0, b = w.size();
  while (a < b && std::fabs(w[a]) <= threshold) ++a;
  while (b > a && std::fabs(w[b - 1]) <= threshold) --b;
  if (a == b) return false;
  sum = total(a, b);
  if (sum == 0) return false;
  const double scale = std::fabs(kOne / sum);
  fixed.clear();
  for (size_t j = a; j < b; ++j) {
    double v = w[j] * scale + 0.5;
    // a filter whose weights nearly cancel could ask for more than 32 bits
    v = std::fmax(-2e9, std::fmin(2e9, v));
    fixed.push_back(int32_t(v));
  }
  *lo = a;
  *hi = b;
  return true;
}

}  // namespace

bool buildTaps(const AxisSpec& a, TapTable& t) {
  const int src = a.src, dst = a.dst;
  t.first.assign(dst, 0);
  t.count.assign(dst, 1);
  t.offset.assign(dst, 0);
  t.nearest.assign(dst, 0);
  t.pool.clear();
  t.maxTaps = 1;
  t.maxAbsSum = kOne;
  if (!a.filter) {  // point sampling
    t.pool.reserve(dst);
    for (int i = 0; i < dst; ++i) {
      t.first[i] = t.nearest[i] = clampIndex(std::floor((i + a.offset) / dst * src), src);
      t.offset[i] = i;
      t.pool.push_back(kOne);
    }
    return true;
  }
  const Filter& f = *a.filter;
  const double scale = (src - a.m0 - a.m1) / dst;
  const bool enlarging = dst > src;
  const double w = enlarging ? 2.0 * src - 2 * a.m0 - 2 * a.m1 : 2.0 * dst;
  double blur;
  if (a.blur >= 0) {
    blur = std::fmax(1.0, a.blur * 0.01 * w);
  } else {
    blur = 1 / (1 - w * a.blur * 0.01);
    if (!(blur > 0)) blur = 0.0001;
  }
  const double k = (enlarging ? 1.0 : scale) * blur;
  const double h = f.radius * k + (enlarging ? 0.5 : 0);

  // the range each index covers, before trimming
  std::vector<int64_t> lo(dst), hi(dst);
  int64_t total = 0;
  for (int i = 0; i < dst; ++i) {
    double c = (i + a.offset) * scale + a.m0;
    double l = std::floor(c - h + kEps), r = std::floor(c + h - kEps);
    lo[i] = int64_t(std::fmax(l, -1e15));
    hi[i] = int64_t(std::fmin(r, 1e15));
    total += std::min<int64_t>(hi[i], src - 1) - std::max<int64_t>(lo[i], 0) + 1;
  }
  if (total > kMaxTaps || !FLallocok(uint64_t(total) * 4)) {
    vora::toFlerrno(IL_ETOOLARGE);
    return false;
  }
  t.pool.reserve(size_t(std::max<int64_t>(total, 122)));  // 488 bytes at least
  std::vector<double> wt;
  std::vector<int32_t> fixed;
  int64_t reach = -1;  // the furthest source index read so far
  for (int i = 0; i < dst; ++i) {
    const double c = (i + a.offset) * scale + a.m0;
    const int nearest = clampIndex(std::floor(c), src);
    int64_t first = std::max<int64_t>(lo[i], 0), last = std::min<int64_t>(hi[i], src - 1);
    wt.clear();
    for (int64_t j = first; j <= last; ++j) wt.push_back(f.at((j + 1 - c) / k) - f.at((j - c) / k));
    if (f.noclip && !wt.empty()) {  // what lies past an edge is read from the edge pixel
      if (lo[i] < 0) wt.front() += f.at((0 - c) / k) - f.at((lo[i] - c) / k);
      if (hi[i] > src - 1) wt.back() += f.at((hi[i] + 1 - c) / k) - f.at((src - c) / k);
    }
    size_t a0 = 0, a1 = 0;
    t.offset[i] = int32_t(t.pool.size());
    if (wt.size() > 1 && trimAndFix(wt, &a0, &a1, fixed) && a1 - a0 > 1) {
      t.first[i] = int32_t(first + a0);
      t.count[i] = int32_t(a1 - a0);
      int64_t abs = 0;
      for (int32_t v : fixed) {
        t.pool.push_back(v);
        abs += std::llabs(v);
      }
      t.maxAbsSum = std::max(t.maxAbsSum, abs);
    } else {
      t.first[i] = nearest;
      t.count[i] = 1;
      t.pool.push_back(kOne);
    }
    if (t.maxAbsSum > kMaxAbsSum) {
      setWhy(f.name + ": its weights cancel out (the kernel integrates to almost nothing)");
      vora::toFlerrno(IL_ENOFILTER);
      return false;
    }
    int32_t end = t.first[i] + t.count[i] - 1;
    t.nearest[i] = std::min(std::max(nearest, t.first[i]), end);
    reach = std::max<int64_t>(reach, end);
    t.maxTaps = std::max<int>(t.maxTaps, int(reach - t.first[i] + 1));
  }
  return true;
}

}  // namespace vora::il
