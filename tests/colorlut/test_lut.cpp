// Colour lookup tables: gamma, 1D tables and cubes with pre-LUT curves, the lin-to-log
// pre-transform, each against its definition computed here.
#include <gtest/gtest.h>
#include <vora/colorlut.h>

#include <cmath>
#include <random>

namespace {

TscLutColor run(const TccLut& l, float r, float g, float b) {
  TscLutColor out(-9, -9, -9, -9);
  EXPECT_TRUE(l.convert(TscLutColor(r, g, b, 7), out));
  return out;
}

}  // namespace

// Pre-LUTs: one point maps everything to its output; points out of order are sorted; many points
// are found by bisection; outputs out of range are clamped before the lookup.
TEST(Lut, PreLutCurves) {
  TccLut one(1, 1, 1);
  one.setPreLUT({{0.3f, 0.25f}});
  for (float x : {-5.0f, 0.0f, 0.3f, 0.9f, 12.0f}) EXPECT_FLOAT_EQ(run(one, x, x, x).green, 0.25f) << x;
  TccLut a(1, 1, 1), b(1, 1, 1);
  a.setPreLUT({{1.0f, 0.0f}, {0.0f, 1.0f}, {0.5f, 0.2f}});
  b.setPreLUT({{0.0f, 1.0f}, {0.5f, 0.2f}, {1.0f, 0.0f}});
  for (float x : {0.1f, 0.5f, 0.75f}) EXPECT_FLOAT_EQ(run(a, x, x, x).red, run(b, x, x, x).red);
  EXPECT_FLOAT_EQ(run(a, 0.25f, 0, 0).red, 1.0f + 0.25f / 0.5f * (0.2f - 1.0f));
  TccLut::Curve c;
  for (int i = 0; i <= 1023; ++i) c.emplace_back(float(i) / 1023.0f, std::sqrt(float(i) / 1023.0f));
  for (float x : {0.001f, 0.25f, 0.5f, 0.999f}) {
    size_t k = size_t(x * 1023.0f);
    float want = c[k].second + (x - c[k].first) / (c[k + 1].first - c[k].first) * (c[k + 1].second - c[k].second);
    EXPECT_FLOAT_EQ(TccLut::applyPreLut(x, c), want) << x;
  }
  EXPECT_EQ(TccLut::applyPreLut(1.0f, c), 1.0f);
  EXPECT_EQ(TccLut::applyPreLut(0.7f, {}), 0.7f);
  TccLut pre(1, 1, 1);
  pre.setPreLUT({{0.0f, -2.0f}, {1.0f, 3.0f}});
  EXPECT_FALSE(pre.preLutOutOfRange());  // only inputs outside [0, 1] count
  EXPECT_EQ(run(pre, 0.1f, 0.9f, 0.5f).red, 0.0f);
  EXPECT_EQ(run(pre, 0.1f, 0.9f, 0.5f).green, 1.0f);
  pre.setPreLUT({{0.5f, 0.5f}}, {{-0.5f, 0.0f}}, {});
  TccLut copy = pre;
  pre.setPreLUT({{0.0f, 1.0f}}, {}, {});
  EXPECT_TRUE(pre.preLutOutOfRange());  // only ever set
  EXPECT_EQ(copy.preLut(1).size(), 1u);  // a deep copy
}

