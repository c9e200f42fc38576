// HDR exposure operators, the float box resize and the knee search, against computations of
// their definitions written here (not calling the library), at their boundaries; the registry of
// readers.
#include <gtest/gtest.h>
#include <vora/hdr.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using Map = TgenericPixelMap<float>;
using Bgra = std::vector<uint8_t>;

// Ramps, negatives, highlights up to 1000, and in the first pixels +inf, -inf and NaN.
Map picture(unsigned w, unsigned h, unsigned c, unsigned seed, bool special = true) {
  Map m;
  m.create(w, h, c);
  std::mt19937 rng(seed);
  for (size_t i = 0; i < m.size(); ++i) {
    unsigned kind = rng() % 10;
    m.data()[i] = kind < 6 ? float(rng() % 1000) / 400.0f : kind < 8 ? float(rng() % 100000) / 100.0f : -float(rng() % 100) / 50.0f;
  }
  if (special && m.size() > 3 * c) {
    m.data()[0] = std::numeric_limits<float>::infinity();
    m.data()[c] = -std::numeric_limits<float>::infinity();
    m.data()[2 * c + (c > 1)] = std::numeric_limits<float>::quiet_NaN();
  }
  return m;
}

Bgra bytes(const TpixelMap& p) {
  Bgra b;
  for (unsigned i = 0; i < p.width() * p.height(); ++i) {
    Tpixel32 q = p.pixels()[i];
    b.insert(b.end(), {q.b, q.g, q.r, q.a});
  }
  return b;
}

// ---- the definitions ---------------------------------------------------------------------
void rgbOf(const float* s, unsigned n, float out[3]) {
  out[0] = s[0];
  out[1] = n == 1 ? s[0] : s[1];
  out[2] = n >= 3 ? s[2] : s[0];
}
bool inRange(float v) { return v > -FLT_MAX && v < FLT_MAX; }
uint8_t toByte01(float v) {  // clamp to [0, 1], times 255, truncated (NaN: 0)
  if (!(v > 0.0f)) return 0;
  return uint8_t(int((v < 1.0f ? v : 1.0f) * 255.0f));
}
uint8_t toByte255(float v) {
  if (!(v > 0.0f)) return 0;
  return uint8_t(int(v < 255.0f ? v : 255.0f));
}

Bgra linear(const Map& m, float cs, float cb, float as, float ab) {
  const unsigned n = std::min(m.channels(), 4u);
  const size_t count = size_t(m.width()) * m.height();
  if (cs == 0.0f) {
    float lo = FLT_MAX, hi = -FLT_MAX, alo = FLT_MAX, ahi = -FLT_MAX;
    for (size_t i = 0; i < count; ++i) {
      float c[3];
      rgbOf(m.data() + i * m.channels(), n, c);
      for (int k = 0; k < 3; ++k)
        if (inRange(c[k])) lo = std::min(lo, c[k]), hi = std::max(hi, c[k]);
      float a = n == 4 ? m.data()[i * m.channels() + 3] : 0.0f;
      if (n == 4 && inRange(a)) alo = std::min(alo, a), ahi = std::max(ahi, a);
    }
    cs = hi == lo ? 1.0f : 1.0f / (hi - lo), cb = -lo * cs;
    if (n == 4) as = ahi == alo ? 1.0f : 1.0f / (ahi - alo), ab = -alo * as;
    else as = 1.0f, ab = 0.0f;
  }
  Bgra out;
  for (size_t i = 0; i < count; ++i) {
    const float* s = m.data() + i * m.channels();
    float c[3];
    rgbOf(s, n, c);
    out.insert(out.end(), {toByte01(c[2] * cs + cb), toByte01(c[1] * cs + cb), toByte01(c[0] * cs + cb),
                           toByte01(n == 4 ? s[3] * as + ab : 1.0f)});
  }
  return out;
}

float knee(float a, float b) {
  auto at = [&](float f) { return float(std::log(double(a) * double(f) + 1.0) / double(f)); };
  float lo = 0, hi = 1;
  if (float(std::log(double(a) + 1.0)) > b)
    while (at(hi) > b) lo = hi, hi *= 2;
  for (int i = 0; i < 30; ++i) {
    float mid = (lo + hi) / 2;
    (b > at(mid) ? hi : lo) = mid;
  }
  return (lo + hi) / 2;
}

