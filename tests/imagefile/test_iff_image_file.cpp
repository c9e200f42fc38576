// The native image file object: float files written out here byte by byte, the depth preview
// worked by hand, the page count rewritten in place against a file that had it from the start.
#include <gtest/gtest.h>
#include <vora/iff_image_file.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "support/test_support.h"

using vt::Bytes;

namespace {

// One tile of raw 32-bit floats (big-endian), bottom row first, in the slots' order: blue, green,
// red, or alpha first when there is alpha.
Bytes floatFile(uint32_t w, uint32_t h, uint32_t type, const std::vector<float>& values) {
  Bytes tile;
  for (uint32_t v : {0u, 0u, w - 1, h - 1}) vt::be16(tile, v);
  for (float f : values) {
    uint32_t bits;
    memcpy(&bits, &f, 4);
    vt::be32(tile, bits);
  }
  return vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(w, h, type, 3, 1, 0)),
                                            vt::group("FOR4", "TBMP", vt::chunk("RGBA", tile))}));
}

// A file's bytes with the DATE chunk's text (the time of writing) blanked.
Bytes withoutDate(Bytes f) {
  const std::string id = "DATE";
  auto at = std::search(f.begin(), f.end(), id.begin(), id.end());
  if (at != f.end()) std::fill(at + 8, at + 8 + 24, 0);
  return f;
}

}  // namespace

// Values clamped to 0..1 and truncated (NaN is 0), alpha 255 without alpha; depth left as it was.
// Files of other pixels, or grey floats, convert nothing; the other reads refuse float files.
TEST(IffImageFile, FloatPixelsAsBytes) {
  const float nan = std::nanf("");
  struct Case {
    uint32_t w, h, type;
    std::vector<float> values;
    const char* bytes;
  } cases[] = {
      {2, 1, IL_COLOR, {1.5f, -0.2f, 0.5f, nan, 1.0f, 0.999f}, "ff007fff00fffeff"},
      {1, 2, IL_COLOR | IL_ALPHA, {0.0f, 0.25f, 0.5f, 0.75f, 2, 1, 1, 1}, "3f7fbf00ffffffff"},
      {2, 1, 0, {0.5f, 0.5f}, "eeeeeeeeeeeeeeee"},
  };
  vt::TempDir d;
  for (const Case& c : cases) {
    vt::writeFile(d.path("f.iff"), floatFile(c.w, c.h, c.type, c.values));
    TiffImageFile f(d.path("f.iff").c_str(), "r");
    EXPECT_EQ(f.bytesPerPixel(), 4);
    Bytes px(c.w * c.h * 4, 0xEE);
    float depth = -3;
    EXPECT_EQ(f.loadFloatToByte(px.data(), &depth), 0);
    EXPECT_EQ(vt::hex(px), c.bytes) << c.type;
    EXPECT_EQ(depth, -3);
  }
  TiffImageFile f(d.path("f.iff").c_str(), "r");
  Bytes px(64);
  EXPECT_EQ(f.setZoom(1, 1, 0, 0, 0.5f, 0.5f), IL_ESIZE);
  EXPECT_EQ(f.load(px.data(), nullptr), IL_ESIZE);
  TiffImageFile bytes(VORA_TEST_DATA "/iff/rgb8_40x30_rle.iff", "r");
  Bytes untouched(40 * 30 * 4, 0xEE);
  EXPECT_EQ(bytes.loadFloatToByte(untouched.data(), nullptr), 0);
  EXPECT_EQ(untouched, Bytes(untouched.size(), 0xEE));
}

// 255 - (z - min) / (range / 200), no depth black. The minimum is found without looking at the
// maximum: with 5 before 3 the maximum is 4, and 5 wraps to (255 - 400) & 255 = 111.
TEST(IffImageFile, DepthPreviewWorkedByHand) {
  const std::pair<std::vector<float>, Bytes> cases[] = {
      {{0, 0, 0, 0}, {0, 0, 0, 0}},   {{0, 0, 7, 0}, {0, 0, 255, 0}},
      {{0, 2, 4, 6}, {0, 255, 155, 55}}, {{5, 3, 4, 0}, {111, 255, 55, 0}},
  };
  vt::TempDir d;
  const Bytes colour(16, 9);
  for (const auto& [z, grey] : cases) {
    TiffImageFile w(d.path("z.iff").c_str(), "w");
    ASSERT_EQ(w.setSize(2, 2) | w.setType(IL_COLOR | IL_ZBUFFER) | w.save(colour.data(), z.data(), 0) | w.close(), 0);
    for (auto [mw, mh] : {std::pair{2, 2}, {4, 1}}) {
      TiffImageFile r(d.path("z.iff").c_str(), "r");
      TpixelMap map;
      ASSERT_EQ(r.readZBuffer(map, mw, mh), 0);
      ASSERT_EQ(map.width() * 10 + map.height(), unsigned(mw * 10 + mh));
      for (unsigned i = 0; i < 4; ++i) {
        const uint8_t g = grey[i];
        EXPECT_EQ(map.pixel(i % unsigned(mw), i / unsigned(mw)), (Tpixel32{g, g, g, g})) << i;
      }
    }
  }
  TpixelMap map;
  EXPECT_EQ(TiffImageFile().readZBuffer(map, 2, 2), -1);
}

