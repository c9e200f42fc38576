// Documents written by the library: read back exactly by its reader at both depths, both colour
// modes and every compression, and read by psd-tools, ImageMagick, OpenImageIO and GIMP with the
// same layers, blend modes, opacity, sets and pixels.
#include <gtest/gtest.h>
#include <vora/photoshop.h>

#include <sstream>

#include "support/test_support.h"

using namespace ktPhotoshop;
using vt::Bytes;

namespace {

struct LayerSpec {
  const char* name;
  int32_t x, y;
  uint32_t w, h;
  const char* key;
  uint8_t opacity, flags;
  bool mask;
};
const LayerSpec kLayers[] = {{"Background", 0, 0, 30, 20, "norm", 255, 0, false},
                        {"masked", 3, 2, 10, 8, "norm", 255, 0, true},
                        {"multiply", 12, 6, 14, 10, "mul ", 160, 0, false},
                        {"hidden", -4, 15, 9, 9, "scrn", 255, 2, false}};

uint32_t keyOf(const char* k) { return uint32_t(k[0]) << 24 | uint32_t(k[1]) << 16 | uint32_t(k[2]) << 8 | uint32_t(k[3]); }

// Channels 0-2 (0 alone for grey) and -1 of a pattern, and a user mask when asked.
TpixelData16 pixels(const LayerSpec& s, TdataFormat f, bool grey, int seed) {
  TpixelData16 p(f);
  const uint32_t M = f == k16Bits ? 65535 : 255;
  std::vector<PHOTOSHOP_CHANNEL> ids = grey ? std::vector<PHOTOSHOP_CHANNEL>{RED, TRANSPARENCY}
                                            : std::vector<PHOTOSHOP_CHANNEL>{RED, GREEN, BLUE, TRANSPARENCY};
  if (s.mask) ids.push_back(USER_MASK);
  for (PHOTOSHOP_CHANNEL id : ids) {
    p.addChannel(id, s.w, s.h);
    for (uint32_t i = 0; i < s.w * s.h; ++i)
      p.setChannelValue(id, i, uint16_t(id == TRANSPARENCY && seed == 0 ? M : (i * 2654435761u + uint32_t(id + 3) * 977 + seed * 31) % (M + 1)));
  }
  return p;
}

std::string build(const std::string& path, TdataFormat f, bool grey, TCompressionMethod method) {
  TpsdFile doc;
  doc.setColorDepth(f == k16Bits ? 16 : 8);
  doc.setColorMode(grey ? 1 : 3);
  unsigned short w = 30, h = 20;
  if (doc.create(path.c_str(), w, h) != 0) return doc.lastReadError().str();
  int seed = 0;
  for (const LayerSpec& s : kLayers) {
    TpsdLayer& l = doc.addLayer(s.name, s.x, s.y, pixels(s, f, grey, seed++));
    l.blendKey = keyOf(s.key), l.opacity = s.opacity, l.flags = s.flags;
    if (s.mask) l.mask.left = s.x + 1, l.mask.top = s.y + 1, l.mask.right = s.x + 1 + int32_t(s.w),
                l.mask.bottom = s.y + 1 + int32_t(s.h), l.mask.defaultColor = 255;
  }
  doc.addLayerSet("set", 2, false);
  TpixelData16 alpha(f);
  alpha.addChannel(RED, w, h, 77);
  doc.addAlphaChannel("specular", std::move(alpha));
  return doc.save(TfilePath(std::string()), method) == 0 ? "" : doc.lastReadError().str();
}

// 8-bit RGBA of the layer's pixels, top row first, as the peers hand them out.
Bytes rgba8(TpixelData16& p, uint32_t n) {
  Bytes b;
  for (uint32_t i = 0; i < n; ++i)
    for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY}) b.push_back(p.getChannelPixPtr(id)[i]);
  return b;
}

}  // namespace

TEST(PsdWrite, ReadBackExactlyAtEveryDepthModeAndCompression) {
  vt::TempDir d;
  for (TdataFormat f : {k8Bits, k16Bits})
    for (bool grey : {false, true})
      for (TCompressionMethod method : {RAW, RLE, ZIP}) {
        if (f == k16Bits && method == RLE) continue;  // the library's own 16-bit PackBits rule
        SCOPED_TRACE(std::string(f == k16Bits ? "16" : "8") + (grey ? " grey " : " rgb ") + std::to_string(method));
        const std::string path = d.path("w.psd");
        ASSERT_EQ(build(path, f, grey, method), "");
        TpsdFile doc;
        doc.open(path.c_str(), true);
        ASSERT_EQ(doc.readAllChannelData(), 0) << doc.lastReadError().str();
        EXPECT_EQ(doc.colorMode(), grey ? 1 : 3);
        ASSERT_EQ(doc.layers().size(), 6u);
        std::vector<std::string> names;
        for (auto& l : doc.layers()) names.push_back(l->name.str());
        EXPECT_EQ(names, (std::vector<std::string>{"Background", "masked", "</Layer group>", "multiply", "hidden", "set"}));
        EXPECT_EQ(doc.layers()[2]->sectionType * 10 + doc.layers()[5]->sectionType, 32u);
        int seed = 0;
        for (size_t i : {0u, 1u, 3u, 4u}) {
          const LayerSpec& s = kLayers[seed];
          TpsdLayer& l = *doc.layers()[i];
          EXPECT_EQ(l.left * 1000 + l.top, s.x * 1000 + s.y);
          EXPECT_EQ(l.width() * 1000 + l.height(), s.w * 1000 + s.h);
          EXPECT_EQ(l.blendKey, keyOf(s.key));
          EXPECT_EQ(l.opacity * 10 + l.flags, s.opacity * 10 + s.flags);
          TpixelData16 want = pixels(s, f, grey, seed++);
          for (PHOTOSHOP_CHANNEL id : want.channelListArray()) {
            ASSERT_NE(l.pixels.channel(id), nullptr) << s.name << " " << id;
            EXPECT_EQ(memcmp(l.pixels.getChannelPixPtr(id), want.getChannelPixPtr(id), size_t(s.w) * s.h * want.bytesPerChannel()), 0)
                << s.name << " channel " << id;
          }
        }
        EXPECT_EQ(doc.layers()[1]->mask.left * 100 + doc.layers()[1]->mask.top, 403);
        // names are read for the channels past the third: a grey document's stay unread (the reader's rule)
        EXPECT_EQ(doc.alphaNames().size(), grey ? 0u : 1u);
        if (!grey) {
          EXPECT_EQ(doc.alphaNames()[0].str(), "specular");
        }
      }
}

