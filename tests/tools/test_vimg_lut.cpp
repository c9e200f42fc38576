// vimg lut: info, eval, apply.
#include <gtest/gtest.h>
#include <vora/colorlut.h>
#include <vora/ilib.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {
using vt::vimg;
const std::string kLut = VORA_TEST_DATA "/lut/";
}  // namespace

TEST(VimgLut, InfoNamesTheParserAndSizes) {
  std::string out;
  ASSERT_EQ(vimg("lut info " + kLut + "ocio/lut3d_arbitrary.csp", &out), 0);
  EXPECT_NE(out.find("parser       TccLutParserCSP"), std::string::npos) << out;
  EXPECT_NE(out.find("kind         3D cube"), std::string::npos) << out;
  ASSERT_EQ(vimg("lut info --json " + kLut + "g22_flame_17.3dl", &out), 0);
  EXPECT_NE(out.find("\"parser\":\"TccLutParserAVID\",\"kind\":\"1D table\",\"entries\":4914"), std::string::npos) << out;
  EXPECT_NE(vimg("lut info " + kLut + "g045_resolve_cube_9.cube", &out), 0);
  EXPECT_NE(out.find("not a LUT file of a known format"), std::string::npos) << out;
}

TEST(VimgLut, EvalPrintsConvertWithNineDigits) {
  std::string out;
  ASSERT_EQ(vimg("lut eval " + kLut + "swapgb_iridas_cube_9.cube 0.5 0.25 0.75", &out), 0);
  EXPECT_EQ(out, "0.5 0.75 0.25\n");
  ASSERT_EQ(vimg("lut eval " + kLut + "discreet_gamma2.2_3x256.lut 1 1 1", &out), 0);
  EXPECT_EQ(out, "0.99609375 0.99609375 0.99609375\n");  // 255 / 256
  ASSERT_EQ(vimg("lut eval --json " + kLut + "swapgb_iridas_9.look 0.5 0.25 0.75", &out), 0);
  EXPECT_NE(out.find("\"parser\":\"TccLutParserIRIDAS\",\"in\":[0.5,0.25,0.75],\"out\":[0.5,0.75,0.25]"),
            std::string::npos) << out;
}

TEST(VimgLut, ApplyGivesTheBatchResultOnAnImage) {
  vt::TempDir d;
  std::string out;
  ASSERT_EQ(vimg("lut apply " + kLut + "sat12_resolve_cube_9.cube " VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff " +
                     d.path("o.iff"), &out), 0) << out;
  ILimage* src = ILopen(VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff", "r");
  ILimage* dst = ILopen(d.path("o.iff").c_str(), "r");
  std::vector<uint8_t> a(70 * 66 * 4), b(a.size());
  ASSERT_EQ(ILload(src, a.data(), nullptr), 0);
  ASSERT_EQ(ILload(dst, b.data(), nullptr), 0);
  ILclose(src);
  ILclose(dst);
  TfileStream s((kLut + "sat12_resolve_cube_9.cube").c_str());
  std::unique_ptr<TccLut> lut(TccLutFile::read(s));
  ccLutApplyBGRA8(*lut, nullptr, a.data(), 70 * 66, 1);
  EXPECT_EQ(a, b);
  // 16-bit images go through floats.
  ASSERT_EQ(vimg("convert " VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff " + d.path("w.iff") + " --bits 16", &out), 0);
  ASSERT_EQ(vimg("lut apply --lin2log " + kLut + "swapgb_iridas_9.look " + d.path("w.iff") + " " + d.path("w2.iff"), &out), 0) << out;
}