Bgra film(const Map& m, float exposure, float defog, float kneeLow, float kneeHigh) {
  const unsigned n = std::min(m.channels(), 4u);
  const size_t count = size_t(m.width()) * m.height();
  const bool fast = defog == 0 && kneeLow == 0 && kneeHigh == 5.0f;
  float fog[3] = {0, 0, 0};
  if (!fast && defog != 0) {
    double sums[3] = {0, 0, 0};
    for (size_t i = 0; i < count; ++i)
      for (unsigned c = 0; c < std::min(n, 3u); ++c) {
        float v = m.data()[i * m.channels() + c];
        if (inRange(v)) sums[c] += v;
      }
    for (unsigned c = 0; c < 3; ++c) fog[c] = float(sums[c < n ? c : 0] / double(count)) * defog;
  }
  float e = exposure + 2.47393f;
  if (fast) e = std::min(20.0f, std::max(-20.0f, e));
  const float mult = std::pow(2.0f, e), kl = fast ? 1.0f : std::pow(2.0f, kneeLow);
  const float f = fast ? 0.184874f : knee(std::pow(2.0f, kneeHigh) - kl, 11.313708f - kl);
  Bgra out;
  for (size_t i = 0; i < count; ++i) {
    float c[3];
    rgbOf(m.data() + i * m.channels(), n, c);
    uint8_t v[3];
    for (int k = 0; k < 3; ++k) {
      float x = c[k] - fog[k];
      x = (x > 0 ? x : 0) * mult;
      if (x > kl) x = kl + float(std::log(double((x - kl) * f + 1.0f))) / f;
      v[k] = toByte255(std::pow(x, 0.4545f) * 84.66f);
    }
    out.insert(out.end(), {v[2], v[1], v[0], 255});
  }
  return out;
}

std::vector<float> boxResized(const Map& m, unsigned w, unsigned h) {
  const unsigned W = m.width(), H = m.height(), C = m.channels();
  const float sx = float(W) / float(w), sy = float(H) / float(h);
  auto overlap = [](int i, float lo, float hi) {
    if (i >= lo && i + 1 <= hi) return 1.0f;
    return lo >= i ? std::min(float(i + 1), hi) - lo : hi - float(i);
  };
  std::vector<float> out;
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) {
      float t = (float(y) - 0.5f) * sy, b = (float(y) + 0.5f) * sy, l = (float(x) - 0.5f) * sx, r = (float(x) + 0.5f) * sx;
      std::vector<float> acc(C, 0.0f);
      float total = 0;
      for (int j = std::max(0, int(std::floor(t))); j <= std::min(int(H) - 1, int(std::floor(b))); ++j)
        for (int i = std::max(0, int(std::floor(l))); i <= std::min(int(W) - 1, int(std::floor(r))); ++i) {
          float wgt = overlap(j, t, b) * overlap(i, l, r);
          for (unsigned c = 0; c < C; ++c) acc[c] += m.pixel(unsigned(i), unsigned(j))[c] * wgt;
          total += wgt;
        }
      for (float a : acc) out.push_back(total > 1e-5f ? a / total : 0.0f);
    }
  return out;
}

size_t differences(const Bgra& a, const Bgra& b) {
  size_t n = a.size() == b.size() ? 0 : SIZE_MAX;
  for (size_t i = 0; n != SIZE_MAX && i < a.size(); ++i) n += a[i] != b[i];
  return n;
}

}  // namespace

TEST(HdrExposure, LinearScaleAndBiasAutoAndGiven) {
  for (unsigned channels : {1u, 2u, 3u, 4u, 5u})
    for (auto [cs, cb, as, ab] : {std::array<float, 4>{0, 0, 0, 0}, {0.25f, 0.1f, 2.0f, -0.5f},
                                  {std::numeric_limits<float>::quiet_NaN(), 0, 1, 0}}) {
      Map m = picture(17, 9, channels, channels);
      ThdrLinearExposure op;
      op.setColorScaleAndBias(cs, cb), op.setAlphaScaleAndBias(as, ab);
      TpixelMap out;
      ASSERT_EQ(op.convert(m, out), 0);
      EXPECT_EQ(differences(bytes(out), linear(m, cs, cb, as, ab)), 0u) << channels << " scale " << cs;
    }
  // A flat picture in automatic mode: scale 1, bias -min, every colour 0.
  Map flat;
  flat.create(4, 3, 3);
  std::fill(flat.data(), flat.data() + flat.size(), 7.5f);
  TpixelMap out;
  ASSERT_EQ(ThdrLinearExposure().convert(flat, out), 0);
  EXPECT_EQ(out.pixel(3, 2), (Tpixel32{0, 0, 0, 255}));
  Map empty;
  EXPECT_EQ(ThdrLinearExposure().convert(empty, out), -1);
}

