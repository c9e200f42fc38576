// Native image handle and header: written and read back byte for byte, setters and their codes,
// several images per file, and malformed headers.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>
#include <vora/ilib.h>

#include <cstring>
#include <fstream>
#include <string>

#include "foundation/status.h"
#include "support/test_support.h"

using vt::Bytes;

namespace {

std::string expectedAuthor() {
  char host[256] = {};
  passwd* pw = getpwuid(getuid());
  if (!pw || gethostname(host, sizeof host) != 0 || !*host) return "Unknown";
  return std::string(pw->pw_name) + " on " + host;
}

// Writes a header-only image and returns the file's bytes.
Bytes writeHeader(const vt::TempDir& d, int w, int h, int bytes, float dpi) {
  std::string p = d.path("h.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  EXPECT_EQ(ILsetsize(img, w, h) | ILsetbpp(img, bytes) | ILsetresolution(img, dpi), 0);
  EXPECT_EQ(ILputheader(img), 0);
  EXPECT_EQ(ILclose(img), 0);
  return vt::readFile(p);
}

size_t find(const Bytes& b, const char* id) {
  for (size_t i = 0; i + 4 <= b.size(); ++i)
    if (memcmp(b.data() + i, id, 4) == 0) return i;
  return std::string::npos;
}

Bytes image(uint32_t w, uint32_t h, const Bytes& more = {}) {
  return vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(w, h, 3, 0, 1, 1)), more}));
}

// flerrno, checked to be the code of the status the failing call kept.
int failure() {
  EXPECT_EQ(vora::lastStatus().code(), flerrno);
  return flerrno;
}

// Opens bytes written to a file and reads the header; flerrno on failure, 0 otherwise.
int headerResult(const Bytes& b) {
  vt::TempDir d;
  vt::writeFile(d.path("h.iff"), b);
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");  // no conversion program
  vt::ScopedEnv icvt("ILICVT", nullptr);
  ILinfilter(nullptr);
  ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
  if (!img) return failure();
  int r = ILgetheader(img) ? 0 : failure();
  ILclose(img);
  return r;
}

// Loads the whole image of bytes written to a file: ILload's code, or the open's code negated.
int loadResult(const Bytes& file, Bytes* out) {
  vt::TempDir d;
  vt::writeFile(d.path("h.iff"), file);
  ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
  if (!img) return -flerrno;
  int w = 0, h = 0, r = ILgetsize(img, &w, &h);
  out->assign(size_t(w) * h * 4, 0xAB);
  if (!r) r = ILload(img, out->data(), nullptr);
  ILclose(img);
  return r;
}

}  // namespace

// FVER 0x00010001, the 32-byte TBHD with 1 at offset 16 for 16-bit, "DPI " "300.000000", AUTH
// and a 24-character DATE, in that order.
TEST(IlHeader, WrittenByteForByte) {
  vt::TempDir d;
  Bytes f = writeHeader(d, 5000, 100, 2, 300.0f);
  Bytes fver, fields, auth;
  vt::be32(fver, 0x00010001);
  uint32_t dpiTag = FL_ID('D', 'P', 'I', ' ');
  const uint8_t* t = reinterpret_cast<const uint8_t*>(&dpiTag);  // machine order, not swapped
  fields.insert(fields.end(), t, t + 4);
  vt::be32(fields, 10);
  vt::text(fields, "300.000000");
  fields.insert(fields.end(), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0});  // pad 2, then tag 0, count 0
  vt::text(auth, expectedAuthor());
  Bytes body = vt::cat({vt::chunk("FVER", fver), vt::chunk("TBHD", vt::tbhd(5000, 100, 3, 1, 40, IL_RLE)),
                        vt::chunk("FLDS", fields), vt::chunk("AUTH", auth)});
  Bytes expect = vt::group("FOR4", "CIMG", body);
  ASSERT_EQ(f.size(), expect.size() + 8 + 24);
  vt::setBe32(expect, 4, uint32_t(f.size() - 8));
  EXPECT_EQ(vt::hex(Bytes(f.begin(), f.begin() + long(expect.size()))), vt::hex(expect));
  std::string date(f.begin() + long(expect.size()), f.end());
  EXPECT_EQ(date.substr(0, 8), std::string("DATE\0\0\0\x18", 8));
  EXPECT_EQ(date.find('\n'), std::string::npos);
  EXPECT_EQ(date[8 + 3], ' ');  // "Www Mmm dd hh:mm:ss yyyy"
  EXPECT_EQ(date[8 + 13], ':');
  ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_EQ(ILgetbpp(img), 2);  // the file holds bytes - 1
  EXPECT_EQ(ILgetversion(img), 0x00010001u);
  EXPECT_FLOAT_EQ(ILgetresolution(img), 300.0f);
  ILclose(img);
  // 72 dpi (and below 1) writes no field; a file without FVER (OpenImageIO's) is 0x00010000.
  EXPECT_EQ(find(writeHeader(d, 4, 4, 1, 72.0f), "FLDS"), std::string::npos);
  EXPECT_EQ(find(writeHeader(d, 4, 4, 1, 0.5f), "FLDS"), std::string::npos);
  ILimage* oiio = ILopen(VORA_TEST_DATA "/iff/rgb8_40x30_rle.iff", "r");
  ASSERT_NE(ILgetheader(oiio), nullptr);
  EXPECT_EQ(ILgetversion(oiio), 0x00010000u);
  ILclose(oiio);
}

