// Frames written by name (TimageFileIO): the naming conventions and viewer patterns, the mask and
// depth files made where a format holds neither (their pixels checked against the source), the
// records after the pixels, and names resolved on disk.
#include <gtest/gtest.h>

#include <filesystem>

#include <vora/image_file_io.h>

#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA;

bool holds(const std::string& path, const std::string& text) {
  const vt::Bytes b = vt::readFile(path);
  return std::search(b.begin(), b.end(), text.begin(), text.end()) != b.end();
}

TEST(ImageFileNames, ConventionsAndViewerPatterns) {
  const struct {
    int convention;
    const char* name;
    const char* glance;
  } rows[] = {{0, "beauty", "beauty"},           {1, "beauty.7", "beauty"},
              {2, "beauty.png.7", "beauty.png"}, {3, "beauty.7.png", "beauty.@.png"},
              {4, "beauty.0007", "beauty.####"}, {5, "beauty.png.0007", "beauty.png.####"},
              {6, "beauty.0007.png", "beauty.####.png"}};
  TimageFileIO io;
  for (const auto& r : rows) {
    TimageFN fn(r.convention, "beauty", 7);
    EXPECT_EQ(io.makeName(fn, TimageFileIO::kPng).str(), r.name) << r.convention;
    EXPECT_EQ(TimageFileIO::makeGlanceName(fn, TimageFileIO::kPng).str(), r.glance) << r.convention;
  }
  TimageFN unnamed(6, "", 7), other(6, "b", 12345);
  EXPECT_EQ(io.makeName(unnamed, TimageFileIO::kPng).str(), "");
  EXPECT_EQ(io.makeName(other, TimageFileIO::TimageType(99)).str(), "b.12345.iff");  // unknown: native
  io.setFormat(TimageFileIO::kPlugin, TimageFileIO::kColour, "webp", "webp");
  EXPECT_EQ(io.makeName(other, TimageFileIO::kPlugin).str(), "b.12345.webp");
}

// A TGA frame with alpha and depth asked for: the TGA holds the colours, a native mask file the
// alpha and a native depth file the depth; a native frame holds all three itself.
TEST(ImageFileFrames, MaskAndDepthWhereTheFormatHoldsNeither) {
  vt::useBundledPlugins();
  vt::TempDir d;
  TprojectManager::theManager().setRoot(d.dir().c_str());
  TpixelMap src;
  ASSERT_TRUE(src.create(5, 4));
  src.setWantDepthMap(true);
  TdepthBuffer& z = src.makeDepth();
  for (unsigned i = 0; i < 20; ++i) src.pixels()[i] = {uint8_t(10 * i), uint8_t(3 * i), uint8_t(200 - i), uint8_t(12 * i)}, z.values[i] = -1.0f / float(i + 1);
  const int all = TimageFileIO::kColour | TimageFileIO::kAlpha | TimageFileIO::kDepth;
  TimageFileIO tga;
  tga.setFormat(TimageFileIO::kTga, all);
  ASSERT_TRUE(tga.create(TimageFN(6, "shot", 3), 5, 4));
  tga.writeClippingPlanes(0.5f, 100.0f);
  tga.writeImage(src.pixels(), z.values.data());
  ASSERT_TRUE(tga.close());
  EXPECT_EQ(tga.mainPath().str(), d.path("images/shot.0003.tga"));
  EXPECT_EQ(tga.maskPath().str(), d.path("mask/shot_mask.0003.iff"));
  EXPECT_EQ(tga.depthPath().str(), d.path("depth/shot_depth.0003.iff"));
  const std::string colour = vt::magick(tga.mainPath().str(), "bgr");  // top row first
  TimageFile mask, depth;
  TpixelMap alpha;
  TdepthBuffer back;
  ASSERT_EQ(mask.identifyAndOpen(tga.maskPath()), 0);
  EXPECT_TRUE(mask.alpha());
  ASSERT_EQ(mask.readPixelMap(alpha), -1);  // no colour to read as a picture: the alpha comes as lines
  ILimage* m = mask.handle();
  std::vector<uint8_t> a(5 * 4 * 4);
  ASSERT_EQ(ILload(m, a.data(), nullptr), 0);
  ASSERT_EQ(depth.identifyAndOpen(tga.depthPath()), 0);
  ASSERT_EQ(depth.readDepthMap(back), 0);
  EXPECT_EQ(back.values, z.values);
  for (unsigned i = 0; i < 20; ++i) {
    const Tpixel32 p = src.pixels()[i];
    EXPECT_EQ(colour.substr(((3 - i / 5) * 5 + i % 5) * 3, 3), std::string({char(p.b), char(p.g), char(p.r)})) << i;
    EXPECT_EQ(a[i * 4 + 3], p.a) << i;
  }
  EXPECT_TRUE(holds(tga.depthPath().str(), "CLPZ"));
  EXPECT_TRUE(holds(tga.depthPath().str(), "Vora cut "));

  TimageFileIO native;
  native.setFormat(TimageFileIO::kIff, all);
  ASSERT_TRUE(native.create(TimageFN(3, "all", 4), 5, 4));
  native.writeImage(src.pixels(), z.values.data());
  ASSERT_TRUE(native.close());
  EXPECT_EQ(native.maskPath().str(), "");
  EXPECT_FALSE(std::filesystem::exists(d.path("mask/all_mask.4.iff")));
  EXPECT_FALSE(holds(native.mainPath().str(), "CLPZ"));  // only when set
  TimageFile f;
  TpixelMap back2;
  back2.setWantDepthMap(true);
  ASSERT_EQ(f.identifyAndOpen(native.mainPath()), 0);
  ASSERT_EQ(f.readPixelMap(back2), 0);
  EXPECT_EQ(back2.depth()->values, z.values);
  EXPECT_EQ(std::vector<Tpixel32>(back2.pixels(), back2.pixels() + 20), std::vector<Tpixel32>(src.pixels(), src.pixels() + 20));
}