// Worked by hand: luminances 0 and L, so the log average is sqrt(2) whatever L is, and a pixel of
// luminance L displays as ls / (ls + 1) * 255 with ls = L * grey / sqrt(2), its colours in
// proportion to the largest (negative ones count as 0).
TEST(HdrExposure, ToneMapWorkedByHand) {
  struct Case {
    unsigned channels;
    std::vector<float> second;
    float grey;
    Tpixel32 want;  // of the second pixel; the first is black
  } cases[] = {{1, {1}, 0.18f, {28, 28, 28, 255}},          {1, {1}, 1.0f, {105, 105, 105, 255}},
               {3, {2, 1, 0}, 0.18f, {0, 16, 32, 255}},    {4, {0, 4, -1, 7}, 0.18f, {0, 66, 0, 255}}};
  for (const Case& c : cases) {
    Map m;
    m.create(2, 1, c.channels);
    std::fill(m.data(), m.data() + m.size(), 0.0f);
    std::copy(c.second.begin(), c.second.end(), m.data() + c.channels);
    ThdrToneMap op;
    op.setMiddleGreyValue(c.grey);
    TpixelMap out;
    ASSERT_EQ(op.convert(m, out), 0);
    EXPECT_EQ(out.pixel(0, 0), (Tpixel32{0, 0, 0, 255}));
    EXPECT_EQ(out.pixel(1, 0), c.want) << c.channels << " grey " << c.grey;
  }
  Map two = picture(4, 4, 2, 1);
  TpixelMap out;
  EXPECT_EQ(ThdrToneMap().convert(two, out), -1);
}

TEST(HdrExposure, FilmCurveFastAndGeneralPaths) {
  struct Case {
    float exposure, defog, kneeLow, kneeHigh;
  } cases[] = {
      {0, 0, 0, 5},        // the fast path
      {100, 0, 0, 5},      // exposure clamped to 20 on the fast path ...
      {100, 0.001f, 0, 5}, // ... and not on the general one
      {-3, 0, 0, 5},    {1.5f, 0.01f, 0, 5}, {0, 0, 0.5f, 5}, {0, 0, 0, 3.5f}, {0, 0.1f, -1, 7}, {-100, 0, 0, 5},
  };
  for (unsigned channels : {1u, 2u, 3u, 4u})
    for (const Case& c : cases) {
      Map m = picture(19, 7, channels, 90 + channels);
      ThdrOpenEXR op;
      op.setExposure(c.exposure), op.setDefog(c.defog), op.setKneeLow(c.kneeLow), op.setKneeHigh(c.kneeHigh);
      TpixelMap out;
      ASSERT_EQ(op.convert(m, out), 0);
      EXPECT_EQ(differences(bytes(out), film(m, c.exposure, c.defog, c.kneeLow, c.kneeHigh)), 0u)
          << channels << " exposure " << c.exposure << " defog " << c.defog << " knee " << c.kneeLow << ".." << c.kneeHigh;
    }
  // Knee factors: the defaults give the fast path's constant; others bracket a root.
  EXPECT_NEAR(ThdrOpenEXR::kneeFactor(31.0f, 10.313708f), 0.184874f, 2e-6f);
  for (auto [a, b] : {std::pair<float, float>{10, 1}, {1000, 2}, {0.5f, 0.4f}, {31, 10.313708f}, {3, 0.01f}})
    EXPECT_EQ(ThdrOpenEXR::kneeFactor(a, b), knee(a, b)) << a << " " << b;
}

// The display curve by thresholds gives, byte for byte, the power computed per value.
TEST(HdrExposure, DisplayGammaByThresholdsEqualsThePowerPerValue) {
  for (unsigned channels : {1u, 3u, 4u})
    for (auto [exposure, gamma] : {std::pair<float, float>{0, 2.2f}, {-4, 2.2f}, {3, 1}, {-9.5f, 0.45f}, {0, 1e-3f}}) {
      Map m = picture(41, 13, channels, 7 * channels);
      for (size_t i = 0; i < m.size(); i += 5) m.data()[i] = float(i % 997) * 1e-4f;  // many small values
      TpixelMap out;
      ASSERT_EQ(hdrExposeGamma(m, out, exposure, gamma), 0);
      Bgra want;
      auto level = [&](float v, float scale, float inv) {
        if (!(v >= 0.0f)) return uint8_t(0);  // negative values (even -inf) and NaN
        float x = std::pow(v * scale, inv);
        return uint8_t(int((x > 1.0f ? 1.0f : x > 0.0f ? x : 0.0f) * 255.0f));
      };
      for (size_t i = 0; i < size_t(m.width()) * m.height(); ++i) {
        const float* s = m.data() + i * channels;
        float c[3];
        rgbOf(s, channels, c);
        const float scale = std::exp2(exposure), inv = 1.0f / gamma;
        want.insert(want.end(), {level(c[2], scale, inv), level(c[1], scale, inv), level(c[0], scale, inv),
                                 channels == 4 ? level(s[3], 1, 1) : uint8_t(255)});
      }
      EXPECT_EQ(differences(bytes(out), want), 0u) << channels << " exposure " << exposure << " gamma " << gamma;
    }
  Map m = picture(2, 2, 3, 1);
  TpixelMap out;
  EXPECT_EQ(hdrExposeGamma(m, out, 0, 0), -1);
}

