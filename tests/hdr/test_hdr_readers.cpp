// The OpenEXR and Radiance readers against OpenImageIO's readings of the same files (made by
// oiiotool and by the OpenEXR tools), both Radiance orders, display windows, and damaged files.
#include <gtest/gtest.h>
#include <vora/hdr_readers.h>

#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

using vt::Bytes;

namespace {

const std::string kPeer = "/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py floats ";

struct Read {
  int status = -1;
  ThdrImageFileInfo info;
  TgenericPixelMap<float> map;
};

Read readHdr(const std::string& path, unsigned flags = 0) {
  registerStandardHdrReaders();
  Read r;
  std::unique_ptr<ThdrImageFile> f(ThdrTranslationManager::instance().createAndOpen(path));
  if (!f) return r;
  r.info = f->info();
  r.status = f->read(r.map, flags);
  return r;
}

// Our picture top row first, as OpenImageIO hands it out.
std::vector<float> topFirst(const TgenericPixelMap<float>& m) {
  std::vector<float> out;
  const size_t row = size_t(m.width()) * m.channels();
  for (unsigned y = m.height(); y-- > 0;) out.insert(out.end(), m.data() + y * row, m.data() + (y + 1) * row);
  return out;
}

std::vector<float> peerFloats(const std::string& path, std::string* shape) {
  vt::TempDir d;
  EXPECT_EQ(vt::run(kPeer + "'" + path + "' '" + d.path("f.raw") + "'", shape), 0) << path;
  Bytes b = vt::readFile(d.path("f.raw"));
  std::vector<float> f(b.size() / 4);
  memcpy(f.data(), b.data(), f.size() * 4);
  return f;
}

size_t mismatches(const std::vector<float>& a, const std::vector<float>& b) {
  if (a.size() != b.size()) return SIZE_MAX;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); ++i) n += !(a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i])));
  return n;
}

}  // namespace

TEST(HdrReaders, EqualOpenImageIoValueForValue) {
  vt::TempDir d;
  const std::string gradient = "--pattern fill:topleft=0,0,0:topright=4,2,1:bottomleft=0.1,0.5,8:bottomright=20,10,5 ";
  struct Case {
    const char* name;
    std::string make;  // the shell command that makes it (in the folder)
    const char* shape;  // OpenImageIO's "W H C X Y FULLW FULLH"
    bool tiled, half;
  } cases[] = {
      {"half.exr", "oiiotool " + gradient + "61x33 3 -d half -o half.exr", "61 33 3 0 0 61 33\n", false, true},
      {"float_rgba_tiles.exr", "oiiotool --pattern fill:top=0,0,0,1:bottom=10,5,2,0.5 40x20 4 -d float --tile 16 16 -o float_rgba_tiles.exr",
       "40 20 4 0 0 40 20\n", true, false},
      {"window.exr", "oiiotool " + gradient + "64x32 3 -d half --crop 20x10+5+7 -o window.exr", "20 10 3 5 7 64 32\n", false, true},
      {"grey.exr", "oiiotool --pattern noise:type=uniform:min=0:max=50 16x8 1 --chnames Y -d float -o grey.exr", "16 8 1 0 0 16 8\n", false, false},
      {"exrmaketiled.exr", "oiiotool " + gradient + "50x30 3 -d half -o s.exr && exrmaketiled -t 16 16 s.exr exrmaketiled.exr",
       "50 30 3 0 0 50 30\n", true, true},
      {"multipart.exr", "oiiotool " + gradient + "20x10 3 -d half -o a.exr && oiiotool --pattern constant:color=1,2,3 20x10 3 -o b.exr"
       " && exrmultipart -combine -i a.exr b.exr -o multipart.exr", "20 10 3 0 0 20 10\n", false, true},  // the first part
      {"rle.hdr", "oiiotool " + gradient + "64x32 3 -o rle.hdr", "64 32 3 0 0 64 32\n", false, false},
      {"narrow.hdr", "oiiotool " + gradient + "5x9 3 -o narrow.hdr", "5 9 3 0 0 5 9\n", false, false},  // flat lines
  };
  for (const Case& c : cases) {
    ASSERT_EQ(vt::run("cd '" + d.dir() + "' && " + c.make), 0) << c.name;
    const std::string path = d.path(c.name);
    std::string shape;
    std::vector<float> peer = peerFloats(path, &shape);
    EXPECT_EQ(shape, c.shape) << c.name;
    Read r = readHdr(path);
    ASSERT_EQ(r.status, 0) << c.name;
    EXPECT_EQ(mismatches(topFirst(r.map), peer), 0u) << c.name;
    std::istringstream s(c.shape);
    int w, h, ch, x, y, fw, fh;
    s >> w >> h >> ch >> x >> y >> fw >> fh;
    const int32_t want[7] = {fw, fh, ch, x, y, w, h};
    EXPECT_EQ(std::vector<int32_t>(r.info.values, r.info.values + 7), std::vector<int32_t>(want, want + 7)) << c.name;
    EXPECT_EQ(r.info.flags[0], c.tiled) << c.name;
    EXPECT_EQ(r.info.flags[1], c.half) << c.name;
  }
  // The data window placed in the display window: the same values, zero around them.
  Read whole = readHdr(d.path("window.exr"), kHdrReadDisplayWindow), part = readHdr(d.path("window.exr"));
  ASSERT_EQ(whole.status, 0);
  ASSERT_EQ(whole.map.width() * 100 + whole.map.height(), 6432u);
  EXPECT_EQ(whole.map.pixel(5, 32 - 1 - 7)[0], part.map.pixel(0, 9)[0]);  // top left of the data, bottom rows first
  EXPECT_EQ(whole.map.pixel(0, 0)[1], 0.0f);
}

