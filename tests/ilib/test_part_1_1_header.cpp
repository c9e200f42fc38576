// Part 1.1: image handle and header, written and read back byte for byte.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>
#include <vora/ilib.h>

#include <cstring>
#include <string>

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
  EXPECT_NE(img, nullptr);
  EXPECT_EQ(ILsetsize(img, w, h), 0);
  EXPECT_EQ(ILsetbpp(img, bytes), 0);
  EXPECT_EQ(ILsetresolution(img, dpi), 0);
  EXPECT_EQ(ILputheader(img), 0);
  EXPECT_EQ(ILclose(img), 0);
  return vt::readFile(p);
}

size_t find(const Bytes& b, const char* id) {
  for (size_t i = 0; i + 4 <= b.size(); ++i)
    if (memcmp(b.data() + i, id, 4) == 0) return i;
  return std::string::npos;
}

}  // namespace

// Must show: a header written here and read back byte for byte: FVER 0x00010001, the 32-byte TBHD
// with 1 at offset 16 for 16-bit, the "DPI " field with "300.000000", the chunk order.
TEST(Part1_1, HeaderWrittenByteForByte) {
  vt::TempDir d;
  Bytes f = writeHeader(d, 5000, 100, 2, 300.0f);
  std::string auth = expectedAuthor();
  Bytes expect;
  vt::text(expect, "FOR4");
  vt::be32(expect, 0);  // patched below
  vt::text(expect, "CIMG");
  Bytes fver;
  vt::be32(fver, 0x00010001);
  Bytes fields;
  uint32_t dpiTag = FL_ID('D', 'P', 'I', ' ');
  const uint8_t* t = reinterpret_cast<const uint8_t*>(&dpiTag);  // machine order, not swapped
  fields.insert(fields.end(), t, t + 4);
  vt::be32(fields, 10);
  vt::text(fields, "300.000000");
  fields.insert(fields.end(), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0});  // pad 2, then tag 0, count 0
  Bytes authData;
  vt::text(authData, auth);
  expect = vt::cat({expect, vt::chunk("FVER", fver),
                    vt::chunk("TBHD", vt::tbhd(5000, 100, 3, 1, 40, IL_RLE)),
                    vt::chunk("FLDS", fields), vt::chunk("AUTH", authData)});
  ASSERT_GE(f.size(), expect.size() + 32);
  uint32_t groupSize = uint32_t(f.size() - 8);
  expect[4] = uint8_t(groupSize >> 24), expect[5] = uint8_t(groupSize >> 16);
  expect[6] = uint8_t(groupSize >> 8), expect[7] = uint8_t(groupSize);
  EXPECT_EQ(vt::hex(Bytes(f.begin(), f.begin() + long(expect.size()))), vt::hex(expect));
  // DATE: 24 characters of ctime, without the newline, and nothing after it.
  size_t date = expect.size();
  ASSERT_EQ(f.size(), date + 8 + 24);
  EXPECT_EQ(std::string(f.begin() + long(date), f.begin() + long(date) + 8),
            std::string("DATE\0\0\0\x18", 8));
  std::string text(f.begin() + long(date) + 8, f.end());
  EXPECT_EQ(text.size(), 24u);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_EQ(text[3], ' ');   // "Www Mmm dd hh:mm:ss yyyy"
  EXPECT_EQ(text[13], ':');
}

// Edge case: 16-bit images store 1 at header offset 16; 8-bit images store 0.
TEST(Part1_1_EdgeCases, SixteenBitStoresOneAtOffset16EightBitZero) {
  vt::TempDir d;
  for (int bytes : {1, 2}) {
    Bytes f = writeHeader(d, 10, 10, bytes, 72.0f);
    size_t tb = find(f, "TBHD");
    ASSERT_NE(tb, std::string::npos);
    EXPECT_EQ(f[tb + 8 + 16], 0);
    EXPECT_EQ(f[tb + 8 + 17], bytes - 1) << bytes;
    ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(ILgetbpp(img), bytes);  // the handle holds the value plus one
    ILclose(img);
  }
}

