// Part 1.1: hostile input: every malformed header gives the Part's failure, never a crash, hang or
// unbounded allocation.
#include <gtest/gtest.h>
#include <vora/ilib.h>

#include <string>

#include "support/test_support.h"

using vt::Bytes;

namespace {

// Opens and reads the header of bytes written to a file; returns flerrno on failure, 0 otherwise.
int headerResult(const Bytes& b) {
  vt::TempDir d;
  std::string p = d.path("h.iff");
  vt::writeFile(p, b);
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");  // no conversion program
  vt::ScopedEnv icvt("ILICVT", nullptr);
  ILinfilter(nullptr);
  ILimage* img = ILopen(p.c_str(), "r");
  if (!img) return flerrno;
  int r = ILgetheader(img) ? 0 : flerrno;
  ILclose(img);
  return r;
}

Bytes good() { return vt::group("FOR4", "CIMG", vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1))); }

void setBe32(Bytes& b, size_t at, uint32_t v) {
  b[at] = uint8_t(v >> 24), b[at + 1] = uint8_t(v >> 16), b[at + 2] = uint8_t(v >> 8);
  b[at + 3] = uint8_t(v);
}

}  // namespace

TEST(Part1_1_Hostile, ValidBaseline) { EXPECT_EQ(headerResult(good()), 0); }

TEST(Part1_1_Hostile, EmptyFileIsNotNativeAndGoesToConversion) {
  // Empty data holds no form (16): the input conversion runs, and without rastx gives 111.
  EXPECT_EQ(headerResult({}), 111);
}

TEST(Part1_1_Hostile, TruncatedFilesAtEveryLength) {
  Bytes g = good();
  for (size_t n = 1; n < g.size(); ++n) {
    Bytes cut(g.begin(), g.begin() + long(n));
    int r = headerResult(cut);
    // Shorter than a group header: not an IFF file (conversion, 111); a group running past the
    // end of the file: damaged (101).
    if (n < 8) EXPECT_EQ(r, 111) << n;
    else EXPECT_EQ(r, 101) << n;
  }
}

TEST(Part1_1_Hostile, TbhdShorterOrLongerThan32) {
  for (size_t size : {0u, 4u, 20u, 23u, 25u, 31u, 33u, 40u, 1000u}) {
    Bytes tb = vt::tbhd(8, 8, 3, 0, 1, 1);
    tb.resize(size, 0xAB);
    EXPECT_EQ(headerResult(vt::group("FOR4", "CIMG", vt::chunk("TBHD", tb))), 105) << size;
  }
}

TEST(Part1_1_Hostile, TbhdSizePastItsGroupGives105) {
  Bytes b = good();
  setBe32(b, 16, 0x7FFFFFF0);  // TBHD's size
  EXPECT_EQ(headerResult(b), 105);
}

TEST(Part1_1_Hostile, GroupSizePastTheEndOfTheFile) {
  Bytes b = good();
  setBe32(b, 4, uint32_t(b.size()));  // 8 bytes more than there are
  EXPECT_EQ(headerResult(b), 101);
  setBe32(b, 4, 0xFFFFFFF0u);
  EXPECT_EQ(headerResult(b), 101);
}

TEST(Part1_1_Hostile, GroupSmallerThanItsContents) {
  Bytes b = good();
  setBe32(b, 4, 4);  // the group holds only its type: no header chunk before its end
  EXPECT_EQ(headerResult(b), 104);
  setBe32(b, 4, 20);  // the TBHD chunk runs past the group's end
  EXPECT_EQ(headerResult(b), 105);
  setBe32(b, 4, 2);  // smaller than its own type word
  EXPECT_EQ(headerResult(b), 101);
}

TEST(Part1_1_Hostile, ChunkBeforeTbhdRunningPastTheGroup) {
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("XTRA", {1, 2, 3, 4}),
                                               vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1))}));
  setBe32(b, 16, 1000);
  EXPECT_EQ(headerResult(b), 104);
}