TEST(HdrResize, BoxWeightsHalfAPixelOff) {
  for (auto [W, H, w, h] : {std::array<unsigned, 4>{40, 30, 13, 7}, {7, 5, 20, 11}, {9, 9, 9, 4}, {1, 1, 3, 2}, {64, 2, 1, 1}}) {
    Map m = picture(W, H, 3, W * 7 + h, false);
    Map before = m;
    ASSERT_EQ(ThdrImageFile::resize(m, w, h), 0);
    ASSERT_EQ(m.width() * 1000 + m.height(), w * 1000 + h);
    std::vector<float> want = boxResized(before, w, h);
    ASSERT_EQ(m.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(m.data()[i], want[i]) << W << "x" << H << " -> " << w << "x" << h << " at " << i;
  }
  Map m = picture(5, 5, 1, 3, false);
  const std::vector<float> same(m.data(), m.data() + m.size());
  EXPECT_EQ(ThdrImageFile::resize(m, 5, 5), 0);
  EXPECT_EQ(std::vector<float>(m.data(), m.data() + m.size()), same);
  EXPECT_EQ(ThdrImageFile::resize(m, 0, 5), -1);
}

namespace {
// A reader that makes a picture of its own (width from the file name's length) or refuses.
struct FakeReader : ThdrImageFile {
  bool opens;
  explicit FakeReader(bool o) : opens(o) {}
  int read(Map& out, unsigned) override {
    out.create(8, 4, 3);
    for (size_t i = 0; i < out.size(); ++i) out.data()[i] = float(i % 7);
    return 0;
  }
  int reserved() override { return 0; }
  int open(const Tstring& path, ThdrImageFileInfo& info) override {
    info.values[0] = int(path.length());
    return opens ? 0 : -1;
  }
};
int made = 0;
ThdrImageFile* opening(void* tag) { return ++made, new FakeReader(tag != nullptr); }
ThdrImageFile* refusing(void*) { return ++made, new FakeReader(false); }
}  // namespace

TEST(HdrTranslation, NewestFirstAnyCaseAndDeregisteringEveryCopy) {
  ThdrTranslationManager& m = ThdrTranslationManager::instance();
  int tag = 1;
  m.registerTranslator(opening, {"exr", "sxr"}, &tag);
  m.registerTranslator(refusing, {"EXR"}, nullptr);  // newest: tried first, refuses
  m.registerTranslator(opening, {"hdr"}, &tag);
  m.registerTranslator(opening, {"hdr"}, &tag);  // the same twice
  made = 0;
  std::unique_ptr<ThdrImageFile> f(m.createAndOpen("/shots/a.Exr"));
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(made, 2);  // the refusing reader first, then the older one
  EXPECT_EQ(f->info().values[0], 12);  // the reader's own info, filled by open
  EXPECT_TRUE(m.isFileExtensionSupported("b.HDR"));
  EXPECT_FALSE(m.isFileExtensionSupported("b.tif"));
  TstringArray exts;
  m.getSupportedFileExtensions(exts);
  EXPECT_EQ(exts, (TstringArray{"EXR", "exr", "hdr", "sxr"}));
  m.deregisterTranslator(opening, &tag);  // every record of this factory and data
  EXPECT_FALSE(m.isFileExtensionSupported("b.hdr"));
  EXPECT_EQ(m.createAndOpen("a.exr"), nullptr);
  m.deregisterTranslator(refusing, nullptr);
  // The shared loading: no exposure fails; with one, the reader's picture converted and resized.
  FakeReader r(true);
  TpixelMap out;
  EXPECT_EQ(r.load(out, nullptr, 0), -1);
  ThdrLinearExposure op;
  ASSERT_EQ(r.loadAndResize(out, 4, 2, &op, 0), 0);
  EXPECT_EQ(out.width() * 10 + out.height(), 42u);
  EXPECT_EQ(r.glLoad(kHdrHardwareNone, kHdrImageNone, &op, 0), -1);
}
