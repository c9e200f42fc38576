// vimg convert: native IFF <-> PNG, JPEG, TIFF, PPM, with the native writer's options.
#include <gtest/gtest.h>
#include <vora/ilib.h>

#include <string>

#include "support/test_support.h"

namespace {
using vt::vimg;
int convert(const std::string& args, std::string* out = nullptr) { return vimg("convert " + args, out); }
// Pixels of any image as 8-bit RGBA, top row first, through ImageMagick (a peer).
std::string rgba(const std::string& path) {
  std::string out;
  vt::run("convert '" + path + "' -depth 8 rgba:- | sha256sum", &out);
  return out.substr(0, 64);
}
}  // namespace

TEST(VimgConvert, IffToPngMatchesTheReferenceDecode) {
  vt::TempDir d;
  ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff " + d.path("a.png")), 0);
  EXPECT_EQ(rgba(d.path("a.png")), rgba(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png"));
}

TEST(VimgConvert, RoundTripsThroughEveryCompressionAndFormat) {
  vt::TempDir d;
  std::string ref = rgba(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png");
  for (const char* comp : {"none", "rle", "qr4"}) {
    std::string iff = d.path(std::string(comp) + ".iff");
    ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png " + iff + " --compress " + comp), 0);
    ILimage* img = ILopen(iff.c_str(), "r");
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(ILgetcompress(img), std::string(comp) == "none" ? 0 : std::string(comp) == "rle" ? 1 : 3);
    ILclose(img);
    for (const char* ext : {"png", "tif"}) {
      std::string out = d.path(std::string(comp) + "." + ext);
      ASSERT_EQ(convert(iff + " " + out), 0);
      EXPECT_EQ(rgba(out), ref) << comp << " " << ext;
    }
  }
}

TEST(VimgConvert, TileSizeBitsAndTopDown) {
  vt::TempDir d;
  std::string out = d.path("t.iff");
  ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png " + out + " --tile 32x16 --bits 16 --top-down"), 0);
  std::string info;
  ASSERT_EQ(vimg("info --tiles " + out, &info), 0);
  EXPECT_NE(info.find("bytes        2 per channel"), std::string::npos) << info;
  EXPECT_NE(info.find("tile chunks  15"), std::string::npos) << info;  // 3 across x 5 down
  EXPECT_NE(info.find("RGBA (0,50)-(31,65)"), std::string::npos) << info;  // top band first
  ASSERT_EQ(convert(out + " " + d.path("t.png")), 0);
  EXPECT_EQ(rgba(d.path("t.png")), rgba(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png"));
}

TEST(VimgConvert, PpmAndJpeg) {
  vt::TempDir d;
  ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgb8_40x30_rle.iff " + d.path("a.ppm")), 0);
  ASSERT_EQ(convert(d.path("a.ppm") + " " + d.path("b.iff")), 0);
  ASSERT_EQ(convert(d.path("b.iff") + " " + d.path("c.jpg")), 0);
  ASSERT_EQ(convert(d.path("b.iff") + " " + d.path("b.iff.ppm")), 0);
  std::string info;
  ASSERT_EQ(vimg("info " + d.path("b.iff"), &info), 0);
  EXPECT_NE(info.find("RGB without Alpha"), std::string::npos) << info;
  EXPECT_EQ(rgba(d.path("a.ppm")), rgba(d.path("b.iff") + ".ppm"));
}

TEST(VimgConvert, ErrorsNameTheFile) {
  vt::TempDir d;
  std::string out;
  EXPECT_NE(convert(d.path("missing.png") + " " + d.path("x.iff"), &out), 0);
  EXPECT_NE(out.find("missing.png"), std::string::npos) << out;
  EXPECT_NE(convert(VORA_TEST_DATA "/iff/rgb8_40x30_rle.iff " + d.path("x.iff") + " --compress zip", &out), 0);
}

TEST(VimgConvert, SgiBothWaysAndInfo) {
  vt::TempDir d;
  std::string ref = rgba(VORA_TEST_DATA "/iff/rgba8_70x66_rle.png");
  for (const char* comp : {"rle", "none"})
    for (const char* bits : {"8", "16"}) {
      std::string sgi = d.path(std::string("a_") + comp + bits + ".sgi");
      ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff " + sgi + " --compress " + comp + " --bits " + bits), 0);
      std::string info;
      ASSERT_EQ(vimg("info " + sgi, &info), 0);
      EXPECT_NE(info.find(std::string("storage      ") + (std::string(comp) == "rle" ? "run-length" : "verbatim")),
                std::string::npos) << info;
      EXPECT_NE(info.find("4 channels"), std::string::npos) << info;
      EXPECT_EQ(rgba(sgi), ref) << comp << bits;  // ImageMagick reads ours
      ASSERT_EQ(convert(sgi + " " + d.path("back.png")), 0);
      EXPECT_EQ(rgba(d.path("back.png")), ref);
    }
  // Channel counts by extension: .bw grey, .rgb RGB.
  ASSERT_EQ(convert(VORA_TEST_DATA "/sgi/im_gray8_50x20_rle.sgi " + d.path("g.bw")), 0);
  std::string info;
  ASSERT_EQ(vimg("info " + d.path("g.bw"), &info), 0);
  EXPECT_NE(info.find("50 x 20, 1 channel\n"), std::string::npos) << info;
  EXPECT_EQ(rgba(d.path("g.bw")), rgba(VORA_TEST_DATA "/sgi/im_gray8_50x20_rle.sgi"));
  ASSERT_EQ(convert(VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff " + d.path("c.rgb")), 0);
  ASSERT_EQ(vimg("info " + d.path("c.rgb"), &info), 0);
  EXPECT_NE(info.find("3 channels"), std::string::npos) << info;
}
