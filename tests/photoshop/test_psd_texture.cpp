// The texture facade and its document cache: one read per unchanged file, a fresh read after the
// file changes (to the nanosecond), documents kept alive for the facades that hold them.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <vora/psd_texture.h>

#include "support/psd_builder.h"
#include "support/test_support.h"

using namespace ktPhotoshop;
namespace psd = vt::psd;

namespace {
// Moves the file's modification time by one nanosecond: a change within the same second.
void touchNanosecond(const std::string& path) {
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  timespec times[2] = {st.st_atim, st.st_mtim};
  times[1].tv_nsec = (times[1].tv_nsec + 1) % 1000000000;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}
}  // namespace

TEST(PsdTexture, CacheReadsOnceUntilTheFileChanges) {
  vt::TempDir d;
  psd::Document doc;
  doc.width = 7, doc.height = 3;
  const std::string path = d.path("t.psd");
  vt::writeFile(path, psd::build(doc));
  TpsdFileCache& cache = TpsdFileCache::theCache();
  cache.clear();
  TpsdTextureFile a, b, c;
  ASSERT_EQ(a.open(path.c_str(), true), 0);
  EXPECT_EQ(a.resolutionX() * 100 + a.resolutionY(), 703);
  ASSERT_EQ(b.open((d.dir() + "/./t.psd").c_str(), false), 0);  // the same full path
  EXPECT_EQ(b.document(), a.document());
  EXPECT_EQ(b.resolutionX(), 7);
  EXPECT_EQ(cache.size(), 1u);
  TphotoshopFile* other = nullptr;
  EXPECT_EQ(cache.addFile(Tstring(std::string(d.dir()) + "/t.psd"), other), -1);
  touchNanosecond(path);
  ASSERT_EQ(c.open(path.c_str(), true), 0);
  EXPECT_NE(c.document(), a.document());  // read again
  EXPECT_EQ(a.document()->imageWidth(), 7u);  // the stale document lives on for its holders
  EXPECT_EQ(a.close(), 0);
  EXPECT_EQ(b.close(), 0);
  EXPECT_EQ(c.close(), 0);
  TpsdTextureFile u;
  ASSERT_EQ(u.openWithoutCache(path.c_str(), true), 0);
  EXPECT_EQ(u.resolutionX(), 0);  // not copied
  ASSERT_EQ(u.saveAs(d.path("copy.psd").c_str()), 0);
  EXPECT_TRUE(TpsdTextureFile::isFilePsd(Tstring(d.path("copy.psd"))));
  EXPECT_EQ(cache.size(), 1u);
  vt::writeFile(d.path("x.psd"), {'n', 'o'});
  TpsdTextureFile x;
  EXPECT_EQ(x.open(d.path("x.psd").c_str(), true), -1);
  EXPECT_EQ(cache.size(), 1u);
  EXPECT_EQ(x.close(), -1);
  cache.clear();
}

