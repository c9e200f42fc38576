// Resampling while reading, against a reference written here from the definition of the tap
// tables (not calling the library), and the zoom's failure paths.
#include <gtest/gtest.h>
#include <vora/ilib.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA;

// ---- the reference --------------------------------------------------------------------------
struct Kernel {
  const char* name;
  double radius;  // 0: point sampling
  std::function<double(double)> f;
};
const Kernel kImpulse{"impulse", 0, nullptr};
const Kernel kBox{"box", 0.5, [](double) { return 1.0; }};
const Kernel kTriangle{"triangle", 1, [](double x) { return 1 - std::fabs(x); }};

// 512 samples of the running integral (the trapezoid rule, 16 steps between samples).
std::vector<float> runningIntegral(const Kernel& k) {
  std::vector<float> t(512);
  const int steps = 511 * 16;
  const double r = k.radius, d = 2 * r / steps;
  double sum = 0, prev = 0;
  for (int m = 0; m <= steps; ++m) {
    double v = k.f(-r + m * d);
    if (m) sum += (prev + v) * 0.5 * d;
    prev = v;
    if (m % 16 == 0) t[m / 16] = float(sum);
  }
  return t;
}

double integralAt(const std::vector<float>& t, double r, double x) {
  double p = (x + r) * 511 / (2.0 * r);
  if (p < 0) return 0;
  if (p >= 511) return t[511];
  int i = int(p);
  return t[i] + (t[i + 1] - t[i]) * (p - i);
}

struct Tap {
  int first;
  std::vector<int64_t> w;
};

std::vector<Tap> tapsFor(const Kernel& k, int src, int dst, double m0, double m1, double o, double b) {
  std::vector<Tap> out(dst);
  auto clampi = [&](double v) { return v <= 0 ? 0 : v >= src - 1 ? src - 1 : int(v); };
  if (!k.f) {
    for (int i = 0; i < dst; ++i) out[i] = {clampi(std::floor((i + o) / dst * src)), {16384}};
    return out;
  }
  const std::vector<float> table = runningIntegral(k);
  const double scale = (src - m0 - m1) / dst;
  const bool enl = dst > src;
  const double w = enl ? 2.0 * src - 2 * m0 - 2 * m1 : 2.0 * dst;
  double f = b >= 0 ? std::max(1.0, b * 0.01 * w) : 1 / (1 - w * b * 0.01);
  if (f <= 0) f = 0.0001;
  const double ks = (enl ? 1.0 : scale) * f, h = k.radius * ks + (enl ? 0.5 : 0);
  for (int i = 0; i < dst; ++i) {
    const double c = (i + o) * scale + m0;
    int a = clampi(std::floor(c - h + 1e-6)), z = clampi(std::floor(c + h - 1e-6));
    std::vector<double> wt;
    for (int j = a; j <= z; ++j)
      wt.push_back(integralAt(table, k.radius, (j + 1 - c) / ks) - integralAt(table, k.radius, (j - c) / ks));
    auto sumOf = [](const std::vector<double>& v, size_t s, size_t e) {
      double p = 0, q = 0;
      for (size_t j = s; j < e; ++j) p += v[j], q += std::fabs(v[j]);
      return p != 0 ? p : q;
    };
    out[i] = {clampi(std::floor(c)), {16384}};
    if (wt.size() < 2) continue;
    double s = sumOf(wt, 0, wt.size());
    if (s == 0) continue;
    double th = 0.02 * std::fabs(s) / wt.size();
    size_t lo = 0, hi = wt.size();
    while (lo < hi && std::fabs(wt[lo]) <= th) ++lo;
    while (hi > lo && std::fabs(wt[hi - 1]) <= th) --hi;
    if (hi - lo < 2) continue;
    s = sumOf(wt, lo, hi);
    out[i] = {a + int(lo), {}};
    for (size_t j = lo; j < hi; ++j) out[i].w.push_back(int64_t(wt[j] * std::fabs(16384 / s) + 0.5));
  }
  return out;
}

struct Case {
  int sw, sh, dw, dh;
  const Kernel* k;
  int bytes;
  float ox = 0.5f, oy = 0.5f, bx = 0, by = 0;
  float margin[4] = {0, 0, 0, 0};
};

