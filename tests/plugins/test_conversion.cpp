// Conversion through the plug-ins (ifftoany, anytoiff): what the peers decode from files written
// here, native files made from the peers' files, multi-frame files, and the GIF colour cube.
#include <gtest/gtest.h>

#include <cstring>

#include <vora/convert.h>
#include <vora/ilib.h>
#include <vora/image_file.h>

#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA;

// A native file's pixels as red, green, blue, alpha of `bytes` bytes (low byte first), top row first.
std::string native(const std::string& path, int bytes) {
  ILimage* in = ILopen(path.c_str(), "r");
  const ILheader* h = in ? ILgetheader(in) : nullptr;
  EXPECT_NE(h, nullptr) << path;
  if (!h) return {};
  ILsetbpp(in, bytes);
  const size_t w = h->width, rows = h->height, row = w * 4 * bytes;
  std::string px(row * rows, '\0'), out;
  EXPECT_EQ(ILload(in, px.data(), nullptr), 0);
  ILclose(in);
  for (size_t y = rows; y-- > 0;)
    for (size_t x = 0; x < w; ++x)
      for (int e : {2, 1, 0, 3})
        for (int b = 0; b < bytes; ++b) out += px[y * row + (x * 4 + size_t(e)) * bytes + size_t(b)];
  return out;
}

// Written out, samples keep their width where the format takes it and are shifted down where it
// does not (16-bit samples to the 8-bit TGA writer keep their high byte).
TEST(PluginConversion, WrittenFilesAsPeersReadThem) {
  vt::useBundledPlugins();
  vt::TempDir d;
  const std::string src = kData + "/iff/rgba16_33x20_rle.iff";
  ASSERT_EQ(ifftoany(src.c_str(), d.path("wide.png").c_str(), "png"), 0);
  EXPECT_EQ(vt::magick(d.path("wide.png"), "rgba", 16), native(src, 2));
  ASSERT_EQ(ifftoany(src.c_str(), d.path("narrow.tga").c_str(), "tga"), 0);
  EXPECT_EQ(vt::magick(d.path("narrow.tga")), native(src, 1));
  vt::Messages said;
  EXPECT_EQ(ifftoany(src.c_str(), d.path("x").c_str(), "nosuchformat"), -1);
  EXPECT_EQ(ifftoany((kData + "/iff/float_rgba_3x2.iff").c_str(), d.path("f.png").c_str(), "png"), -1);
  EXPECT_EQ(ifftoanyInit(src.c_str(), "nosuchformat"), -1);
  EXPECT_EQ(said.lines().size(), 3u);
}

// Peer files of either line order and of 8 and 16 bits become native files of their pixels.
TEST(PluginConversion, NativeFilesFromPeerFiles) {
  vt::useBundledPlugins();
  vt::TempDir d;
  for (const char* name : {"/plugins/png/im_palette.png", "/plugins/tga/oiio_rgba_rle.tga", "/plugins/tiff/im_rgba16_zip.tif",
                           "/plugins/gif/im_rgb.gif"}) {
    const std::string out = d.path("out.iff");
    ASSERT_EQ(anytoiff((kData + name).c_str(), out.c_str(), nullptr, 0), 0) << name;
    EXPECT_EQ(native(out, 1), vt::magick(kData + name)) << name;
  }
  int w = 0, h = 0;
  EXPECT_EQ(getResolution((kData + "/plugins/tga/oiio_rgba_rle.tga").c_str(), &w, &h), 0);
  EXPECT_GT(w * h, 0);
  EXPECT_STREQ(identify((kData + "/lut/README.md").c_str()) ?: "null", "null");
  vt::writeFile(d.path("text"), vt::Bytes{'h', 'e', 'l', 'l', 'o'});
  EXPECT_STREQ(identify(d.path("text").c_str()), "__none_");
  EXPECT_EQ(identify(d.path("missing").c_str()), nullptr);
  vt::Messages said;
  EXPECT_EQ(anytoiff(d.path("text").c_str(), d.path("t.iff").c_str(), nullptr, 0), -1);
  EXPECT_EQ(anytoiff(d.path("missing").c_str(), d.path("t.iff").c_str(), nullptr, 0), -1);
  EXPECT_EQ(said.lines().size(), 2u);
}