// Pixels through the facade against what GIMP was told to paint (tests/tools/make_gimp.scm): the
// alpha channels of one document, and a layer of another placed in its document, widened to 16
// bits; 16-bit samples of a document written here narrowed to 8.
TEST(PsdTexture, AlphaChannelsAndLayersAsGimpPaintedThem) {
  TpsdTextureFile alpha;
  ASSERT_EQ(alpha.openWithoutCache(VORA_TEST_DATA "/psd/gimp_rgb8_alpha_channels.psd", false), 0);
  TstringArray names;
  ASSERT_EQ(alpha.alphaList(names), 0);
  ASSERT_EQ(names.size(), 2u);
  EXPECT_EQ(names[1].str(), "mask b");
  std::vector<uint8_t> a;
  std::vector<uint16_t> b;
  ASSERT_EQ(alpha.readAlphaChannel8("mask a", a), 0);
  ASSERT_EQ(alpha.readAlphaChannel16("mask b", b), 0);
  ASSERT_EQ(a.size() * 10 + b.size(), 3840u + 384u);
  for (size_t i = 0; i < a.size(); ++i) {
    const size_t x = i % 24, y = i / 24;
    ASSERT_EQ(a[i], x >= 4 && x < 12 && y >= 2 && y < 10 ? 255 : 0) << x << "," << y;
    ASSERT_EQ(b[i], 128 * 257);
  }
  TpixelMap map;
  ASSERT_EQ(alpha.readAlphaChannelPixMap("mask a", map), 0);
  EXPECT_EQ(map.pixel(4, 15 - 2), (Tpixel32{255, 255, 255, 255}));  // bottom row first
  EXPECT_EQ(map.pixel(4, 2), (Tpixel32{0, 0, 0, 255}));
  EXPECT_EQ(alpha.readAlphaChannel8("mask c", a), -1);
  ASSERT_EQ(alpha.readPixelMap(map), 0);  // the layers composited: the background's colour
  EXPECT_EQ(map.pixel(0, 15), (Tpixel32{90, 60, 30, 255}));
  // "multiply 60": 10 x 8 at (3, 2), painted (10, 220, 90), over a 24 x 16 document.
  TpsdTextureFile doc;
  ASSERT_EQ(doc.openWithoutCache(VORA_TEST_DATA "/psd/gimp_rgb8_layers.psd", false), 0);
  std::vector<uint16_t> placed;
  ASSERT_EQ(doc.readPixels16Layer("multiply 60", placed), 0);
  ASSERT_EQ(placed.size(), 24u * 16 * 4);
  for (size_t i = 0; i < placed.size(); i += 4) {
    const size_t x = i / 4 % 24, y = i / 4 / 24;
    const bool in = x >= 3 && x < 13 && y >= 2 && y < 10;
    const std::vector<uint16_t> want = in ? std::vector<uint16_t>{2570, 56540, 23130, 65535} : std::vector<uint16_t>(4, 0);
    ASSERT_EQ(std::vector<uint16_t>(placed.begin() + long(i), placed.begin() + long(i) + 4), want) << x << "," << y;
  }
  TrgbaData own;
  ASSERT_EQ(doc.readLayerPixels("multiply 60", own), 0);
  EXPECT_EQ(own.width() * 100 + own.height(), 1008u);
  EXPECT_EQ(doc.readPixelMap("Background", map), 0);
  EXPECT_EQ(map.pixel(23, 0), (Tpixel32{10, 40, 200, 255}));
  EXPECT_EQ(doc.readPixels8Layer("no such layer", a), -1);
  vt::TempDir d;
  TpsdTextureFile wide, narrow;
  TpixelData16 px(k16Bits, 2, 1, true);
  for (uint32_t i = 0; i < 2; ++i) px.setRed(i, uint16_t(0x1234 + i * 0x8000)), px.setTrans(i, 0xFFFF);
  ASSERT_EQ(wide.create(d.path("w.psd").c_str(), 2, 1, 16), 0);
  ASSERT_EQ(wide.createLayer("l", 0, 0, std::move(px)) | wide.saveAs(TfilePath(std::string()), RAW), 0);
  ASSERT_EQ(narrow.openWithoutCache(d.path("w.psd").c_str(), false), 0);
  ASSERT_EQ(narrow.readPixels8Layer("l", a), 0);
  EXPECT_EQ(a, (std::vector<uint8_t>{0x12, 0, 0, 255, 0x92, 0, 0, 255}));
}

namespace {
// w x h RGBA samples of a pattern, opaque, and their bytes interleaved as psd-tools hands them out.
TpixelData16 pattern(uint32_t w, uint32_t h, int seed, vt::Bytes* rgba = nullptr) {
  TpixelData16 p(k8Bits, w, h, true);
  for (uint32_t i = 0; i < w * h; ++i)
    for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY}) {
      const uint8_t v = id == TRANSPARENCY ? 255 : uint8_t(i * 37 + uint32_t(id) * 71 + uint32_t(seed) * 13);
      p.setChannelValue(id, i, v);
      if (rgba) rgba->push_back(v);
    }
  return p;
}
}  // namespace

