// The image file front end (TimageFile): identification by first bytes and plug-ins, the three
// ways of reading (native, SGI, through a temporary native file) against decoders of other
// libraries, writing through plug-ins read back by Qt, and its refusals.
#include <gtest/gtest.h>

#include <QImage>
#include <filesystem>

#include <vora/image_file.h>
#include <vora/sgi.h>

#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA;

// A file as Qt decodes it, as map pixels (bottom row first, blue green red alpha).
std::vector<Tpixel32> qtPixels(const std::string& path, unsigned& w, unsigned& h) {
  QImage q(QString::fromStdString(path));
  q = q.convertToFormat(QImage::Format_ARGB32);
  w = unsigned(q.width()), h = unsigned(q.height());
  std::vector<Tpixel32> px(size_t(w) * h);
  for (unsigned y = 0; y < h; ++y) memcpy(&px[size_t(h - 1 - y) * w], q.constScanLine(int(y)), size_t(w) * 4);
  return px;
}

std::vector<Tpixel32> pixelsOf(const TpixelMap& m) { return {m.pixels(), m.pixels() + size_t(m.width()) * m.height()}; }

void writeNative(const std::string& path, unsigned w, unsigned h) {
  TimageFile f;
  TpixelMap m;
  ASSERT_TRUE(m.create(w, h));
  for (unsigned i = 0; i < w * h; ++i) m.pixels()[i] = {uint8_t(i * 7), uint8_t(i >> 3), uint8_t(255 - i), 255};
  ASSERT_EQ(f.create(path.c_str(), uint16_t(w), uint16_t(h), TiffImageFile::kRle, nullptr), 0);
  ASSERT_EQ(f.writePixelMap(m, false), 0);
  ASSERT_EQ(f.close(), 0);
}

TEST(ImageFileIdentify, ByFirstBytesThenPlugins) {
  vt::useBundledPlugins();
  vt::TempDir d;
  struct Row {
    const char* name;
    vt::Bytes bytes;
    const char* key;
    const char* sceneKey;
  } rows[] = {
      {"sgi", {0x01, 0xDA, 1, 1, 0, 2, 0, 8, 0, 8, 0, 3}, "sgi", "sgi"},
      {"native", vt::cat({vt::Bytes{'F', 'O', 'R', '4', 0, 0, 0, 4}, vt::Bytes{'C', 'I', 'M', 'G'}}), "vora", "vora"},
      {"cache", vt::cat({vt::Bytes{'F', 'O', 'R', '4', 0, 0, 0, 4}, vt::Bytes{'C', 'A', 'C', 'H'}}), "", "VoraBinary"},
      {"ascii", vt::Bytes{'/', '/', 'V', 'o', 'r', 'a', ' ', 'A', 'S', 'C', 'I', 'I'}, "", "VoraASCII"},
      {"tiff-le", {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0}, "tif", "tif"},
      {"tiff-be", {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 0, 0, 0}, "tif", "tif"},
      {"jfif", {0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1}, "jpg", "jpg"},
      {"short", {'F', 'O', 'R', '4', 0}, "", ""},  // too short for the bytes: the plug-ins, which pass
  };
  TimageFile f;
  vt::Messages said;
  for (const Row& r : rows) {
    vt::writeFile(d.path(r.name), r.bytes);
    EXPECT_EQ(f.getImageType(d.path(r.name).c_str(), false).str(), r.key) << r.name;
    EXPECT_EQ(f.getImageType(d.path(r.name).c_str(), true).str(), r.sceneKey) << r.name;
  }
  EXPECT_EQ(f.getImageType((kData + "/plugins/png/im_palette.png").c_str(), false).str(), "png");
  EXPECT_EQ(f.getImageType((kData + "/plugins/gif/im_2frames.gif").c_str(), false).str(), "gif");
  // No plug-in claims a Photoshop document here: the provisional key stands.
  EXPECT_EQ(f.getImageType((kData + "/psd/gimp_rgb8_layers.psd").c_str(), false).str(), "psd");
  EXPECT_EQ(f.getImageType(d.path("missing").c_str(), false).str(), "");
  EXPECT_TRUE(said.lines().empty());
  // A scene file is no picture: nothing to open, nothing said.
  EXPECT_EQ(f.identifyAndOpen(d.path("cache").c_str()), -1);
  EXPECT_FALSE(f.isOpen());
  EXPECT_TRUE(said.lines().empty());
}