// Successive calls with one key write the frames of one file, read back frame by frame; a frame
// of another size is refused.
TEST(PluginConversion, FramesOfOneFile) {
  vt::useBundledPlugins();
  vt::TempDir d;
  const std::string a = kData + "/iff/rgba8_70x66_rle.iff", b = d.path("b.iff");
  {
    TimageFile f;
    TpixelMap m;
    ASSERT_EQ(f.identifyAndOpen(a.c_str()), 0);
    ASSERT_EQ(f.readPixelMap(m), 0);
    f.close();
    m.flipVertical();
    ASSERT_EQ(f.create(b.c_str(), 70, 66, TiffImageFile::kRle, nullptr), 0);
    ASSERT_EQ(f.writePixelMap(m, false), 0);
    ASSERT_EQ(f.close(), 0);
  }
  const std::string out = d.path("frames.tif");
  ASSERT_EQ(ifftoany(a.c_str(), out.c_str(), "tif"), 0);
  ASSERT_EQ(ifftoany(b.c_str(), out.c_str(), "tif"), 0);
  vt::Messages said;
  EXPECT_EQ(ifftoany((kData + "/iff/rgb8_40x30_rle.iff").c_str(), out.c_str(), "tif"), -1);
  EXPECT_EQ(ifftoanyClose(), 0);
  ASSERT_EQ(anytoiff(out.c_str(), d.path("0.iff").c_str(), nullptr, 0), 0);
  ASSERT_EQ(anytoiff(out.c_str(), d.path("1.iff").c_str(), nullptr, 1), 0);
  EXPECT_EQ(native(d.path("0.iff"), 1), native(a, 1));
  EXPECT_EQ(native(d.path("1.iff"), 1), native(b, 1));
  EXPECT_EQ(anytoiff(out.c_str(), d.path("2.iff").c_str(), nullptr, 2), -1);
}

// GIF output is dithered onto the 6 x 6 x 6 cube: every sample a multiple of 51, the picture
// close to the source on average.
TEST(PluginConversion, GifOnTheColourCube) {
  vt::useBundledPlugins();
  vt::TempDir d;
  const std::string src = kData + "/iff/rgb8_40x30_rle.iff";
  ASSERT_EQ(ifftoany(src.c_str(), d.path("cube.gif").c_str(), "gif"), 0);
  const std::string got = vt::magick(d.path("cube.gif")), want = native(src, 1);
  ASSERT_EQ(got.size(), want.size());
  double error = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    if (i % 4 == 3) continue;
    ASSERT_EQ(uint8_t(got[i]) % 51, 0) << i;
    error += std::abs(int(uint8_t(got[i])) - int(uint8_t(want[i])));
  }
  EXPECT_LT(error / double(got.size() / 4 * 3), 16.0);
  // A flat colour: the first pixel, into which no error is carried, takes the nearest level, and
  // the dither keeps the colour on average.
  TpixelMap flat;
  ASSERT_TRUE(flat.create(16, 16));
  for (unsigned i = 0; i < 256; ++i) flat.pixels()[i] = {160, 100, 40, 255};
  TimageFile f;
  ASSERT_EQ(f.create(d.path("flat.iff").c_str(), 16, 16, TiffImageFile::kRle, nullptr), 0);
  ASSERT_EQ(f.writePixelMap(flat, false) | f.close(), 0);
  ASSERT_EQ(ifftoany(d.path("flat.iff").c_str(), d.path("flat.gif").c_str(), "gif"), 0);
  const std::string dithered = vt::magick(d.path("flat.gif"));
  const int nearest[3] = {51, 102, 153}, source[3] = {40, 100, 160};
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(uint8_t(dithered[size_t(c)]), nearest[c]) << c;
    double sum = 0;
    for (size_t i = size_t(c); i < dithered.size(); i += 4) sum += uint8_t(dithered[i]);
    EXPECT_NEAR(sum / 256, source[c], 3.0) << c;
  }
}

}  // namespace