// Separable: the axis that shrinks more first (vertical on a tie); 8-bit samples keep 6 fraction
// bits between the passes, 16-bit none.
std::vector<int> reference(const Case& c, const std::vector<int>& src) {
  auto tx = tapsFor(*c.k, c.sw, c.dw, c.margin[0], c.margin[2], c.ox, c.bx);
  auto ty = tapsFor(*c.k, c.sh, c.dh, c.margin[1], c.margin[3], c.oy, c.by);
  const int s1 = c.bytes == 1 ? 8 : 14, s2 = c.bytes == 1 ? 20 : 14, maxv = c.bytes == 1 ? 255 : 65535;
  auto settle = [](int64_t acc, int shift) { return (acc + (int64_t(1) << (shift - 1))) >> shift; };
  auto clampv = [&](int64_t v) { return int(std::min<int64_t>(std::max<int64_t>(v, 0), maxv)); };
  std::vector<int> out(size_t(c.dw) * c.dh * 4);
  if (int64_t(c.dh) * c.sw <= int64_t(c.sh) * c.dw) {
    std::vector<int64_t> inter(size_t(c.sw) * 4);
    for (int y = 0; y < c.dh; ++y) {
      for (int x = 0; x < c.sw * 4; ++x) {
        int64_t a = 0;
        for (size_t k = 0; k < ty[y].w.size(); ++k) a += ty[y].w[k] * src[size_t(ty[y].first + k) * c.sw * 4 + x];
        inter[x] = settle(a, s1);
      }
      for (int x = 0; x < c.dw; ++x)
        for (int e = 0; e < 4; ++e) {
          int64_t a = 0;
          for (size_t k = 0; k < tx[x].w.size(); ++k) a += tx[x].w[k] * inter[(tx[x].first + k) * 4 + e];
          out[(size_t(y) * c.dw + x) * 4 + e] = clampv(settle(a, s2));
        }
    }
  } else {
    std::vector<int64_t> inter(size_t(c.sh) * c.dw * 4);
    for (int y = 0; y < c.sh; ++y)
      for (int x = 0; x < c.dw; ++x)
        for (int e = 0; e < 4; ++e) {
          int64_t a = 0;
          for (size_t k = 0; k < tx[x].w.size(); ++k)
            a += tx[x].w[k] * src[(size_t(y) * c.sw + tx[x].first + k) * 4 + e];
          inter[(size_t(y) * c.dw + x) * 4 + e] = settle(a, s1);
        }
    for (int y = 0; y < c.dh; ++y)
      for (int x = 0; x < c.dw * 4; ++x) {
        int64_t a = 0;
        for (size_t k = 0; k < ty[y].w.size(); ++k) a += ty[y].w[k] * inter[size_t(ty[y].first + k) * c.dw * 4 + x];
        out[size_t(y) * c.dw * 4 + x] = clampv(settle(a, s2));
      }
  }
  return out;
}

// ---- the library ---------------------------------------------------------------------------
struct Lines {
  const unsigned char* base;
  size_t stride;
  int next;
};
int memoryLine(void* s, void** colour, void** depth) {
  Lines* l = static_cast<Lines*>(s);
  *colour = const_cast<unsigned char*>(l->base + l->stride * l->next++);
  *depth = nullptr;
  return 0;
}

std::vector<int> zoomed(const Case& c, const std::vector<int>& src, const char* filter) {
  std::vector<unsigned char> raw(src.size() * c.bytes);
  for (size_t i = 0; i < src.size(); ++i)
    if (c.bytes == 1) raw[i] = uint8_t(src[i]);
    else reinterpret_cast<uint16_t*>(raw.data())[i] = uint16_t(src[i]);
  ILzoom* z = ILnewzoom(filter);
  ILsetzoomblur(z, c.bx, c.by);
  ILsetzoomoffset(z, c.ox, c.oy);
  ILsetzoommargin(z, c.margin[0], c.margin[1], c.margin[2], c.margin[3]);
  Lines l{raw.data(), size_t(c.sw) * 4 * c.bytes, 0};
  EXPECT_EQ(ILbindzoom(z, &l, memoryLine, c.bytes == 1 ? IL_ZOOM_8 : IL_ZOOM_16, c.dw, c.dh, c.sw, c.sh), 0);
  std::vector<int> out(size_t(c.dw) * c.dh * 4);
  std::vector<unsigned char> line(size_t(c.dw) * 4 * c.bytes);
  for (int y = 0; y < c.dh; ++y) {
    EXPECT_EQ(ILreadzoom(z, line.data(), nullptr), 0);
    for (int x = 0; x < c.dw * 4; ++x)
      out[size_t(y) * c.dw * 4 + x] = c.bytes == 1 ? line[x] : reinterpret_cast<uint16_t*>(line.data())[x];
  }
  EXPECT_EQ(ILreadzoom(z, line.data(), nullptr), IL_EFINISHED);
  ILdelzoom(z);
  return out;
}