TEST(IlHeader, DefaultTilingByImageSize) {
  struct Row {
    int w, h, tw, th, tiles;
  } rows[] = {
      {100, 70, 64, 64, 4},         {4096, 4096, 64, 64, 4096},  {1, 1, 64, 64, 1},
      {100, 5000, 512, 128, 40},    {4096, 4097, 512, 128, 264}, {5000, 100, 256, 64, 40},
      {4097, 64, 256, 64, 17},      {8192, 10000, 256, 64, 5024}, {10000, 100, 1024, 32, 40},
      {16384, 32, 1024, 32, 16},    {20000, 100, 2048, 32, 40},  {32768, 32768, 2048, 32, 16384},
  };
  vt::TempDir d;
  for (const Row& r : rows) {
    ILimage* img = ILopen(d.path("t.iff").c_str(), "w");
    ASSERT_EQ(ILsetsize(img, r.w, r.h) | ILputheader(img), 0);
    int tw, th;
    ILgettilesize(img, &tw, &th);
    EXPECT_EQ(std::to_string(tw) + "x" + std::to_string(th) + " " + std::to_string(ILgetpages(img)),
              std::to_string(r.tw) + "x" + std::to_string(r.th) + " " + std::to_string(r.tiles))
        << r.w << "x" << r.h;
    ILclose(img);
    Bytes f = vt::readFile(d.path("t.iff"));
    size_t tb = find(f, "TBHD");
    EXPECT_EQ((f[tb + 8 + 18] << 8) | f[tb + 8 + 19], r.tiles) << r.w << "x" << r.h;
  }
  // The caller's tiling: the tile width raised to 16 and the height lowered to the image's.
  ILimage* img = ILopen(d.path("p.iff").c_str(), "w");
  ASSERT_EQ(ILsetsize(img, 100, 10) | ILsetpagesize(img, 4, 200), 0);
  int tw, th;
  ILgettilesize(img, &tw, &th);
  EXPECT_EQ(tw * 1000 + th, 16010);
  EXPECT_EQ(ILgetpages(img), 7);
  ASSERT_EQ(ILsetpages(img, 99) | ILputheader(img), 0);
  EXPECT_EQ(ILgetpages(img), 99);  // kept
  ILclose(img);
}