// A document built through the facade (layers, a set filled from its side, opacity, blend mode,
// replaced pixels, deletions, alpha channels) as psd-tools reads it, and as the reader reads its
// alpha channels; a set deleted goes with its layers. Read documents and unknown names answer -1.
TEST(PsdTexture, BuiltDocumentAsPsdToolsReadsIt) {
  vt::TempDir d;
  const std::string path = d.path("built.psd");
  TpsdTextureFile t;
  ASSERT_EQ(t.create(path.c_str(), 20, 10), 0);
  vt::Bytes bg, a, b, top;
  ASSERT_EQ(t.createLayer("bg", 0, 0, pattern(20, 10, 1, &bg)), 0);
  ASSERT_EQ(t.createLayerSet("group"), 0);
  ASSERT_EQ(t.addNewLayerToSet("group", "a", 2, 1, pattern(5, 4, 2)), 0);
  ASSERT_EQ(t.addNewLayerToSet("group", "b", 4, 3, pattern(6, 5, 3, &b)), 0);
  ASSERT_EQ(t.createLayer("top", 1, 1, pattern(3, 3, 4, &top)), 0);
  ASSERT_EQ(t.createLayer("gone", 0, 0, pattern(2, 2, 5)), 0);
  ASSERT_EQ(t.deleteLayer("gone"), 0);
  ASSERT_EQ(t.setLayerOpacity("b", 128), 0);
  ASSERT_EQ(t.setBlendModeToLayer("b", fourCC("mul ")), 0);
  ASSERT_EQ(t.writePixels("a", pattern(7, 2, 6, &a)), 0);
  TpixelData16 spec(k8Bits), gone(k8Bits);
  spec.addChannel(RED, 20, 10);
  for (uint32_t i = 0; i < 200; ++i) spec.setChannelValue(RED, i, uint16_t(i));
  gone.addChannel(RED, 20, 10, 9);
  ASSERT_EQ(t.createChannel("gone", std::move(gone)), 0);
  ASSERT_EQ(t.createChannel("spec", std::move(spec)), 0);
  ASSERT_EQ(t.deleteChannel("gone"), 0);
  TpixelData16 small(k8Bits), deep(k16Bits, 2, 2, true), ragged = pattern(2, 2, 0), ragged2 = pattern(2, 2, 0);
  small.addChannel(RED, 19, 10);
  for (TpixelData16* r : {&ragged, &ragged2}) r->addChannel(TRANSPARENCY, 3, 2);  // unlike the colours
  const std::vector<int> refused = {t.addNewLayerToSet("bg", "x", 0, 0, pattern(1, 1, 0)), t.setLayerOpacity("nope", 1),
                                    t.createLayer("deep", 0, 0, std::move(deep)), t.createChannel("small", std::move(small)),
                                    t.deleteChannel("nope"), t.deleteLayer("nope"),
                                    t.createLayer("ragged", 0, 0, std::move(ragged)), t.writePixels("top", std::move(ragged2))};
  EXPECT_EQ(refused, std::vector<int>(8, -1));
  ASSERT_EQ(t.saveAs(TfilePath(std::string())), 0);

  std::string pt;
  ASSERT_EQ(vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/psdtools_layers.py " + path, &pt), 0) << pt;
  EXPECT_EQ(pt, "layer|bg|0,0,20,10|normal|255|true|false|" + vt::sha256(bg) + "\n" +
                    "layer|a|2,1,9,3|normal|255|true|false|" + vt::sha256(a) + "\n" +
                    "layer|b|4,3,10,8|multiply|128|true|false|" + vt::sha256(b) + "\n" +
                    "group|group|2,1,10,8|pass_through|255|true|false|\n" +
                    "layer|top|1,1,4,4|normal|255|true|false|" + vt::sha256(top) + "\n");
  TpsdTextureFile back;
  ASSERT_EQ(back.openWithoutCache(path.c_str(), false), 0);
  TstringArray names;
  ASSERT_EQ(back.alphaList(names), 0);
  ASSERT_EQ(names.size(), 1u);  // an odd-sized name resource: its pad byte is no name
  EXPECT_EQ(names[0].str(), "spec");
  std::vector<uint8_t> samples;
  ASSERT_EQ(back.readAlphaChannel8("spec", samples), 0);
  for (uint32_t i = 0; i < 200; ++i) ASSERT_EQ(samples[i], i);
  EXPECT_EQ(back.setLayerOpacity("bg", 1), -1);

  ASSERT_EQ(t.deleteLayer("group"), 0);
  ASSERT_EQ(t.saveAs(d.path("less.psd").c_str()), 0);
  pt.clear();
  ASSERT_EQ(vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/psdtools_layers.py " + d.path("less.psd") + " | cut -d'|' -f2", &pt), 0);
  EXPECT_EQ(pt, "bg\ntop\n");
}