// One picture by three paths that share no decoder: the native file, its PNG twin through a
// temporary native file made by the PNG plug-in, and the twin loaded by Qt.
TEST(ImageFileRead, NativeConvertedAndFastLoadAgree) {
  vt::useBundledPlugins();
  vt::TempDir tmp;
  vt::ScopedEnv dir("TMPDIR", tmp.dir().c_str());
  TpixelMap native, converted, fast;
  TimageFile f;
  ASSERT_EQ(f.identifyAndOpen((kData + "/iff/rgba8_70x66_rle.iff").c_str()), 0);
  EXPECT_EQ(f.format(), TimageFile::kNativeFormat);
  EXPECT_TRUE(f.alpha());
  ASSERT_EQ(f.readPixelMap(native), 0);
  EXPECT_EQ(f.close(), 0);
  ASSERT_EQ(f.identifyAndOpen((kData + "/iff/rgba8_70x66_rle.png").c_str()), 0);
  EXPECT_EQ(f.format(), TimageFile::kConvertedFormat);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tmp.dir()), {}), 1);  // the temporary file
  ASSERT_EQ(f.readPixelMap(converted), 0);
  EXPECT_EQ(f.close(), 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tmp.dir()), {}), 0);
  ASSERT_TRUE(f.attemptFastLoad((kData + "/iff/rgba8_70x66_rle.png").c_str(), fast));
  unsigned w = 0, h = 0;
  const std::vector<Tpixel32> qt = qtPixels(kData + "/iff/rgba8_70x66_rle.png", w, h);
  ASSERT_EQ(native.width(), w);
  ASSERT_EQ(native.height(), h);
  EXPECT_EQ(pixelsOf(native), qt);
  EXPECT_EQ(pixelsOf(converted), qt);
  EXPECT_EQ(pixelsOf(fast), qt);
  // Float pixels come as bytes, clamped (the two rows are alike; the values as vimg convert gives them).
  TpixelMap floats;
  ASSERT_EQ(f.identifyAndOpen((kData + "/iff/float_rgba_3x2.iff").c_str()), 0);
  ASSERT_EQ(f.readPixelMap(floats), 0);
  EXPECT_EQ(floats.pixel(0, 1), (Tpixel32{0x3f, 0x7f, 0xbf, 0}));
  EXPECT_EQ(floats.pixel(2, 0), (Tpixel32{0x99, 0xe5, 0x0c, 0x4c}));
  TpixelMap resized;  // float pixels are not resampled: refused, not read at the file's size
  resized.requestSize({0, 0, 4, 1});
  EXPECT_EQ(f.readPixelMap(resized), -1);
  f.close();
  // 16-bit channels are no native file to read as it is: converted, their high bytes.
  TpixelMap deep;
  ASSERT_EQ(f.identifyAndOpen((kData + "/iff/rgba16_33x20_rle.iff").c_str()), 0);
  EXPECT_EQ(f.format(), TimageFile::kConvertedFormat);
  ASSERT_EQ(f.readPixelMap(deep), 0);
  f.close();
  ILimage* il = ILopen((kData + "/iff/rgba16_33x20_rle.iff").c_str(), "r");
  std::vector<Tpixel32> high(33 * 20);
  ASSERT_EQ(ILgetheader(il) && !ILsetbpp(il, 1) && !ILload(il, high.data(), nullptr) ? 0 : -1, 0);
  ILclose(il);
  EXPECT_EQ(pixelsOf(deep), high);
  // Suffixes are matched lower-cased; others are not fast-loaded.
  EXPECT_FALSE(f.attemptFastLoad((kData + "/plugins/exr/missing.exr").c_str(), fast));
}

