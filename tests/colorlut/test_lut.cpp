// Part 4.1: colour lookup table and conversion.
#include <gtest/gtest.h>
#include <vora/colorlut.h>

#include <cmath>
#include <random>

namespace {

// A cube whose entry at (r, g, b) is the lattice point itself (an identity), of side n.
TccLut identityCube(unsigned n) {
  kt::vector<TscLutColor> t;
  for (unsigned b = 0; b < n; ++b)
    for (unsigned g = 0; g < n; ++g)
      for (unsigned r = 0; r < n; ++r)
        t.emplace_back(float(r) / float(n - 1), float(g) / float(n - 1), float(b) / float(n - 1), 0.5f);
  return TccLut(n, n, n, t);
}

TscLutColor run(const TccLut& l, float r, float g, float b) {
  TscLutColor out(-9, -9, -9, -9);
  EXPECT_TRUE(l.convert(TscLutColor(r, g, b, 7), out));
  return out;
}

}  // namespace

// a pre-LUT with a single point maps every input to that point's output.
TEST(Lut, SinglePointPreLutMapsEverythingToItsOutput) {
  TccLut gamma(1, 1, 1);
  gamma.setPreLUT({{0.3f, 0.25f}});
  for (float x : {-5.0f, 0.0f, 0.3f, 0.9f, 12.0f}) EXPECT_FLOAT_EQ(run(gamma, x, x, x).green, 0.25f) << x;
}

// a pre-LUT given out of order is evaluated as if given sorted.
TEST(Lut, UnsortedPreLutIsSorted) {
  TccLut a(1, 1, 1), b(1, 1, 1);
  a.setPreLUT({{1.0f, 0.0f}, {0.0f, 1.0f}, {0.5f, 0.2f}});
  b.setPreLUT({{0.0f, 1.0f}, {0.5f, 0.2f}, {1.0f, 0.0f}});
  for (float x : {0.1f, 0.5f, 0.75f}) EXPECT_FLOAT_EQ(run(a, x, x, x).red, run(b, x, x, x).red);
  EXPECT_FLOAT_EQ(run(a, 0.25f, 0, 0).red, 1.0f + 0.25f / 0.5f * (0.2f - 1.0f));
  EXPECT_EQ(a.preLut(0).front().first, 0.0f);
}

// an input of exactly 1.0 on a cube of size N reads the last lattice point exactly.
TEST(Lut, ExactlyOneReadsTheLastLatticePoint) {
  kt::vector<TscLutColor> t;
  for (int i = 0; i < 27; ++i) t.emplace_back(float(i), float(i * 2), float(i * 3), float(i * 4));
  TccLut cube(3, 3, 3, t);
  TscLutColor o = run(cube, 1.0f, 1.0f, 1.0f);
  EXPECT_EQ(o.red, 26.0f);  // i = N - 2, f = 1: the entry (2, 2, 2) exactly
  EXPECT_EQ(o.fourth, 104.0f);  // all four components are interpolated
  TscLutColor e = run(cube, 1.0f, 0.0f, 0.0f);
  EXPECT_EQ(e.red, 2.0f);
}

// inputs outside [0, 1] (after the pre-LUT) are clamped; pow(0, gamma) gives 0.
TEST(Lut, ClampBeforeLookupAndGammaOfZero) {
  TccLut gamma(2.2f, 0.5f, 1.0f);
  TscLutColor o = run(gamma, -3.0f, 4.0f, 0.25f);
  EXPECT_EQ(o.red, 0.0f);
  EXPECT_EQ(o.green, 1.0f);
  EXPECT_FLOAT_EQ(o.blue, 0.25f);
  EXPECT_EQ(o.fourth, -9.0f);  // not written by kind 1
  TccLut cube = identityCube(5);
  TscLutColor c = run(cube, -1.0f, 2.0f, 0.5f);
  EXPECT_FLOAT_EQ(c.red, 0.0f);
  EXPECT_FLOAT_EQ(c.green, 1.0f);
  EXPECT_FLOAT_EQ(c.blue, 0.5f);
  // A pre-LUT may send values out of range: clamped after it.
  TccLut pre(1, 1, 1);
  pre.setPreLUT({{0.0f, -2.0f}, {1.0f, 3.0f}});
  EXPECT_TRUE(!pre.preLutOutOfRange());  // inputs are in [0, 1]; outputs do not count
  EXPECT_EQ(run(pre, 0.1f, 0.9f, 0.5f).red, 0.0f);
  EXPECT_EQ(run(pre, 0.1f, 0.9f, 0.5f).green, 1.0f);
}

// PreTransform of 0 gives (log10(1.17549435e-38 / 0.9) x 300 + 685) / 1023 with the
// defaults, about -10.44; it is not clamped.
TEST(Lut, PreTransformOfZero) {
  TscLutLin2LogPreTransform t;
  TscLutColor o(5, 5, 5, 5);
  EXPECT_TRUE(t.PreTransform(TscLutColor(0.0f, 0.9f, 9.0f, 1.0f), o));
  float want = (std::log10(1.17549435e-38f / 0.9f) * 300.0f + 685.0f) / 1023.0f;
  EXPECT_FLOAT_EQ(o.red, want);
  EXPECT_NEAR(o.red, -10.44, 0.01);
  EXPECT_FLOAT_EQ(o.green, 685.0f / 1023.0f);
  EXPECT_FLOAT_EQ(o.blue, 985.0f / 1023.0f);  // a decade up: 300 code values
  EXPECT_EQ(o.fourth, 5.0f);                   // not written
  TscLutColor n;
  t.PreTransform(TscLutColor(-1.0f, 0, 0), n);
  EXPECT_FLOAT_EQ(n.red, want);  // negative: the same floor
}

