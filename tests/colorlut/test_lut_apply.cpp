// Batch LUT application: equal to TccLut::convert pixel for pixel.
#include <gtest/gtest.h>
#include <vora/colorlut.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<TccLut> luts() {
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> u(-0.1f, 1.1f);
  kt::vector<TscLutColor> cube, table;
  for (int i = 0; i < 17 * 9 * 5; ++i) cube.emplace_back(u(rng), u(rng), u(rng), u(rng));
  for (int i = 0; i < 1024; ++i) table.emplace_back(u(rng), u(rng), u(rng), 0);
  std::vector<TccLut> out;
  out.emplace_back(17, 9, 5, cube);  // sizes differ per axis
  out.emplace_back(table);
  out.emplace_back(2.2f, 1.0f / 2.2f, 1.5f);
  TccLut withPre = out[0];
  withPre.setPreLUT({{0.0f, 0.1f}, {0.3f, 0.5f}, {1.0f, 0.9f}}, {}, {{-0.5f, 0.0f}, {2.0f, 1.0f}});
  out.push_back(withPre);
  return out;
}

std::vector<float> pixels(size_t n, int channels) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-0.2f, 1.2f);
  std::vector<float> p(n * size_t(channels));
  for (float& v : p) v = u(rng);
  for (size_t i = 0; i < n; i += 97) p[i * size_t(channels)] = 1.0f;  // the special case at 1.0
  return p;
}

}  // namespace

TEST(LutApply, BatchEqualsConvertBitForBit) {
  const TscLutLin2LogPreTransform lin2log;
  const TscLutLin2LogPreTransform* pres[2] = {nullptr, &lin2log};
  for (const TccLut& lut : luts())
    for (int channels : {3, 4})
      for (const TscLutLin2LogPreTransform* pre : pres)
        for (int threads : {1, 0}) {
          std::vector<float> a = pixels(20000, channels), b = a, orig = a;
          ccLutApply(lut, pre, a.data(), 20000, channels, threads);
          ccLutApplyReference(lut, pre, b.data(), 20000, channels);
          ASSERT_EQ(memcmp(a.data(), b.data(), a.size() * 4), 0)
              << "kind " << lut.kind() << " channels " << channels << " pre " << (pre != nullptr);
          if (channels == 4) {
            for (size_t i = 3; i < a.size(); i += 4) ASSERT_EQ(a[i], orig[i]);  // alpha untouched
          }
        }
}

TEST(LutApply, EightBitBgraEqualsTheReference) {
  for (const TccLut& lut : luts()) {
    std::mt19937 rng(9);
    std::vector<uint8_t> px(4 * 10000);
    for (auto& v : px) v = uint8_t(rng());
    std::vector<uint8_t> want = px;
    for (size_t i = 0; i < 10000; ++i) {
      uint8_t* q = &want[4 * i];
      float rgb[3] = {float(q[2]) / 255.0f, float(q[1]) / 255.0f, float(q[0]) / 255.0f};
      ccLutApplyReference(lut, nullptr, rgb, 1, 3);
      auto byte = [](float x) { return uint8_t(std::lround((!(x >= 0) ? 0 : x > 1 ? 1 : x) * 255.0f)); };
      q[2] = byte(rgb[0]), q[1] = byte(rgb[1]), q[0] = byte(rgb[2]);
    }
    ccLutApplyBGRA8(lut, nullptr, px.data(), 10000, 0);
    EXPECT_EQ(px, want) << "kind " << lut.kind();
  }
}