// Gamma clamps and leaves the fourth component; 1D tables interpolate per channel, 1.0 reading
// the last entry; the cube interpolates all four components in the fixed order, bit for bit.
TEST(Lut, GammaTablesAndCubes) {
  TccLut gamma(2.2f, 0.5f, 1.0f);
  TscLutColor g = run(gamma, -3.0f, 4.0f, 0.25f);
  EXPECT_EQ(g.red, 0.0f);  // pow(0, gamma)
  EXPECT_EQ(g.green, 1.0f);
  EXPECT_FLOAT_EQ(g.blue, 0.25f);
  EXPECT_EQ(g.fourth, -9.0f);
  kt::vector<TscLutColor> t = {{0, 10, 100, 0}, {1, 20, 200, 0}, {3, 40, 300, 0}};
  TccLut table(t);
  EXPECT_TRUE(t.empty());  // taken over
  TscLutColor o = run(table, 0.25f, 0.75f, 1.0f);
  EXPECT_FLOAT_EQ(o.red, 0.5f);
  EXPECT_FLOAT_EQ(o.green, 30.0f);
  EXPECT_FLOAT_EQ(o.blue, 300.0f);
  std::mt19937 rng(5);
  kt::vector<TscLutColor> e;
  for (int i = 0; i < 2 * 3 * 4; ++i)
    e.emplace_back(float(rng() % 1000) / 7, float(rng() % 1000) / 3, float(rng() % 1000), float(i * 4));
  TccLut cube(2, 3, 4, e);  // sizes differ per axis; red varies fastest
  auto C = [&](int r, int g, int b) { return cube.table()[size_t((b * 3 + g) * 2 + r)]; };
  auto lerp = [](float a, float b, float f) { return a + (b - a) * f; };
  const float points[][3] = {{0.3f, 0.6f, 0.9f}, {1.0f, 1.0f, 1.0f}, {1.0f, 0.0f, 0.5f}, {-1.0f, 2.0f, 0.5f}};
  for (const auto& p : points) {
    float v[3], f[3];
    int i[3];
    const int n[3] = {2, 3, 4};
    for (int a = 0; a < 3; ++a) {
      v[a] = std::min(1.0f, std::max(0.0f, p[a]));
      i[a] = v[a] == 1.0f ? n[a] - 2 : int(float(n[a] - 1) * v[a]);  // 1.0 reads the last point
      f[a] = float(n[a] - 1) * v[a] - float(i[a]);
    }
    for (int k = 0; k < 4; ++k) {
      auto at = [&](int r, int g, int b) { const TscLutColor& x = C(r, g, b); return (&x.red)[k]; };
      float c00 = lerp(at(i[0], i[1], i[2]), at(i[0], i[1], i[2] + 1), f[2]);
      float c10 = lerp(at(i[0], i[1] + 1, i[2]), at(i[0], i[1] + 1, i[2] + 1), f[2]);
      float c01 = lerp(at(i[0] + 1, i[1], i[2]), at(i[0] + 1, i[1], i[2] + 1), f[2]);
      float c11 = lerp(at(i[0] + 1, i[1] + 1, i[2]), at(i[0] + 1, i[1] + 1, i[2] + 1), f[2]);
      TscLutColor got = run(cube, p[0], p[1], p[2]);
      EXPECT_EQ((&got.red)[k], lerp(lerp(c00, c10, f[1]), lerp(c01, c11, f[1]), f[0])) << p[0] << " " << k;
    }
  }
  EXPECT_EQ(run(cube, NAN, 0.5f, 0.5f).red, run(cube, 0.0f, 0.5f, 0.5f).red);  // NaN taken as 0
}

// Lin-to-log of 0 uses the smallest normal float: (log10(1.17549435e-38 / 0.9) x 300 + 685) / 1023,
// about -10.44, unclamped; guards raise parameters to (0.1, 1.0, 0.1).
TEST(Lut, LinToLogPreTransform) {
  TscLutLin2LogPreTransform t;
  TscLutColor o(5, 5, 5, 5);
  EXPECT_TRUE(t.PreTransform(TscLutColor(0.0f, 0.9f, 9.0f, 1.0f), o));
  float floor = (std::log10(1.17549435e-38f / 0.9f) * 300.0f + 685.0f) / 1023.0f;
  EXPECT_FLOAT_EQ(o.red, floor);
  EXPECT_FLOAT_EQ(o.green, 685.0f / 1023.0f);
  EXPECT_FLOAT_EQ(o.blue, 985.0f / 1023.0f);  // a decade up: 300 code values
  EXPECT_EQ(o.fourth, 5.0f);
  t.PreTransform(TscLutColor(-1.0f, 0, 0), o);
  EXPECT_FLOAT_EQ(o.red, floor);
  TscLutLin2LogPreTransform guarded(0, 0, 0);
  EXPECT_EQ(std::vector<float>({guarded.filmGamma(), guarded.refCode(), guarded.refLinear()}),
            std::vector<float>({0.1f, 1.0f, 0.1f}));
}