// Timage pictures written whole and by rows, read back as written; a region not spanning the
// file's width is refused.
TEST(ImageDiskIo, TimageWrittenWholeAndByRows) {
  vt::TempDir d;
  Timage img;
  ASSERT_TRUE(img.create(6, 4, 1));
  for (unsigned y = 0; y < 4; ++y)
    for (unsigned i = 0; i < 24; ++i) img.row(y)[i] = uint8_t(y * 31 + i * 7);
  TimageDiskIO out;
  ASSERT_EQ(out.create(d.path("a.iff").c_str(), 6, 4, TiffImageFile::kQrl, nullptr), 0);
  ASSERT_EQ(out.writeImage(0, 0, img, 1), 0);
  EXPECT_EQ(out.writeImageRegion(1, 1, 5, 1, img), -1);
  ASSERT_EQ(out.writeImageRegion(0, 1, 6, 3, img), 0);
  ASSERT_EQ(out.close(), 0);
  Timage back;
  ASSERT_EQ(out.identifyAndOpen(d.path("a.iff").c_str()), 0);
  ASSERT_EQ(out.readImage(back), 0);
  for (unsigned y = 0; y < 4; ++y) EXPECT_EQ(std::vector<uint8_t>(back.row(y), back.row(y) + 24), std::vector<uint8_t>(img.row(y), img.row(y) + 24));
}

TEST(ImageFileSearchPath, FieldsAndCompressedNames) {
  vt::TempDir d;
  TprojectManager::theManager().setOutputDir("images", d.dir().c_str());
  vt::writeFile(d.path("plate.o"), {1});
  vt::writeFile(d.path("matte.Z"), {1});
  Tstring found;
  TimageFileSearchPath::initImageFileSearchPath(TimageFileSearchPath::kOddField, "", "", "");
  EXPECT_TRUE(TimageFileSearchPath::exactImageName("plate", found, true));
  EXPECT_EQ(found.str(), d.path("plate.o"));
  EXPECT_TRUE(TimageFileSearchPath::exactImageName("matte", found, true));
  EXPECT_EQ(found.str(), d.path("matte.Z"));
  EXPECT_FALSE(TimageFileSearchPath::exactImageName("nothing", found, true));
  char expanded[1024];
  EXPECT_TRUE(TimageFileSearchPath::expandImageName("nothing", expanded, false));
  EXPECT_STREQ(expanded, "nothing");
  TimageFileSearchPath::initImageFileSearchPath(TimageFileSearchPath::kFrames, "", "", "");
  EXPECT_FALSE(TimageFileSearchPath::exactImageName("plate", found, true));
}

}  // namespace