// Radiance files stand top row first (-Y) or bottom row first (+Y); the picture is the same.
TEST(HdrReaders, RadianceBothVerticalOrdersAndTheRgbeFormula) {
  vt::TempDir d;
  const unsigned w = 3, h = 2;
  const uint8_t px[h][w][4] = {{{128, 64, 32, 129}, {255, 0, 1, 136}, {0, 0, 0, 0}},      // top row
                               {{1, 2, 3, 100}, {200, 100, 50, 140}, {10, 20, 30, 128}}};  // bottom row
  for (char order : {'-', '+'}) {
    std::string head = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\nEXPOSURE=1.0\n\n" + std::string(1, order) + "Y 2 +X 3\n";
    Bytes b(head.begin(), head.end());
    for (unsigned i = 0; i < h; ++i)
      for (unsigned x = 0; x < w; ++x) b.insert(b.end(), px[order == '-' ? i : h - 1 - i][x], px[order == '-' ? i : h - 1 - i][x] + 4);
    vt::writeFile(d.path("o.hdr"), b);
    Read r = readHdr(d.path("o.hdr"));
    ASSERT_EQ(r.status, 0) << order;
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x)
        for (unsigned c = 0; c < 3; ++c) {
          const uint8_t* e = px[h - 1 - y][x];  // our row y counts from the bottom
          const float want = e[3] ? float(e[c]) * std::ldexp(1.0f, int(e[3]) - 136) : 0.0f;
          EXPECT_EQ(r.map.pixel(x, y)[c], want) << order << " " << x << "," << y << " c" << c;
        }
  }
}

TEST(HdrMalformed, DamagedFilesAreRefused) {
  vt::TempDir d;
  ASSERT_EQ(vt::run("cd '" + d.dir() + "' && oiiotool --pattern noise 48x20 4 -d half -o g.exr && oiiotool --pattern noise 48x20 3 -o g.hdr"), 0);
  const Bytes exr = vt::readFile(d.path("g.exr")), hdr = vt::readFile(d.path("g.hdr"));
  auto replaced = [](Bytes b, const std::string& from, const std::string& to) {
    auto at = std::search(b.begin(), b.end(), from.begin(), from.end());
    if (at != b.end()) b.erase(at, at + long(from.size())), b.insert(at, to.begin(), to.end());
    return b;
  };
  auto dataWindowOf = [&](int32_t maxX, int32_t maxY) {  // the box2i after "dataWindow\0box2i\0" and its size
    Bytes b = exr;
    const std::string key("dataWindow\0box2i\0", 17);
    auto at = std::search(b.begin(), b.end(), key.begin(), key.end()) + 17 + 4 + 8;
    memcpy(&*at, &maxX, 4), memcpy(&*at + 4, &maxY, 4);
    return b;
  };
  const size_t rleStart = std::string(hdr.begin(), hdr.end()).find("+X 48\n") + 6;
  Bytes longRun = hdr;
  longRun[rleStart + 4] = 128 + 60;  // a run of 60 in a line of 48
  struct Case {
    const char* name;
    Bytes bytes;
  } cases[] = {
      {"cut.exr", Bytes(exr.begin(), exr.begin() + long(exr.size() * 2 / 3))},
      {"header-cut.exr", Bytes(exr.begin(), exr.begin() + 60)},
      {"huge.exr", dataWindowOf(INT32_MAX - 1, 19)},
      {"inverted.exr", dataWindowOf(-5, -5)},
      {"multipart-string.exr", vt::readFile(VORA_TEST_DATA "/hdr/bad/multipart-string-of-1.7-GB.exr")},  // found by fuzzing
      {"cut.hdr", Bytes(hdr.begin(), hdr.begin() + long(hdr.size() * 2 / 3))},
      {"huge.hdr", replaced(hdr, "-Y 20 +X 48", "-Y 2147483648 +X 48")},
      {"wide.hdr", replaced(hdr, "-Y 20 +X 48", "-Y 20000 +X 60000")},  // more than the file holds
      {"run-past-the-line.hdr", longRun},
      {"xyze.hdr", replaced(hdr, "FORMAT=32-bit_rle_rgbe", "FORMAT=32-bit_rle_xyze")},
      {"sideways.hdr", replaced(hdr, "-Y 20 +X 48", "+X 48 -Y 20")},
  };
  for (const Case& c : cases) {
    vt::writeFile(d.path(c.name), c.bytes);
    EXPECT_NE(readHdr(d.path(c.name)).status, 0) << c.name;
    std::string out;
    EXPECT_EQ(vt::vimg("hdr info " + d.path(c.name), &out), 1) << c.name << ": " << out;
    EXPECT_EQ(out.find("vimg: " + d.path(c.name) + ": "), 0u) << out;
  }
}