// TscLutLin2LogPreTransform(0, 0, 0) stores (0.1, 1.0, 0.1).
TEST(Lut, PreTransformGuards) {
  TscLutLin2LogPreTransform t(0, 0, 0);
  EXPECT_FLOAT_EQ(t.filmGamma(), 0.1f);
  EXPECT_FLOAT_EQ(t.refCode(), 1.0f);
  EXPECT_FLOAT_EQ(t.refLinear(), 0.1f);
  TscLutLin2LogPreTransform u(0.1f, 1.0f, 0.1f);  // equal to the bounds: kept
  EXPECT_FLOAT_EQ(u.filmGamma(), 0.1f);
  TscLutLin2LogPreTransform v(0.7f, 500, 0.18f);
  TscLutLin2LogPreTransform w;
  w = v;
  EXPECT_FLOAT_EQ(w.refCode(), 500.0f);
}

TEST(Lut, OneDimensionalTablePerChannel) {
  kt::vector<TscLutColor> t = {{0, 10, 100, 0}, {1, 20, 200, 0}, {3, 40, 300, 0}};
  TccLut l(t);
  EXPECT_TRUE(t.empty());  // taken over
  TscLutColor o = run(l, 0.25f, 0.75f, 1.0f);
  EXPECT_FLOAT_EQ(o.red, 0.5f);     // x = 0.5 between 0 and 1
  EXPECT_FLOAT_EQ(o.green, 30.0f);  // x = 1.5 between 20 and 40
  EXPECT_FLOAT_EQ(o.blue, 300.0f);  // exactly 1.0: the last entry
  EXPECT_EQ(o.fourth, -9.0f);
}

TEST(Lut, TrilinearInTheFixedOrder) {
  std::mt19937 rng(5);
  kt::vector<TscLutColor> t;
  for (int i = 0; i < 2 * 3 * 4; ++i) t.emplace_back(float(rng() % 1000) / 7, float(rng() % 1000) / 3, float(rng() % 1000), 1);
  TccLut cube(2, 3, 4, t);  // sizes differ per axis
  auto C = [&](int r, int g, int b) { return cube.table()[size_t((b * 3 + g) * 2 + r)]; };
  auto lerp = [](float a, float b, float f) { return a + (b - a) * f; };
  float v[3] = {0.3f, 0.6f, 0.9f};
  int ir = int(1 * v[0]), ig = int(2 * v[1]), ib = int(3 * v[2]);
  float fr = 1 * v[0] - ir, fg = 2 * v[1] - ig, fb = 3 * v[2] - ib;
  float c00 = lerp(C(ir, ig, ib).green, C(ir, ig, ib + 1).green, fb);
  float c10 = lerp(C(ir, ig + 1, ib).green, C(ir, ig + 1, ib + 1).green, fb);
  float c01 = lerp(C(ir + 1, ig, ib).green, C(ir + 1, ig, ib + 1).green, fb);
  float c11 = lerp(C(ir + 1, ig + 1, ib).green, C(ir + 1, ig + 1, ib + 1).green, fb);
  float want = lerp(lerp(c00, c10, fg), lerp(c01, c11, fg), fr);
  EXPECT_EQ(run(cube, v[0], v[1], v[2]).green, want);  // bit for bit
}

TEST(Lut, ValueSemanticsAndPreLutFlag) {
  TccLut a = identityCube(3);
  a.setPreLUT({{0.0f, 0.0f}, {2.0f, 1.0f}});
  EXPECT_TRUE(a.preLutOutOfRange());
  TccLut b = a;
  a.setPreLUT({{0.0f, 1.0f}}, {}, {});
  EXPECT_TRUE(a.preLutOutOfRange());  // only ever set
  EXPECT_EQ(b.preLut(0).size(), 2u);  // a deep copy
  EXPECT_EQ(b.table().size(), 27u);
  TccLut c(1, 1, 1);
  c = b;
  EXPECT_EQ(c.kind(), uint32_t(TccLut::kCube));
  TccLut g(1, 1, 1);
  g.setPreLUT({{0.5f, 0.5f}}, {{-0.5f, 0.0f}}, {});
  EXPECT_TRUE(g.preLutOutOfRange());
}

TEST(Lut, PreLutBinarySearchOnManyPoints) {
  TccLut::Curve c;
  for (int i = 0; i <= 1023; ++i) c.emplace_back(float(i) / 1023.0f, std::sqrt(float(i) / 1023.0f));
  for (float x : {0.001f, 0.25f, 0.5f, 0.999f}) {
    size_t k = size_t(x * 1023.0f);
    float want = c[k].second + (x - c[k].first) / (c[k + 1].first - c[k].first) * (c[k + 1].second - c[k].second);
    EXPECT_FLOAT_EQ(TccLut::applyPreLut(x, c), want) << x;
  }
  EXPECT_EQ(TccLut::applyPreLut(0.0f, c), 0.0f);
  EXPECT_EQ(TccLut::applyPreLut(1.0f, c), 1.0f);
  EXPECT_EQ(TccLut::applyPreLut(0.7f, {}), 0.7f);
}

TEST(Lut, NaNInputsAreDefined) {
  TccLut cube = identityCube(4);
  TscLutColor o = run(cube, NAN, 0.5f, 0.5f);
  EXPECT_EQ(o.red, 0.0f);  // taken as 0 (our guard: the index must stay defined)
}