TEST(PsdWriteInterop, PeersReadTheLayersWritten) {
  vt::TempDir d;
  const std::string path = d.path("peers.psd");
  ASSERT_EQ(build(path, k8Bits, false, RLE), "");
  // psd-tools: structure, blend modes, opacity, visibility, and the pixels of every layer
  std::string pt;
  ASSERT_EQ(vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/psdtools_layers.py " + path, &pt), 0) << pt;
  std::vector<std::string> lines;
  std::istringstream in(pt);
  for (std::string line; std::getline(in, line);) lines.push_back(line.substr(0, line.rfind('|')));
  EXPECT_EQ(lines, (std::vector<std::string>{"layer|Background|0,0,30,20|normal|255|true|false",
                                             "layer|masked|3,2,13,10|normal|255|true|false",
                                             "layer|multiply|12,6,26,16|multiply|160|true|false",
                                             "layer|hidden|-4,15,5,24|screen|255|false|false",
                                             "group|set|12,6,26,16|pass_through|255|true|false"}))
      << pt;
  int seed = 0;
  for (const LayerSpec& s : kLayers) {
    TpixelData16 p = pixels(s, k8Bits, false, seed);
    const std::string hash = vt::sha256(rgba8(p, s.w * s.h));
    EXPECT_NE(pt.find(std::string(s.name) + "|"), std::string::npos);
    if (!s.mask) {
      EXPECT_NE(pt.find(hash), std::string::npos) << s.name;  // psd-tools applies no mask here
    }
    // ImageMagick: image 0 is the composite, then the layers bottom first (set records not
    // counted); it folds opacity and masks into the alpha it hands out
    std::string im;
    vt::run("/usr/bin/convert '" + path + "[" + std::to_string(++seed) + "]' -depth 8 rgba:- | sha256sum", &im);
    if (!s.mask && s.opacity == 255) {
      EXPECT_EQ(im.substr(0, 64), hash) << s.name;
    }
  }
  // OpenImageIO: the composite and one subimage per layer record, at their places, the same pixels
  std::string oiio;
  ASSERT_EQ(vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py layers " + path, &oiio), 0) << oiio;
  seed = 0;
  for (const LayerSpec& s : kLayers) {
    TpixelData16 p = pixels(s, k8Bits, false, seed++);
    if (!s.mask) {
      EXPECT_NE(oiio.find(std::string(s.name) + "|" + vt::sha256(rgba8(p, s.w * s.h))), std::string::npos) << oiio;
    }
  }
  std::string info;
  ASSERT_EQ(vt::run("oiiotool --info -v -a " + path + " 2>&1", &info), 0);
  EXPECT_NE(info.find("7 subimages: 30x20 [u8,u8,u8], 30x20 [u8,u8,u8,u8], 10x8 [u8,u8,u8,u8], 0x0 [u8,u8,u8,u8], "
                      "14x10 [u8,u8,u8,u8], 9x9 [u8,u8,u8,u8], 0x0 [u8,u8,u8,u8]"),
            std::string::npos)
      << info;  // the set records are subimages of their own
  EXPECT_NE(info.find("pixel data origin: x=-4, y=15"), std::string::npos) << info;
  // GIMP (batch): the top-level layers' names, offsets, opacity and modes, and their pixels
  std::string gimp;
  vt::run("cd " + d.dir() + " && gimp-console-2.10 -i -d -f -b '(let* ((img (car (gimp-file-load RUN-NONINTERACTIVE "
          "\"peers.psd\" \"peers.psd\")))) (for-each (lambda (l) (let ((o (gimp-drawable-offsets l)) (n (car "
          "(gimp-item-get-name l)))) (gimp-message (string-append \"LAYER \" n \" \" (number->string (car o)) \",\" "
          "(number->string (cadr o)) \" \" (number->string (round (car (gimp-layer-get-opacity l)))) \" \" "
          "(number->string (car (gimp-layer-get-mode l))))) (file-png-save2 RUN-NONINTERACTIVE img l (string-append "
          "\"gimp_\" n \".png\") \"x\" 0 9 0 0 0 0 0 0 0))) (vector->list (cadr (gimp-image-get-layers img)))) "
          "(gimp-quit 0))' 2>&1 | grep -a -o 'LAYER.*'",
          &gimp);
  EXPECT_EQ(gimp, "LAYER set -4,6 100.0 61\nLAYER masked 3,2 100.0 28\nLAYER Background 0,0 100.0 28\n") << gimp;
  std::string bg;
  vt::run("/usr/bin/convert '" + d.path("gimp_Background.png") + "' -depth 8 rgba:- | sha256sum", &bg);
  TpixelData16 p = pixels(kLayers[0], k8Bits, false, 0);
  EXPECT_EQ(bg.substr(0, 64), vt::sha256(rgba8(p, 30 * 20)));
}