// Edge case: a file without FVER reports version 0x00010000; one written here carries 0x00010001.
TEST(Part1_1_EdgeCases, VersionWithoutFverAndWrittenHere) {
  ILimage* oiio = ILopen(VORA_TEST_DATA "/iff/rgb8_40x30_rle.iff", "r");  // OpenImageIO: no FVER
  ASSERT_NE(oiio, nullptr);
  ASSERT_NE(ILgetheader(oiio), nullptr);
  EXPECT_EQ(ILgetversion(oiio), 0x00010000u);
  ILclose(oiio);
  vt::TempDir d;
  writeHeader(d, 8, 8, 1, 72.0f);
  ILimage* ours = ILopen(d.path("h.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(ours), nullptr);
  EXPECT_EQ(ILgetversion(ours), 0x00010001u);
  ILclose(ours);
}

// Edge case: a 5000 x 100 image written with default tiling gets 256 x 64 tiles and 40 tiles.
// Must show: the tile table of ILputheader for every row of its table.
TEST(Part1_1_EdgeCases, DefaultTilingEveryRowOfTheTable) {
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
    std::string p = d.path("t.iff");
    ILimage* img = ILopen(p.c_str(), "w");
    ASSERT_EQ(ILsetsize(img, r.w, r.h), 0);
    ASSERT_EQ(ILputheader(img), 0);
    int tw, th;
    ILgettilesize(img, &tw, &th);
    EXPECT_EQ(tw, r.tw) << r.w << "x" << r.h;
    EXPECT_EQ(th, r.th) << r.w << "x" << r.h;
    EXPECT_EQ(ILgetpages(img), r.tiles) << r.w << "x" << r.h;
    ILclose(img);
    Bytes f = vt::readFile(p);
    size_t tb = find(f, "TBHD");
    EXPECT_EQ((f[tb + 8 + 18] << 8) | f[tb + 8 + 19], r.tiles) << r.w << "x" << r.h;
  }
}

// Edge case: ILsettype(17) stores 0 for colour: 16 keeps only alpha and depth bits.
TEST(Part1_1_EdgeCases, SettypeMatteDropsColour) {
  vt::TempDir d;
  ILimage* img = ILopen(d.path("a.iff").c_str(), "w");
  ASSERT_EQ(ILsettype(img, 17), 0);
  EXPECT_EQ(ILgettype(img), 0);
  ASSERT_EQ(ILsettype(img, 16 | 4 | 2 | 1), 0);
  EXPECT_EQ(ILgettype(img), 6);
  ASSERT_EQ(ILsettype(img, 0xFF & ~16), 0);
  EXPECT_EQ(ILgettype(img), 15);  // masked to 15
  ILclose(img);
}

// Edge case: ILsetsize(0, 10) and ILsetsize(40000, 10) give 106; after ILputheader any setter
// gives 103.
TEST(Part1_1_EdgeCases, SetsizeRangeAndSettersAfterHeader) {
  vt::TempDir d;
  ILimage* img = ILopen(d.path("a.iff").c_str(), "w");
  EXPECT_EQ(ILsetsize(img, 0, 10), 106);
  EXPECT_EQ(flerrno, 106);
  EXPECT_EQ(ILsetsize(img, 40000, 10), 106);
  EXPECT_EQ(ILsetsize(img, 10, 32769), 106);
  EXPECT_EQ(ILsetsize(img, 32768, 1), 0);
  EXPECT_EQ(ILsetpagesize(img, 32769, 16), 106);
  ASSERT_EQ(ILputheader(img), 0);
  EXPECT_EQ(ILputheader(img), 0);  // already done: nothing
  EXPECT_EQ(ILsetsize(img, 10, 10), 103);
  EXPECT_EQ(ILsetorigin(img, 1, 1), 103);
  EXPECT_EQ(ILsettype(img, 1), 103);
  EXPECT_EQ(ILsetratio(img, 2, 1), 103);
  EXPECT_EQ(ILsetbpp(img, 2), 103);
  EXPECT_EQ(ILsetcompress(img, 0), 103);
  EXPECT_EQ(ILsetpagesize(img, 32, 32), 103);
  EXPECT_EQ(ILsetpages(img, 3), 103);
  EXPECT_EQ(ILsetfield(img, 0x41414141, 1, "x"), 103);
  EXPECT_EQ(ILsetresolution(img, 100.0f), 103);
  EXPECT_EQ(flerrno, 103);
  EXPECT_EQ(ILsetlookups(img, nullptr), 0);  // never fails
  ILclose(img);
}

// Edge case: resolution 72 writes no "DPI " field; 300 writes the ten bytes 300.000000.
TEST(Part1_1_EdgeCases, Resolution72NoFieldAnd300TenBytes) {
  vt::TempDir d;
  Bytes at72 = writeHeader(d, 4, 4, 1, 72.0f);
  EXPECT_EQ(find(at72, "FLDS"), std::string::npos);
  Bytes below1 = writeHeader(d, 4, 4, 1, 0.5f);
  EXPECT_EQ(find(below1, "FLDS"), std::string::npos);
  Bytes at300 = writeHeader(d, 4, 4, 1, 300.0f);
  size_t fl = find(at300, "FLDS");
  ASSERT_NE(fl, std::string::npos);
  EXPECT_EQ(std::string(at300.begin() + long(fl) + 16, at300.begin() + long(fl) + 26),
            "300.000000");
  ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_FLOAT_EQ(ILgetresolution(img), 300.0f);
  const void* data;
  EXPECT_EQ(ILgetfield(img, FL_ID('D', 'P', 'I', ' '), &data), 10);
  EXPECT_EQ(memcmp(data, "300.000000", 10), 0);
  ILclose(img);
}

TEST(Part1_1, DefaultsOfAWriteHandle) {
  vt::TempDir d;
  ILimage* img = ILopen(d.path("a.iff").c_str(), "w");
  ASSERT_NE(img, nullptr);
  int w, h, n, dd, x, y;
  EXPECT_EQ(ILgetsize(img, &w, &h), 0);
  EXPECT_EQ(w, 384);
  EXPECT_EQ(h, 288);
  EXPECT_EQ(ILgetratio(img, &n, &dd), 0);
  EXPECT_EQ(n, 1);
  EXPECT_EQ(dd, 1);
  EXPECT_EQ(ILgetorigin(img, &x, &y), 0);
  EXPECT_EQ(x + y, 0);
  EXPECT_EQ(ILgettype(img), 3);
  EXPECT_EQ(ILgetbpp(img), 1);
  EXPECT_EQ(ILgetpages(img), 0);
  EXPECT_EQ(ILgetcompress(img), IL_RLE);
  EXPECT_EQ(ILgetversion(img), 0x00010001u);
  EXPECT_FLOAT_EQ(ILgetresolution(img), 72.0f);
  EXPECT_EQ(ILgetstate(img) & IL_ST_READ, 0u);
  EXPECT_EQ(ILgetsize(img, nullptr, nullptr), 0);  // null pointers for parts not wanted
  ILclose(img);
}

TEST(Part1_1, SettersStoreAndReadBack) {
  vt::TempDir d;
  std::string p = d.path("s.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  ASSERT_EQ(ILsetsize(img, 640, 480), 0);
  ASSERT_EQ(ILsetorigin(img, 12, 34), 0);
  ASSERT_EQ(ILsettype(img, IL_COLOR | IL_ZBUFFER), 0);
  ASSERT_EQ(ILsetratio(img, 4, 0), 0);  // zero leaves that half unchanged
  ASSERT_EQ(ILsetratio(img, 0, 3), 0);
  ASSERT_EQ(ILsetbpp(img, 3), 0);  // ignored
  EXPECT_EQ(ILgetbpp(img), 1);
  ASSERT_EQ(ILsetbpp(img, 2), 0);
  ASSERT_EQ(ILsetcompress(img, 77), 0);  // stored unchecked
  ASSERT_EQ(ILputheader(img), 0);
  ILclose(img);
  img = ILopen(p.c_str(), "r");
  ASSERT_NE(img, nullptr);
  const ILheader* h = ILgetheader(img);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->width, 640u);
  EXPECT_EQ(h->height, 480u);
  EXPECT_EQ(h->orgx, 12u);
  EXPECT_EQ(h->orgy, 34u);
  EXPECT_EQ(h->type, 5u);
  EXPECT_EQ(h->aspnum, 4);
  EXPECT_EQ(h->aspden, 3);
  EXPECT_EQ(h->bytes, 2);
  EXPECT_EQ(h->compress, 77u);
  EXPECT_EQ(ILgetstate(img), uint32_t(IL_ST_READ | IL_ST_HEADER));
  EXPECT_EQ(ILsettype(img, 1), 103);  // read handle, header done
  ILclose(img);
}

TEST(Part1_1, SetpagesizeClampsAndKeepsCallersTiling) {
  vt::TempDir d;
  ILimage* img = ILopen(d.path("p.iff").c_str(), "w");
  ASSERT_EQ(ILsetsize(img, 100, 10), 0);
  ASSERT_EQ(ILsetpagesize(img, 4, 200), 0);  // raised to 16, lowered to the height 10
  int tw, th;
  ILgettilesize(img, &tw, &th);
  EXPECT_EQ(tw, 16);
  EXPECT_EQ(th, 10);
  EXPECT_EQ(ILgetpages(img), 7);  // ceil(100 / 16) * ceil(10 / 10)
  EXPECT_TRUE(ILgetstate(img) & IL_ST_TILING);
  ASSERT_EQ(ILsetpages(img, 99), 0);
  ASSERT_EQ(ILputheader(img), 0);  // the caller's tiling is kept
  EXPECT_EQ(ILgetpages(img), 99);
  ILclose(img);
}

TEST(Part1_1, CtrlChangesOnlyUpperBitsAndConfig) {
  vt::TempDir d;
  ILimage* img = ILopen(d.path("c.iff").c_str(), "w");
  EXPECT_EQ(ILctrl(img, IL_ST_TOPDOWN | IL_ST_HEADER | 0x7, 1), uint32_t(IL_ST_TOPDOWN));
  EXPECT_EQ(ILgetstate(img) & 0xFFFF, 0u);
  EXPECT_TRUE(ILgetstate(img) & IL_ST_TOPDOWN);
  EXPECT_EQ(ILctrl(img, IL_ST_PACKED | IL_ST_LOADALPHA, 1),
            uint32_t(IL_ST_PACKED | IL_ST_LOADALPHA));
  EXPECT_EQ(ILctrl(img, IL_ST_TOPDOWN, 0), uint32_t(IL_ST_TOPDOWN));
  EXPECT_FALSE(ILgetstate(img) & IL_ST_TOPDOWN);
  ILclose(img);
  uint32_t before = ilconfig;
  EXPECT_EQ(ILconfig(4, 1), before | 4);
  EXPECT_EQ(ILconfig(4, 0), before & ~4u);
  ilconfig = before;
}

TEST(Part1_1, InitioLayouts) {
  vt::TempDir d;
  struct Case {
    int type;
    bool packed;
    uint32_t mask, bpp;
  } cases[] = {{3, false, 15, 4}, {1, false, 14, 4}, {2, false, 5, 4}, {0, false, 4, 4},
               {3, true, 15, 4},  {1, true, 7, 3},   {2, true, 3, 2},  {0, true, 1, 1}};
  for (const Case& c : cases) {
    ILimage* img = ILopen(d.path("i.iff").c_str(), "w");
    ILsetsize(img, 10, 2);
    ILsettype(img, c.type);
    ILsetbpp(img, 2);
    if (c.packed) ILctrl(img, IL_ST_PACKED, 1);
    EXPECT_EQ(ILinitio(img), int(10 * c.bpp * 2)) << c.type << c.packed;
    ILclose(img);
  }
  // Matte-only types come only from files: a crafted TBHD with type 16 | 2.
  Bytes f = vt::group("FOR4", "CIMG", vt::chunk("TBHD", vt::tbhd(10, 2, 18, 1, 1, 0)));
  vt::writeFile(d.path("m.iff"), f);
  ILimage* img = ILopen(d.path("m.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_EQ(ILinitio(img), 10 * 4);  // read at 8 bits: stride is bytes per pixel
  EXPECT_EQ(ILsetbpp(img, 2), 0);    // 16-bit file read at 16 bits
  EXPECT_TRUE(ILgetstate(img) & IL_ST_READ16);
  EXPECT_EQ(ILinitio(img), 10 * 4 * 2);
  ILctrl(img, IL_ST_PACKED, 1);
  EXPECT_EQ(ILinitio(img), 10 * 1 * 2);  // mask 0 * 2 + 1: one element
  ILclose(img);
}

TEST(Part1_1, SetbppTwoOnEightBitReadWidens) {
  vt::TempDir d;
  writeHeader(d, 4, 4, 1, 72.0f);
  ILimage* img = ILopen(d.path("h.iff").c_str(), "r");
  ASSERT_EQ(ILsetbpp(img, 2), 0);
  EXPECT_TRUE(ILgetstate(img) & IL_ST_WIDEN);
  EXPECT_EQ(ILgetbpp(img), 2);
  ILclose(img);
}

TEST(Part1_1, FieldsSwapByTagWidthAndCopyByBit0x10) {
  vt::TempDir d;
  std::string p = d.path("f.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  const uint16_t shorts[2] = {0x0102, 0x0304};
  const uint32_t words[1] = {0x0A0B0C0D};
  const uint64_t longs[1] = {0x1122334455667788ull};
  const uint32_t tag16 = FL_ID('S', 'H', 'T', 0x12);  // width 2, copied
  const uint32_t tag32 = FL_ID('W', 'R', 'D', 0x04);  // width 4, not copied
  const uint32_t tag64 = FL_ID('L', 'N', 'G', 0x18);  // width 8, copied
  const uint32_t tagRaw = FL_ID('R', 'A', 'W', 0x13); // raw bytes (3), copied
  ASSERT_EQ(ILsetfield(img, tag16, 4, shorts), 0);
  ASSERT_EQ(ILsetfield(img, tag32, 4, words), 0);
  ASSERT_EQ(ILsetfield(img, tag64, 8, longs), 0);
  ASSERT_EQ(ILsetfield(img, tagRaw, 3, "abc"), 0);
  ASSERT_EQ(ILsetfield(img, tagRaw, 2, "xy"), 0);  // replaces
  ASSERT_EQ(ILsetfield(img, 0x55555555, 2, "zz"), 0);
  ASSERT_EQ(ILsetfield(img, 0x55555555, 0, "zz"), 0);  // zero count only deletes
  ASSERT_EQ(ILputheader(img), 0);
  ILclose(img);
  Bytes f = vt::readFile(p);
  size_t fl = find(f, "FLDS");
  ASSERT_NE(fl, std::string::npos);
  auto tagBytes = [](uint32_t t) {
    const uint8_t* b = reinterpret_cast<const uint8_t*>(&t);
    return Bytes(b, b + 4);
  };
  Bytes body = vt::cat({tagBytes(tag16), {0, 0, 0, 4, 1, 2, 3, 4},
                        tagBytes(tag32), {0, 0, 0, 4, 0x0A, 0x0B, 0x0C, 0x0D},
                        tagBytes(tag64), {0, 0, 0, 8, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
                        tagBytes(tagRaw), {0, 0, 0, 2, 'x', 'y', 0, 0},
                        {0, 0, 0, 0, 0, 0, 0, 0}});
  EXPECT_EQ(vt::hex(Bytes(f.begin() + long(fl), f.begin() + long(fl + 8 + body.size()))),
            vt::hex(vt::chunk("FLDS", body)));
  img = ILopen(p.c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  const void* data;
  ASSERT_EQ(ILgetfield(img, tag16, &data), 4);
  EXPECT_EQ(memcmp(data, shorts, 4), 0);
  ASSERT_EQ(ILgetfield(img, tag64, &data), 8);
  EXPECT_EQ(memcmp(data, longs, 8), 0);
  EXPECT_EQ(ILgetfield(img, 0x55555555, &data), 0);
  EXPECT_STREQ(static_cast<const char*>(data), "");
  // ILcopyfields carries the tags with 0x10 over.
  ILimage* to = ILopen(d.path("to.iff").c_str(), "w");
  ASSERT_EQ(ILcopyfields(to, img), 0);
  EXPECT_EQ(ILgetfield(to, tag16, nullptr), 4);
  EXPECT_EQ(ILgetfield(to, tag64, nullptr), 8);
  EXPECT_EQ(ILgetfield(to, tagRaw, nullptr), 2);
  EXPECT_EQ(ILgetfield(to, tag32, nullptr), 0);
  ASSERT_EQ(ILputheader(to), 0);
  EXPECT_EQ(ILcopyfields(to, img), 103);
  ILclose(to);
  ILclose(img);
}

// Must show: files of several images (ILnext) written and read back.
TEST(Part1_1, SeveralImagesWithNext) {
  vt::TempDir d;
  std::string p = d.path("multi.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  for (int i = 0; i < 3; ++i) {
    if (i) {
      ASSERT_EQ(ILnext(img), 0);
    }
    EXPECT_EQ(ILgetstate(img) & IL_ST_HEADER, 0u);
    ASSERT_EQ(ILsetsize(img, 10 + i, 20 + i), 0);
    ASSERT_EQ(ILsetorigin(img, i, i), 0);
    ASSERT_EQ(ILputheader(img), 0);
  }
  ASSERT_EQ(ILclose(img), 0);
  img = ILopen(p.c_str(), "r");
  ASSERT_NE(img, nullptr);
  for (int i = 0; i < 3; ++i) {
    if (i) {
      ASSERT_EQ(ILnext(img), 0) << i;
    }
    int w, h;
    ASSERT_EQ(ILgetsize(img, &w, &h), 0) << i;
    EXPECT_EQ(w, 10 + i);
    EXPECT_EQ(h, 20 + i);
  }
  EXPECT_EQ(ILnext(img), 100);  // no further image, no group open
  EXPECT_EQ(flerrno, 100);
  ILclose(img);
}

TEST(Part1_1, NextReadsImagesInsideACatGroup) {
  vt::TempDir d;
  auto image = [](uint32_t w) {
    return vt::group("FOR4", "CIMG", vt::chunk("TBHD", vt::tbhd(w, 1, 1, 0, 1, 0)));
  };
  Bytes f = vt::group("CAT4", "CIMG", vt::cat({image(5), image(6)}));
  vt::writeFile(d.path("cat.iff"), f);
  ILimage* img = ILopen(d.path("cat.iff").c_str(), "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 5u);
  ASSERT_EQ(ILnext(img), 0);
  EXPECT_EQ(ILgetheader(img)->width, 6u);
  EXPECT_EQ(ILnext(img), 100);
  ILclose(img);
}

TEST(Part1_1, ReaderSkipsUnknownChunksBeforeTbhdAndFormGroupIsNotAnImage) {
  vt::TempDir d;
  Bytes f = vt::group("FOR4", "CIMG",
                      vt::cat({vt::chunk("XTRA", {1, 2, 3}), vt::chunk("TBHD", vt::tbhd(7, 3, 3, 0, 1, 1)),
                               vt::chunk("AUTH", {'m', 'e'}), vt::chunk("DATE", {'n', 'o', 'w'})}));
  vt::writeFile(d.path("x.iff"), f);
  ILimage* img = ILopen(d.path("x.iff").c_str(), "r");
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 7u);
  const char* t;
  EXPECT_EQ(ILgetchunktext(img, FL_ID('A', 'U', 'T', 'H'), &t), 2);
  EXPECT_EQ(std::string(t, 2), "me");
  EXPECT_EQ(ILgetchunktext(img, FL_ID('D', 'A', 'T', 'E'), &t), 3);
  ILclose(img);
  // An image in a 2-byte aligned FORM group: the form check answers 22, the open fails with 100.
  Bytes form = vt::group("FORM", "CIMG", vt::chunk("TBHD", vt::tbhd(7, 3, 3, 0, 1, 1), 2));
  vt::writeFile(d.path("form.iff"), form);
  EXPECT_EQ(ILopen(d.path("form.iff").c_str(), "r"), nullptr);
  EXPECT_EQ(flerrno, 100);
}

TEST(Part1_1, TwentyFourByteTbhdOfOlderWriters) {
  vt::TempDir d;
  Bytes tb = vt::tbhd(9, 4, 3, 0, 1, 1);
  tb.resize(24);
  vt::writeFile(d.path("old.iff"), vt::group("FOR4", "CIMG", vt::chunk("TBHD", tb)));
  ILimage* img = ILopen(d.path("old.iff").c_str(), "r");
  const ILheader* h = ILgetheader(img);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->width, 9u);
  EXPECT_EQ(h->orgx, 0u);
  ILclose(img);
}

TEST(Part1_1, OpenFindsImagesOnTheImageSearchPath) {
  vt::TempDir d;
  vt::run("mkdir -p '" + d.path("image") + "' '" + d.path("tex") + "'");
  vt::writeFile(d.path("tex/t.iff"), vt::group("FOR4", "CIMG", vt::chunk("TBHD", vt::tbhd(3, 3, 3, 0, 1, 1))));
  vt::ScopedEnv loc("VORA_LOCATION", d.dir().c_str());
  EXPECT_EQ(std::string(ILgetpath()), ".;" + d.dir() + "/image;" + d.dir() + "/tex");
  ILimage* img = ILopen("t.iff", "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 3u);
  ILclose(img);
  vt::ScopedEnv other("VORA_LOCATION", "/elsewhere");
  EXPECT_EQ(std::string(ILgetpath()), ".;/elsewhere/image;/elsewhere/tex");  // rebuilt
}

TEST(Part1_1, RangeInTheExtension) {
  double r[3];
  char real[256];
  EXPECT_EQ(ILrange("shot.iff.1,100,2", r, real, 0), 1);
  EXPECT_EQ(r[0], 1.0);
  EXPECT_EQ(r[1], 100.0);
  EXPECT_EQ(r[2], 2.0);
  EXPECT_STREQ(real, "shot.iff");
  EXPECT_EQ(ILrange("a.5,0", r, nullptr, 0), 1);
  EXPECT_EQ(r[1], 1e10);  // zero end: no end
  EXPECT_EQ(ILrange("a.5,", r, nullptr, 0), 1);
  EXPECT_EQ(r[1], 1e10);  // missing end
  EXPECT_EQ(ILrange("a.10,5", r, nullptr, 0), 1);
  EXPECT_EQ(r[1], 10.0);  // raised to the start
  EXPECT_EQ(r[2], 1.0);
  EXPECT_EQ(ILrange("a.iff", r, nullptr, 0), -1);
  EXPECT_EQ(ILrange("noextension", r, nullptr, 0), -1);
  EXPECT_EQ(ILrange("host:a.1,5", r, nullptr, 0), 0);  // names with ':' are not looked at
  EXPECT_EQ(ILrange("mmap:a.1,5", r, real, 0), 1);    // unless "mmap:", which is stripped
  EXPECT_STREQ(real, "a");
  vt::TempDir d;
  vt::writeFile(d.path("f.1,5"), {1});
  EXPECT_EQ(ILrange(d.path("f.1,5").c_str(), r, nullptr, 0), 0);  // an existing file
}

TEST(Part1_1, DescribeTypeAndCompression) {
  char b[64];
  EXPECT_STREQ(ILdescribetype(3, b, sizeof b), "RGB with Alpha");
  EXPECT_STREQ(ILdescribetype(16 | 4, b, sizeof b), "Black without Alpha, ZBuffer");
  EXPECT_STREQ(ILdescribetype(0, b, sizeof b), "BW without Alpha");
  EXPECT_STREQ(ILcompressname(3), "QR4");
  EXPECT_EQ(ILcompressname(64), nullptr);
}

TEST(Part1_1, ErrorTextsOf100To111) {
  for (int code = 100; code <= 111; ++code) {
    std::string t = FLstrerror(code);
    EXPECT_FALSE(t.empty());
    EXPECT_EQ(t.find("unknown"), std::string::npos) << code;
  }
  EXPECT_STREQ(FLstrerror(106), "image or tile size out of range");
}