TEST(Part1_1_Hostile, NoTbhdBeforeTheEnd) {
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("FVER", {0, 1, 0, 1}),
                                               vt::group("FOR4", "TBMP", {})}));
  EXPECT_EQ(headerResult(b), 104);
}

TEST(Part1_1_Hostile, FldsFieldCountRunsPastItsChunk) {
  Bytes fields;
  vt::text(fields, "DPI ");
  vt::be32(fields, 0x40000000);  // count far past the chunk
  vt::text(fields, "300.0000");
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1)),
                                               vt::chunk("FLDS", fields)}));
  EXPECT_EQ(headerResult(b), 101);
  // A count just one byte too long.
  Bytes f2;
  vt::text(f2, "ABCD");
  vt::be32(f2, 5);
  vt::text(f2, "abcd");
  Bytes b2 = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1)),
                                                vt::chunk("FLDS", f2)}));
  EXPECT_EQ(headerResult(b2), 101);
}

TEST(Part1_1_Hostile, FldsChunkSizeLiesAboutTheFile) {
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1)),
                                               vt::chunk("FLDS", {0, 0, 0, 0, 0, 0, 0, 0})}));
  setBe32(b, 8 + 4 + 8 + 32 + 4, 0x7FFFFFFF);  // FLDS size
  EXPECT_EQ(headerResult(b), 101);
}

TEST(Part1_1_Hostile, GroupNestedAThousandDeep) {
  Bytes inner = good();
  for (int i = 0; i < 1000; ++i) inner = vt::group("CAT4", "CIMG", inner);
  EXPECT_EQ(headerResult(inner), 101);
  // Foreign forms nested deep are skipped whole, without descending.
  Bytes foreign = vt::group("FOR4", "XXXX", {});
  for (int i = 0; i < 1000; ++i) foreign = vt::group("FOR4", "XXXX", foreign);
  EXPECT_EQ(headerResult(vt::cat({foreign, good()})), 0);
}

TEST(Part1_1_Hostile, GroupWithLooserAlignmentInside) {
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::group("FORM", "XXXX", {}),
                                               vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1))}));
  EXPECT_EQ(headerResult(b), 104);
}

TEST(Part1_1_Hostile, UnknownSizeGroupsEndAtGend) {
  // Streamed writers: sizes 0x80000000 and a GEND chunk (older ones: GEND of size 0x80000000).
  Bytes body = vt::cat({vt::chunk("TBHD", vt::tbhd(8, 9, 3, 0, 1, 1))});
  Bytes b;
  vt::text(b, "FOR4");
  vt::be32(b, 0x80000000u);
  vt::text(b, "CIMG");
  b = vt::cat({b, body});
  vt::text(b, "GEND");
  vt::be32(b, 0x80000000u);
  EXPECT_EQ(headerResult(b), 0);
  // Unknown sizes are for groups only.
  Bytes c = good();
  setBe32(c, 16, 0x80000000u);
  EXPECT_EQ(headerResult(c), 105);
}

TEST(Part1_1_Hostile, ForeignFileOfRandomBytesNeverCrashes) {
  uint32_t x = 12345;
  for (int round = 0; round < 200; ++round) {
    Bytes b = good();
    for (int k = 0; k < 3; ++k) {
      x = x * 1103515245u + 12345u;
      b[(x >> 8) % b.size()] = uint8_t(x >> 20);
    }
    int r = headerResult(b);
    EXPECT_TRUE(r == 0 || r == 100 || r == 101 || r == 104 || r == 105 || r == 111) << r;
  }
}

TEST(Part1_1_Hostile, RegressionEmptyTextChunksFromTheFuzzer) {
  // An AUTH chunk of no bytes (found by fuzz_il_header: a null source handed to memcpy).
  Bytes b = vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(8, 8, 3, 0, 1, 1)),
                                               vt::chunk("AUTH", {}), vt::chunk("DATE", {})}));
  EXPECT_EQ(headerResult(b), 0);
}