// Half samples through a table give the bytes the float picture gives through the curve.
TEST(HdrReaders, HalfSamplesExposedThroughATable) {
  vt::TempDir d;
  for (const char* make : {"--pattern noise:type=uniform:min=-1:max=30 37x19 4 -d half",
                           "--pattern noise:type=uniform:min=0:max=3 37x19 3 -d half",
                           "--pattern noise:type=uniform:min=0:max=9 21x5 1 --chnames Y -d half",
                           "--pattern noise:type=uniform:min=0:max=9 21x5 4 -d float"}) {
    ASSERT_EQ(vt::run("oiiotool " + std::string(make) + " -o '" + d.path("n.exr") + "'"), 0);
    for (auto [exposure, gamma] : {std::pair<float, float>{-2, 2.2f}, {1, 1}}) {
      registerStandardHdrReaders();
      std::unique_ptr<ThdrImageFile> f(ThdrTranslationManager::instance().createAndOpen(d.path("n.exr")));
      ASSERT_NE(f, nullptr);
      TpixelMap fast, slow;
      ASSERT_EQ(readExposedGamma(f.get(), fast, exposure, gamma), 0) << make;
      Read r = readHdr(d.path("n.exr"));
      ASSERT_EQ(hdrExposeGamma(r.map, slow, exposure, gamma), 0);
      ASSERT_EQ(fast.width() * 100 + fast.height(), slow.width() * 100 + slow.height());
      EXPECT_EQ(memcmp(fast.pixels(), slow.pixels(), size_t(fast.width()) * fast.height() * 4), 0) << make << " " << exposure;
    }
  }
}

TEST(VimgHdr, InfoAndExposeThroughEachOperator) {
  vt::TempDir d;
  ASSERT_EQ(vt::run("cd '" + d.dir() + "' && oiiotool --pattern fill:top=0,0,0,1:bottom=16,8,2,0.5 40x20 4 -d half -o r.exr"), 0);
  std::string out;
  ASSERT_EQ(vt::vimg("hdr info --json " + d.path("r.exr"), &out), 0) << out;
  EXPECT_NE(out.find("\"width\":40,\"height\":20,\"channels\":4,\"type\":\"half\",\"tiled\":false,\"data_window\":[0,0,40,20]"),
            std::string::npos) << out;
  EXPECT_NE(out.find("{\"channel\":\"A\",\"min\":0.5,\"max\":1,"), std::string::npos) << out;
  for (std::string args : {"--mode film --exposure 1 --defog 0.01 --knee-low 0.5", "--mode tonemap --grey 0.18",
                                  "--mode linear --exposure -4 --gamma 2.2 --size 20x10"}) {
    ASSERT_EQ(vt::vimg("hdr expose " + d.path("r.exr") + " " + d.path("o.png") + " " + args, &out), 0) << args << out;
    ASSERT_EQ(vt::run("identify -format '%w %h' '" + d.path("o.png") + "'", &out), 0);
    EXPECT_EQ(out, args.find("--size") != std::string::npos ? "20 10" : "40 20") << args;
  }
  // The film default against the operator run here on the library's own reading.
  ASSERT_EQ(vt::vimg("hdr expose " + d.path("r.exr") + " " + d.path("f.ppm"), &out), 0) << out;
  Read r = readHdr(d.path("r.exr"));
  TpixelMap px;
  ASSERT_EQ(ThdrOpenEXR().convert(r.map, px), 0);
  Bytes ppm = vt::readFile(d.path("f.ppm"));
  const size_t body = ppm.size() - 40 * 20 * 3;
  const Tpixel32 top = px.pixel(0, 19);  // top left, rows bottom first
  EXPECT_EQ((Bytes{ppm[body], ppm[body + 1], ppm[body + 2]}), (Bytes{top.r, top.g, top.b}));
  EXPECT_EQ(vt::vimg("hdr expose " + d.path("r.exr") + " " + d.path("x.png") + " --mode sepia", &out), 2);
  EXPECT_EQ(vt::vimg("hdr info " + d.path("missing.exr"), &out), 1);
  EXPECT_NE(out.find("No such file or directory"), std::string::npos) << out;
}