// SGI rows as pixels: grey fills the three colours, 16-bit samples give their high byte, alpha is
// the fourth channel; checked against the whole-picture reader (top row first).
TEST(ImageFileRead, SgiRowsAsPixels) {
  for (const char* name : {"im_gray8_50x20_rle.sgi", "im_rgba16_20x10_verbatim.sgi", "im_rgb8_50x20_verbatim.sgi"}) {
    const std::string path = kData + "/sgi/" + name;
    IMAGE* s = iopen(path.c_str(), "r", 0, 0, 0, 0, 0);
    ASSERT_NE(s, nullptr) << name;
    const unsigned w = s->xsize, h = s->ysize, z = s->zsize, bytes = s->type & 0xFF;
    std::vector<uint8_t> px(size_t(w) * h * z * bytes);
    ASSERT_EQ(getpixels(s, px.data(), size_t(w) * z * bytes), 0);
    iclose(s);
    TimageFile f;
    TpixelMap m;
    ASSERT_EQ(f.identifyAndOpen(path.c_str()), 0) << name;
    EXPECT_EQ(f.format(), TimageFile::kSgiFormat);
    EXPECT_EQ(f.alpha(), z == 4);
    ASSERT_EQ(f.readPixelMap(m), 0);
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x) {
        auto sample = [&](unsigned c) -> uint8_t {
          const size_t at = ((size_t(h - 1 - y) * w + x) * z + c) * bytes;
          return bytes == 1 ? px[at] : uint8_t(uint16_t(px[at] | px[at + 1] << 8) >> 8);
        };
        const Tpixel32 want = z >= 3 ? Tpixel32{sample(2), sample(1), sample(0), z == 4 ? sample(3) : uint8_t(255)}
                                     : Tpixel32{sample(0), sample(0), sample(0), 255};
        ASSERT_EQ(m.pixel(x, y), want) << name << " at " << x << "," << y;
      }
  }
}

TEST(ImageFileRead, NativeSizeLimitAndItsMessage) {
  vt::TempDir d;
  writeNative(d.path("wide.iff"), 8192, 1);
  writeNative(d.path("wider.iff"), 8193, 1);
  TimageFile f;
  vt::Messages said;
  EXPECT_EQ(f.identifyAndOpen(d.path("wide.iff").c_str()), 0);
  EXPECT_EQ(f.close(), 0);
  TimageFile::setErrorReportingEnabled(false);
  EXPECT_EQ(f.identifyAndOpen(d.path("wider.iff").c_str()), -1);
  TimageFile::setErrorReportingEnabled(true);
  ASSERT_EQ(said.lines().size(), 1u);  // said though reporting is off
  EXPECT_NE(said.lines()[0].find("wider.iff"), std::string::npos);
  // Left open: a second open is refused until close.
  EXPECT_TRUE(f.isOpen());
  EXPECT_EQ(f.open(d.path("wide.iff").c_str(), true), -1);
  f.close();
  EXPECT_EQ(f.open(d.path("wide.iff").c_str(), true), 0);
}