std::vector<int> noise(const Case& c, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<int> v(size_t(c.sw) * c.sh * 4);
  const int maxv = c.bytes == 1 ? 255 : 65535;
  // smooth ramps with noise and hard edges: rounding and clamping both get exercised
  for (size_t i = 0; i < v.size(); ++i)
    v[i] = (rng() % 4 == 0) ? int(rng() % 2) * maxv : int((i * 37 + rng() % 64) % (maxv + 1));
  return v;
}

}  // namespace

TEST(IlZoom, EqualsTheTapTablesOfTheDefinition) {
  const Case cases[] = {
      {37, 23, 11, 7, &kBox, 1},
      {16, 16, 4, 4, &kBox, 2},
      {9, 5, 31, 17, &kTriangle, 1},
      {20, 12, 13, 19, &kTriangle, 2, 0.25f, 0.75f, 0, 0, {0.3f, 0.1f, 0.2f, 0.6f}},
      {30, 20, 10, 10, &kBox, 1, 0.5f, 0.5f, 20, 5},
      {30, 20, 10, 10, &kTriangle, 1, 0.5f, 0.5f, -30, -10},
      {30, 20, 40, 25, &kBox, 2, 0.5f, 0.5f, 3, 0},
      {13, 7, 40, 3, &kImpulse, 1, 0.1f, 0.9f},
      {13, 7, 5, 9, &kImpulse, 2},
      {1, 1, 5, 3, &kBox, 1},
      {7, 3, 1, 1, &kTriangle, 1},
      {32768, 1, 1000, 1, &kTriangle, 1},
      {1000, 2, 32768, 1, &kBox, 2},
  };
  unsigned seed = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.k->name) + " " + std::to_string(c.sw) + "x" + std::to_string(c.sh) + " -> " +
                 std::to_string(c.dw) + "x" + std::to_string(c.dh) + " bytes " + std::to_string(c.bytes));
    std::vector<int> src = noise(c, seed++);
    std::vector<int> want = reference(c, src), got = zoomed(c, src, c.k->name);
    size_t bad = 0;
    for (size_t i = 0; i < want.size(); ++i) bad += want[i] != got[i];
    EXPECT_EQ(bad, 0u) << "first difference at element "
                       << (std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin());
  }
}

TEST(IlZoom, AutoChoosesBoxToShrinkAndSincToEnlarge) {
  const Case shrink{100, 60, 50, 60, &kBox, 1}, grow{20, 12, 40, 24, &kBox, 1};
  std::vector<int> a = noise(shrink, 7), b = noise(grow, 8);
  EXPECT_EQ(zoomed(shrink, a, "auto"), zoomed(shrink, a, "box"));
  EXPECT_EQ(zoomed(grow, b, "auto"), zoomed(grow, b, "sinc"));
  EXPECT_NE(zoomed(grow, b, "auto"), zoomed(grow, b, "box"));
}

TEST(IlZoom, ReadHandlesDeliverResampledLines) {
  const std::string file = kData + "/iff/rgba8_70x66_rle.iff";
  ILimage* im = ILopen(file.c_str(), "r");
  ASSERT_NE(im, nullptr);
  std::vector<unsigned char> full(70 * 66 * 4);
  ASSERT_EQ(ILload(im, full.data(), nullptr), 0);
  ILclose(im);
  Case c{70, 66, 31, 20, &kBox, 1};
  std::vector<int> src(full.begin(), full.end());
  std::vector<int> want = reference(c, src);
  // 8 bits, and the same file delivered at 16 bits (each byte b read as b * 257)
  for (int bytes : {1, 2}) {
    im = ILopen(file.c_str(), "r");
    if (bytes == 2) {
      ASSERT_EQ(ILsetbpp(im, 2), 0);
    }
    ASSERT_EQ(ILsetsize(im, 31, 20), 0);
    int w, h;
    ASSERT_EQ(ILgetsize(im, &w, &h), 0);
    EXPECT_EQ(w * 1000 + h, 31020);
    std::vector<unsigned char> got(31 * 20 * 4 * bytes);
    ASSERT_EQ(ILload(im, got.data(), nullptr), 0);
    ILclose(im);
    Case c16 = c;
    c16.bytes = 2;
    std::vector<int> wide(src);
    for (int& v : wide) v *= 257;
    std::vector<int> want16 = reference(c16, wide);
    for (size_t i = 0; i < want.size(); ++i) {
      int v = bytes == 1 ? got[i] : reinterpret_cast<uint16_t*>(got.data())[i];
      ASSERT_EQ(v, bytes == 1 ? want[i] : want16[i]) << "bytes " << bytes << " element " << i;
    }
  }
  // its own size through any filter: every pixel unchanged
  for (const char* filter : {"auto", "sinc", "lanczos3"}) {
    im = ILopen(file.c_str(), "r");
    ASSERT_EQ(ILsetzoom(im, filter, 70, 66, 0, 0, 0.5f, 0.5f), 0);
    std::vector<unsigned char> same(full.size());
    ASSERT_EQ(ILload(im, same.data(), nullptr), 0);
    EXPECT_EQ(same, full) << filter;
    ILclose(im);
  }
}

