// Conversion through the plug-ins (ifftoany, anytoiff): what the peers decode from files written
// here, native files made from the peers' files, multi-frame files, and the GIF colour cube.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include <vora/convert.h>
#include <vora/foundation/dynamic_load.h>
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

// Depth goes out as 31-bit integers: counted down from the top of the scale, or spread over the
// file's clipping range (a CLPZ field), 0 where there is none or it lies beyond; read back from a
// test plug-in that takes integer depth.
TEST(PluginConversion, DepthAsIntegers) {
  static TdynamicLoad lib;
  static std::string path = std::string(VORA_TEST_PLUGINS) + "/depth.so";
  ASSERT_TRUE(lib.open(path.c_str(), 0));
  IMF_init(0, [](void** library, char** name) -> int {
    static bool given = false;
    if (std::exchange(given, true)) return 0;
    *library = lib.handle(), *name = path.data();
    return 1;
  });
  vt::TempDir d;
  const float z[6] = {0, -1, -0.5f, -0.25f, -0.125f, -0.0625f};  // none, then distances 1, 2, 4, 8, 16
  const uint32_t top = 2147483648u;
  const std::vector<uint32_t> counted = {0, top, top - 1, top - 3, top - 7, top - 15},
                              clipped = {0, top, 1932735283u, 1503238553u, 644245094u, 0};  // range 1 to 11
  for (bool clip : {false, true}) {
    TiffImageFile f;
    ASSERT_TRUE(f.open(d.path("z.iff").c_str(), "w"));
    ASSERT_EQ(f.setSize(6, 1) | f.setType(IL_COLOR | IL_ZBUFFER), 0);
    const uint8_t range[8] = {0x3f, 0x80, 0, 0, 0x41, 0x30, 0, 0};  // 1.0, 11.0
    if (clip) {
      ASSERT_EQ(f.setField(TiffTag('C', 'L', 'P', 'Z'), 8, range), 0);
    }
    const std::vector<uint8_t> px(24);
    ASSERT_EQ(f.save(px.data(), z, 0) | f.close(), 0);
    ASSERT_EQ(ifftoany(d.path("z.iff").c_str(), d.path("z.tsz").c_str(), "tsz"), 0);
    const vt::Bytes out = vt::readFile(d.path("z.tsz"));
    ASSERT_EQ(out.size(), 12u + 6 * 7);
    std::vector<uint32_t> got;
    for (size_t at = 12 + 3; at < out.size(); at += 7) got.push_back(out[at] | out[at + 1] << 8 | out[at + 2] << 16 | uint32_t(out[at + 3]) << 24);
    EXPECT_EQ(got, clip ? clipped : counted);
  }
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