// Written through the plug-ins (PNG) and the Photoshop writer, read back by Qt and by this
// library's document reader; "psdLayered" writes the native file itself.
TEST(ImageFileWrite, ThroughPluginsAndDirectly) {
  vt::useBundledPlugins();
  vt::TempDir d;
  TpixelMap m;
  ASSERT_TRUE(m.create(13, 7));
  for (unsigned i = 0; i < 13 * 7; ++i) m.pixels()[i] = {uint8_t(i * 3), uint8_t(i * 11), uint8_t(i), uint8_t(255 - i)};
  for (const char* format : {"png", "psd", "psdLayered"}) {
    const std::string out = d.path(std::string("out.") + format);
    TimageFile f;
    ASSERT_EQ(f.create(out.c_str(), 13, 7, TiffImageFile::kRle, format), 0) << format;
    ASSERT_EQ(f.writePixelMap(m, false), 0);
    ASSERT_EQ(f.close(), 0) << format;
    TpixelMap back;
    ASSERT_EQ(f.identifyAndOpen(out.c_str()), 0) << format;
    EXPECT_EQ(f.format(), strcmp(format, "psdLayered") ? TimageFile::kConvertedFormat : TimageFile::kNativeFormat);
    ASSERT_EQ(f.readPixelMap(back), 0);
    f.close();
    EXPECT_EQ(pixelsOf(back), pixelsOf(m)) << format;
  }
  unsigned w = 0, h = 0;
  EXPECT_EQ(qtPixels(d.path("out.png"), w, h), pixelsOf(m));
  // Unwritable: a native file fails at once, a converted one when it is converted.
  vt::ScopedEnv tmp("TMPDIR", d.dir().c_str());
  TimageFile native, converted;
  vt::Messages said;
  EXPECT_EQ(native.create(d.path("no/such/dir.iff").c_str(), 4, 4, TiffImageFile::kRle, nullptr), -1);
  EXPECT_EQ(said.lines().size(), 1u);
  ASSERT_EQ(converted.create(d.path("no/such/dir.png").c_str(), 4, 4, TiffImageFile::kRle, "png"), 0);
  ASSERT_EQ(converted.writePixelMap(m, false), 0);
  EXPECT_EQ(converted.close(), -1);
}

// Depth goes out only with a buffer of the map's size; read back as written.
TEST(ImageFileWrite, DepthOnlyWithAMatchingBuffer) {
  vt::TempDir d;
  TpixelMap m;
  ASSERT_TRUE(m.create(4, 3));
  m.setWantDepthMap(true);
  TdepthBuffer& z = m.makeDepth();
  for (size_t i = 0; i < z.values.size(); ++i) z.values[i] = -1.0f / float(i + 2);
  TimageFile f;
  ASSERT_EQ(f.create(d.path("z.iff").c_str(), 4, 3, TiffImageFile::kRle, nullptr), 0);
  ASSERT_EQ(f.writePixelMap(m, true), 0);
  ASSERT_EQ(f.close(), 0);
  TdepthBuffer back;
  ASSERT_EQ(f.identifyAndOpen(d.path("z.iff").c_str()), 0);
  EXPECT_TRUE(f.hasDepthMap());
  ASSERT_EQ(f.readDepthMap(back), 0);
  EXPECT_EQ(back.values, z.values);
  f.close();
  z.height = 2, z.values.resize(8);  // one row short
  ASSERT_EQ(f.create(d.path("short.iff").c_str(), 4, 3, TiffImageFile::kRle, nullptr), 0);
  EXPECT_EQ(f.writePixelMap(m, true), -1);
  m.setWantDepthMap(false);
  z.height = 3, z.values.resize(12);
  EXPECT_EQ(f.writePixelMap(m, true), -1);  // a buffer the map does not ask for
}

// Damaged and foreign files of every kind read here: a clean -1, never a crash (the suite also
// runs under AddressSanitizer).
TEST(ImageFileRead, DamagedFilesFailCleanly) {
  vt::useBundledPlugins();
  vt::TempDir d;
  std::vector<std::string> files;
  for (const char* dir : {"/iff/bad", "/sgi/bad", "/psd/bad"})
    for (const auto& e : std::filesystem::directory_iterator(kData + dir)) files.push_back(e.path());
  // Truncated plug-in files: the conversion sees them fail.
  for (const char* name : {"/plugins/png/im_palette.png", "/plugins/tga/oiio_rgba_rle.tga", "/plugins/tiff/im_tiled.tif"}) {
    vt::Bytes b = vt::readFile(kData + name);
    b.resize(b.size() / 2);
    files.push_back(d.path(std::to_string(files.size()) + std::filesystem::path(name).extension().string()));
    vt::writeFile(files.back(), b);
  }
  vt::Messages said;
  for (const std::string& path : files) {
    TimageFile f;
    TpixelMap m;
    if (f.identifyAndOpen(path.c_str()) == 0) f.readPixelMap(m);
    f.close();
    f.attemptFastLoad(path.c_str(), m);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(d.dir()), {}), long(3));  // no temporary left
}

}  // namespace