TEST(IlZoom, RefusesBadSizesFiltersAndWriteHandles) {
  vt::TempDir d;
  auto program = [&](const std::string& name, const std::string& text) {
    std::string p = d.path(name + ".filter");
    vt::writeFile(p, vt::Bytes(text.begin(), text.end()));
  };
  program("wide", "radius = 1e9\nf(x) = 1\n");
  program("none", "radius = 0\nf(x) = 1\n");
  program("broken", "radius = 2\nf(x) = sin(x * \n");
  program("nof", "radius = 2\n");
  program("inf", "radius = 1\nf(x) = 1 / x\n");
  program("odd", "radius = 1\ncolour = 3\nf(x) = 1\n");
  program("mybox", "# the box, from a file\nradius = 0.5\nnoclip = 0\nf(x) = x == x ? 1 : 0\n");
  vt::ScopedEnv path("VORA_FILTER_PATH", (d.dir() + ":/nonexistent").c_str());
  for (const char* bad : {"wide", "none", "broken", "nof", "inf", "odd", "nosuch", "../etc/passwd"}) {
    flerrno = 0;
    ILzoom* z = ILnewzoom(bad);
    EXPECT_EQ(flerrno, IL_ENOFILTER) << bad;
    EXPECT_STRNE(ILfilterwhy(), "") << bad;
    ILdelzoom(z);
  }
  const Case c{40, 30, 17, 9, &kBox, 1};
  std::vector<int> src = noise(c, 3);
  EXPECT_EQ(zoomed(c, src, "mybox"), zoomed(c, src, "box"));

  ILzoom* z = ILnewzoom("box");
  Lines l{nullptr, 0, 0};
  for (int bad : {0, 32769, -1})
    EXPECT_EQ(ILbindzoom(z, &l, memoryLine, IL_ZOOM_8, bad, 10, 10, 10), IL_ESIZE) << bad;
  EXPECT_EQ(ILbindzoom(z, &l, memoryLine, IL_ZOOM_8, 10, 10, 10, 32769), IL_ESIZE);
  ILdelzoom(z);

  ILimage* w = ILopen(d.path("w.iff").c_str(), "w");
  EXPECT_EQ(ILsetzoom(w, "box", 10, 10, 0, 0, 0.5f, 0.5f), FL_EMODE);
  ILclose(w);
  ILimage* r = ILopen((kData + "/iff/rgba8_70x66_rle.iff").c_str(), "r");
  EXPECT_EQ(ILsetzoom(r, "nosuch", 10, 10, 0, 0, 0.5f, 0.5f), IL_ENOFILTER);
  EXPECT_EQ(ILsetsize(r, 0, 10), IL_ESIZE);
  int width;
  ILgetsize(r, &width, nullptr);
  EXPECT_EQ(width, 70);  // nothing bound
  ILclose(r);
}

TEST(IlZoom, QuickBlurCopiesAtZeroAndKeepsFlatImagesFlat) {
  std::vector<uint32_t> in(64 * 48), out(in.size());
  std::mt19937 rng(5);
  for (uint32_t& p : in) p = rng();
  ASSERT_EQ(ILqblur(out.data(), in.data(), 64, 48, 0), 0);
  EXPECT_EQ(out, in);
  std::vector<uint32_t> flat(in.size(), 0x80402010u);
  for (float percent : {1.0f, 5.0f, 30.0f}) {
    ASSERT_EQ(ILqblur(out.data(), flat.data(), 64, 48, percent), 0);
    EXPECT_EQ(out, flat) << percent;
  }
  // a blur spreads a point and keeps its mass near where it was
  std::vector<uint32_t> dot(in.size(), 0);
  dot[24 * 64 + 32] = 0xFFFFFFFFu;
  ASSERT_EQ(ILqblur(out.data(), dot.data(), 64, 48, 5), 0);
  EXPECT_GT(out[24 * 64 + 33] & 0xFF, 0u);
  EXPECT_EQ(out[0], 0u);
}