// Pixel i of a row up to and including the width; pixels are blue, green, red, alpha.
TEST(IffImageFile, PixelsUpToTheWidth) {
  vt::TempDir d;
  TiffImageFile f(d.path("p.iff").c_str(), "w");
  ASSERT_EQ(f.setSize(2, 1), 0);
  Bytes row(16, 0);
  f.setPixelRGBA(row.data(), 0, 1, 2, 3, 4);
  f.setPixelRGBA(row.data(), 2, 5, 6, 7, 8);  // the width: written
  f.setPixelRGBA(row.data(), 3, 9, 9, 9, 9);  // beyond: nothing
  EXPECT_EQ(vt::hex(row), "03020104000000000706050800000000");
  unsigned char r = 0, g = 0, b = 0, a = 0;
  f.getPixelRGBA(row.data(), 2, r, g, b, &a);
  EXPECT_EQ(r * 1000 + g * 100 + b * 10 + a, 5678);
  f.pixelRGBAswap(row.data());  // the width's pixels only
  EXPECT_EQ(vt::hex(row), "04010203000000000706050800000000");
}

// Settings, fields and pixels go through the object and come back; compressions are the four.
TEST(IffImageFile, WrittenAndReadThroughTheObject) {
  vt::TempDir d;
  Bytes px(30 * 20 * 4);
  for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(i / 5);
  const TiffTag note('N', 'O', 'T', 0x13);
  {
    TiffImageFile w(d.path("o.iff").c_str(), "w");
    ASSERT_EQ(w.setSize(30, 20) | w.setOrigin(7, 8) | w.setRatio(3, 2) | w.setType(IL_COLOR | IL_ALPHA), 0);
    ASSERT_EQ(w.setCompression(TiffImageFile::kQr4) | w.setCompression(TiffImageFile::TfileCompression(4)), 0);
    ASSERT_EQ(w.setField(note, 5, "hello"), 0);
    ASSERT_EQ(w.save(px.data(), nullptr, 0), 0);
  }
  TiffImageFile r(d.path("o.iff").c_str(), "r");
  int x = 0, y = 0, n = 0, m = 0;
  ASSERT_EQ(r.getOrigin(x, y) | r.getRatio(n, m), 0);
  EXPECT_EQ(std::vector<int>({x, y, n, m, int(r.width()), int(r.height())}), std::vector<int>({7, 8, 3, 2, 30, 20}));
  EXPECT_EQ(r.compression(), TiffImageFile::kQr4);
  const void* text = nullptr;
  ASSERT_EQ(r.getField(note, &text), 5);
  EXPECT_EQ(memcmp(text, "hello", 5), 0);
  Bytes back(px.size());
  ASSERT_EQ(r.load(back.data(), nullptr), 0);
  EXPECT_EQ(back, px);
  ASSERT_TRUE(r.reopen(d.path("o.iff").c_str(), "r"));
  ASSERT_EQ(r.setZoom(15, 10, 0, 0, 0.5f, 0.5f), 0);
  ASSERT_EQ(r.getNewSize(x, y), 0);
  EXPECT_EQ(x * 100 + y, 1510);
  EXPECT_EQ(r.close(), 0);
  EXPECT_EQ(r.close(), -1);
}

// Written page by page with the count given late: the same file as with the count given first
// (the time of writing aside), and writing goes on where it was.
TEST(IffImageFile, PageCountRewrittenInPlace) {
  vt::TempDir d;
  const int w = 100, h = 70;
  Bytes px(size_t(w) * h * 4);
  for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(i % 251 ^ i / 4000);
  for (bool late : {false, true}) {
    TiffImageFile f(d.path(late ? "late.iff" : "first.iff").c_str(), "w");
    ASSERT_EQ(f.setSize(w, h), 0);
    if (!late) {
      ASSERT_EQ(f.setPages(9), 0);
    }
    for (int y = 0; y < h; ++y) {
      if (late && y == 40) {
        ASSERT_EQ(f.rewriteHeaderPageCount(9), 0);
      }
      ASSERT_EQ(f.writeLine(&px[size_t(y) * w * 4], nullptr), 0);
    }
    ASSERT_EQ(f.close(), 0);
  }
  EXPECT_TRUE(withoutDate(vt::readFile(d.path("late.iff"))) == withoutDate(vt::readFile(d.path("first.iff"))));
  TiffImageFile r(d.path("late.iff").c_str(), "r");
  EXPECT_EQ(r.pages(), 9);
  Bytes back(px.size());
  ASSERT_EQ(r.load(back.data(), nullptr), 0);
  EXPECT_TRUE(back == px);
}