TEST(IlHeader, SettersStoreReadBackAndFailAfterTheHeader) {
  vt::TempDir d;
  std::string p = d.path("s.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  EXPECT_EQ(ILsetsize(img, 0, 10), 106);
  EXPECT_EQ(ILsetsize(img, 40000, 10), 106);
  EXPECT_EQ(ILsetsize(img, 10, 32769), 106);
  EXPECT_EQ(ILsetpagesize(img, 32769, 16), 106);
  ASSERT_EQ(ILsetsize(img, 640, 480) | ILsetorigin(img, 12, 34) | ILsettype(img, IL_COLOR | IL_ZBUFFER), 0);
  ASSERT_EQ(ILsetratio(img, 4, 0) | ILsetratio(img, 0, 3), 0);  // zero leaves that half unchanged
  ASSERT_EQ(ILsetbpp(img, 3), 0);                                 // ignored
  EXPECT_EQ(ILgetbpp(img), 1);
  ASSERT_EQ(ILsetbpp(img, 2) | ILsetcompress(img, 77), 0);  // stored unchecked
  ASSERT_EQ(ILputheader(img), 0);
  EXPECT_EQ(ILputheader(img), 0);  // already done: nothing
  int codes[] = {ILsetsize(img, 10, 10), ILsetorigin(img, 1, 1), ILsettype(img, 1), ILsetratio(img, 2, 1),
                 ILsetbpp(img, 2), ILsetcompress(img, 0), ILsetpagesize(img, 32, 32), ILsetpages(img, 3),
                 ILsetfield(img, 0x41414141, 1, "x"), ILsetresolution(img, 100.0f)};
  for (int c : codes) EXPECT_EQ(c, 103);
  EXPECT_EQ(ILsetlookups(img, nullptr), 0);  // never fails
  ILclose(img);
  img = ILopen(p.c_str(), "r");
  const ILheader* h = ILgetheader(img);
  ASSERT_NE(h, nullptr);
  char got[128];
  snprintf(got, sizeof got, "%ux%u org %u,%u type %u aspect %d/%d bytes %d compress %u", h->width, h->height,
           h->orgx, h->orgy, h->type, h->aspnum, h->aspden, h->bytes, h->compress);
  EXPECT_STREQ(got, "640x480 org 12,34 type 5 aspect 4/3 bytes 2 compress 77");
  EXPECT_EQ(ILgetstate(img), uint32_t(IL_ST_READ | IL_ST_HEADER));
  EXPECT_EQ(ILsettype(img, 1), 103);
  ILclose(img);
}

// Bytes a line takes in transfer: four elements, or only the present ones when packed; matte-only
// types come only from files (a TBHD of type 16 | 2, 16-bit samples, read at 8 bits until asked).
TEST(IlHeader, TransferLayouts) {
  vt::TempDir d;
  const int cases[][3] = {{3, 0, 4}, {0, 0, 4}, {3, 1, 4}, {1, 1, 3}, {2, 1, 2}, {0, 1, 1}};  // type, packed, bytes
  for (const auto& c : cases) {
    ILimage* img = ILopen(d.path("i.iff").c_str(), "w");
    ILsetsize(img, 10, 2), ILsettype(img, c[0]), ILsetbpp(img, 2);
    if (c[1]) ILctrl(img, IL_ST_PACKED, 1);
    EXPECT_EQ(ILinitio(img), 10 * c[2] * 2) << c[0] << c[1];
    ILclose(img);
  }
  vt::writeFile(d.path("m.iff"), vt::group("FOR4", "CIMG", vt::chunk("TBHD", vt::tbhd(10, 2, 18, 1, 1, 0))));
  ILimage* img = ILopen(d.path("m.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_EQ(ILinitio(img), 10 * 4);
  ASSERT_EQ(ILsetbpp(img, 2), 0);
  ILctrl(img, IL_ST_PACKED, 1);
  EXPECT_EQ(ILinitio(img), 10 * 1 * 2);
  ILclose(img);
}

// Field tags carry their element width (swapped by it) and bit 0x10 (copied by ILcopyfields).
TEST(IlHeader, FieldsSwapByTagWidthAndCopyByBit0x10) {
  vt::TempDir d;
  std::string p = d.path("f.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  const uint16_t shorts[2] = {0x0102, 0x0304};
  const uint32_t words[1] = {0x0A0B0C0D};
  const uint64_t longs[1] = {0x1122334455667788ull};
  const uint32_t tag16 = FL_ID('S', 'H', 'T', 0x12), tag32 = FL_ID('W', 'R', 'D', 0x04);
  const uint32_t tag64 = FL_ID('L', 'N', 'G', 0x18), tagRaw = FL_ID('R', 'A', 'W', 0x13);
  ASSERT_EQ(ILsetfield(img, tag16, 4, shorts) | ILsetfield(img, tag32, 4, words) | ILsetfield(img, tag64, 8, longs),
            0);
  ASSERT_EQ(ILsetfield(img, tagRaw, 3, "abc") | ILsetfield(img, tagRaw, 2, "xy"), 0);  // replaced
  ASSERT_EQ(ILsetfield(img, 0x55555555, 2, "zz") | ILsetfield(img, 0x55555555, 0, "zz"), 0);  // deleted
  ASSERT_EQ(ILputheader(img), 0);
  ILclose(img);
  auto tagBytes = [](uint32_t t) { return Bytes(reinterpret_cast<const uint8_t*>(&t), reinterpret_cast<const uint8_t*>(&t) + 4); };
  Bytes body = vt::cat({tagBytes(tag16), {0, 0, 0, 4, 1, 2, 3, 4}, tagBytes(tag32), {0, 0, 0, 4, 0x0A, 0x0B, 0x0C, 0x0D},
                        tagBytes(tag64), {0, 0, 0, 8, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
                        tagBytes(tagRaw), {0, 0, 0, 2, 'x', 'y', 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0}});
  Bytes f = vt::readFile(p);
  size_t fl = find(f, "FLDS");
  ASSERT_NE(fl, std::string::npos);
  EXPECT_EQ(vt::hex(Bytes(f.begin() + long(fl), f.begin() + long(fl + 8 + body.size()))), vt::hex(vt::chunk("FLDS", body)));
  img = ILopen(p.c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  const void* data;
  ASSERT_EQ(ILgetfield(img, tag64, &data), 8);
  EXPECT_EQ(memcmp(data, longs, 8), 0);
  EXPECT_EQ(ILgetfield(img, 0x55555555, &data), 0);
  ILimage* to = ILopen(d.path("to.iff").c_str(), "w");
  ASSERT_EQ(ILcopyfields(to, img), 0);
  EXPECT_EQ(std::to_string(ILgetfield(to, tag16, nullptr)) + std::to_string(ILgetfield(to, tag64, nullptr)) +
                std::to_string(ILgetfield(to, tagRaw, nullptr)) + std::to_string(ILgetfield(to, tag32, nullptr)),
            "4820");
  ASSERT_EQ(ILputheader(to), 0);
  EXPECT_EQ(ILcopyfields(to, img), 103);
  ILclose(to);
  ILclose(img);
}

TEST(IlHeader, SeveralImagesWithNextAndInsideACatGroup) {
  vt::TempDir d;
  std::string p = d.path("multi.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  for (int i = 0; i < 3; ++i) {
    if (i) {
      ASSERT_EQ(ILnext(img), 0);
    }
    ASSERT_EQ(ILsetsize(img, 10 + i, 20 + i) | ILputheader(img), 0);
  }
  ASSERT_EQ(ILclose(img), 0);
  vt::writeFile(d.path("cat.iff"), vt::group("CAT4", "CIMG", vt::cat({image(10, 20), image(11, 21)})));
  for (const char* name : {"multi.iff", "cat.iff"}) {
    img = ILopen(d.path(name).c_str(), "r");
    ASSERT_NE(img, nullptr);
    std::string sizes;
    do {
      int w, h;
      ASSERT_EQ(ILgetsize(img, &w, &h), 0);
      sizes += std::to_string(w) + "x" + std::to_string(h) + " ";
    } while (ILnext(img) == 0);
    EXPECT_EQ(flerrno, 100);  // no further image
    EXPECT_EQ(sizes, std::string(name) == "cat.iff" ? "10x20 11x21 " : "10x20 11x21 12x22 ") << name;
    ILclose(img);
  }
}

TEST(IlHeader, ChunksAroundTheHeaderOlderTbhdAndTheSearchPath) {
  vt::TempDir d;
  vt::writeFile(d.path("x.iff"), vt::group("FOR4", "CIMG", vt::cat({vt::chunk("XTRA", {1, 2, 3}),
                                                                    vt::chunk("TBHD", vt::tbhd(7, 3, 3, 0, 1, 1)),
                                                                    vt::chunk("AUTH", {'m', 'e'})})));
  ILimage* img = ILopen(d.path("x.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  const char* t;
  EXPECT_EQ(ILgetchunktext(img, FL_ID('A', 'U', 'T', 'H'), &t), 2);
  EXPECT_EQ(std::string(t, 2), "me");
  ILclose(img);
  Bytes old = vt::tbhd(9, 4, 3, 0, 1, 1);
  old.resize(24);  // older writers: no origin
  EXPECT_EQ(headerResult(vt::group("FOR4", "CIMG", vt::chunk("TBHD", old))), 0);
  vt::run("mkdir -p '" + d.path("image") + "' '" + d.path("tex") + "'");
  vt::writeFile(d.path("tex/t.iff"), image(3, 3));
  vt::ScopedEnv loc("VORA_LOCATION", d.dir().c_str());
  EXPECT_EQ(std::string(ILgetpath()), ".;" + d.dir() + "/image;" + d.dir() + "/tex");
  img = ILopen("t.iff", "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 3u);
  ILclose(img);
}

TEST(IlHeader, RangeInTheExtension) {
  vt::TempDir d;
  vt::writeFile(d.path("f.1,5"), {1});
  struct Case {
    std::string name;
    int result;
    double start, end, step;
  } cases[] = {{"shot.iff.1,100,2", 1, 1, 100, 2}, {"a.5,0", 1, 5, 1e10, 1}, {"a.5,", 1, 5, 1e10, 1},
               {"a.10,5", 1, 10, 10, 1},           {"a.iff", -1, 0, 0, 0},  {"noextension", -1, 0, 0, 0},
               {"host:a.1,5", 0, 0, 0, 0},         {"mmap:a.1,5", 1, 1, 5, 1}, {d.path("f.1,5"), 0, 0, 0, 0}};
  for (const Case& c : cases) {
    double r[3] = {};
    char real[256] = {};
    ASSERT_EQ(ILrange(c.name.c_str(), r, real, 0), c.result) << c.name;
    if (c.result == 1) {
      EXPECT_EQ(std::vector<double>(r, r + 3), (std::vector<double>{c.start, c.end, c.step})) << c.name;
    }
  }
  char real[256];
  double r[3];
  ILrange("mmap:shot.iff.1,5", r, real, 0);
  EXPECT_STREQ(real, "shot.iff");
}

// Every file of tests/data/iff/bad gives its code when its header is read or its pixels loaded
// (expected.tsv); truncations and flipped bytes end in a code too, never a crash or a hang.
TEST(IlMalformed, EveryDamageGivesItsCode) {
  std::ifstream list(VORA_TEST_DATA "/iff/bad/expected.tsv");
  std::string file, call, what;
  int code, files = 0;
  while (list >> file >> call >> code && std::getline(list >> std::ws, what)) {
    Bytes b = vt::readFile(VORA_TEST_DATA "/iff/bad/" + file), px;
    EXPECT_EQ(call == "header" ? headerResult(b) : loadResult(b, &px), code) << file << ": " << what;
    if (file == "left-half-only.iff") {
      EXPECT_EQ(px[0] * 1000 + px[8 * 4], 0x11 * 1000);
    }
    ++files;
  }
  EXPECT_EQ(files, 35);
  for (size_t size : {0u, 4u, 20u, 23u, 25u, 31u, 33u, 40u, 1000u}) {
    Bytes tb = vt::tbhd(8, 8, 3, 0, 1, 1);
    tb.resize(size, 0xAB);
    EXPECT_EQ(headerResult(vt::group("FOR4", "CIMG", vt::chunk("TBHD", tb))), 105) << "TBHD of " << size;
  }
  // Shorter than a group header is not IFF (conversion, 111); a group past the end is damaged (101).
  const Bytes good = image(8, 8);
  for (size_t n = 1; n < good.size(); ++n)
    EXPECT_EQ(headerResult(Bytes(good.begin(), good.begin() + long(n))), n < 8 ? 111 : 101) << n;
  uint32_t x = 12345;
  for (int round = 0; round < 200; ++round) {
    Bytes b = good;
    for (int k = 0; k < 3; ++k) x = x * 1103515245u + 12345u, b[(x >> 8) % b.size()] = uint8_t(x >> 20);
    int r = headerResult(b);
    EXPECT_TRUE(r == 0 || r == 100 || r == 101 || r == 104 || r == 105 || r == 111) << r;
  }
}
