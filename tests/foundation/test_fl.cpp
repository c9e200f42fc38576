// FL chunked-file streams: groups and chunks written with their alignment and read back with
// size checks, streams that cannot seek, push-back, parse results, commands that fail.
#include <gtest/gtest.h>
#include <vora/foundation/fl.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/test_support.h"

using vt::Bytes;

TEST(FL, WritesGroupsAndChunksWithPaddingByAlignment) {
  vt::TempDir d;
  std::string p = d.path("a.iff");
  vt::writeFile(p, Bytes(1000, 0xAB));  // an older, longer file: written over, then cut
  FLfile* f = FLopen(p.c_str(), "w");
  ASSERT_NE(f, nullptr);
  EXPECT_TRUE(f->flags & FL_SEEKABLE);
  ASSERT_EQ(FLbgnwgroup(f, FL_ID('F', 'O', 'R', '4'), FL_ID('T', 'E', 'S', 'T')), 0);
  ASSERT_EQ(FLputchunk(f, FL_ID('O', 'N', 'E', ' '), 1, "x"), 0);  // padded to 4
  ASSERT_EQ(FLbgnwgroup(f, FL_ID('F', 'O', 'R', '8'), FL_ID('E', 'I', 'G', 'H')), 0);
  ASSERT_EQ(FLputchunk(f, FL_ID('T', 'W', 'O', ' '), 3, "abc"), 0);  // padded to 8
  ASSERT_EQ(FLendwgroup(f), 0);
  void* b = FLbgnwbchunk(f, FL_ID('R', 'E', 'S', 'V'), 100);
  ASSERT_NE(b, nullptr);
  memcpy(b, "hello", 5);
  ASSERT_EQ(FLendwbchunk(f, 5), 0);
  ASSERT_EQ(FLendwgroup(f), 0);
  ASSERT_EQ(FLclose(f), 0);
  Bytes two = vt::chunk("TWO ", {'a', 'b', 'c'}, 8);
  Bytes eight = vt::group("FOR8", "EIGH", two);
  Bytes expect = vt::group("FOR4", "TEST",
                           vt::cat({vt::chunk("ONE ", {'x'}), eight,
                                    vt::chunk("RESV", {'h', 'e', 'l', 'l', 'o'})}));
  EXPECT_EQ(vt::hex(vt::readFile(p)), vt::hex(expect));
}

TEST(FL, StreamsThatCannotSeekBufferTheOutermostGroup) {
  vt::TempDir d;
  std::string p = d.path("p.iff");
  FLfile* f = FLopen(("pipe:cat > '" + p + "'").c_str(), "w");
  ASSERT_NE(f, nullptr);
  EXPECT_TRUE(f->flags & FL_PIPE);
  EXPECT_FALSE(f->flags & FL_SEEKABLE);
  ASSERT_EQ(FLbgnwgroup(f, FL_ID('F', 'O', 'R', '4'), FL_ID('T', 'E', 'S', 'T')), 0);
  Bytes big(3 << 20, 0x5A);  // larger than the flush threshold: still buffered
  ASSERT_EQ(FLputchunk(f, FL_ID('B', 'I', 'G', ' '), uint32_t(big.size()), big.data()), 0);
  ASSERT_EQ(FLendwgroup(f), 0);
  ASSERT_EQ(FLclose(f), 0);
  EXPECT_EQ(vt::readFile(p), vt::group("FOR4", "TEST", vt::chunk("BIG ", big)));
}

TEST(FL, ParseResults) {
  vt::TempDir d;
  // Not IFF: the first header is no group (12); the 8 bytes are in the parse state.
  vt::writeFile(d.path("t.txt"), {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd'});
  FLfile* f = FLopen(d.path("t.txt").c_str(), "r");
  EXPECT_EQ(FLparse(f), FL_NOTIFF);
  EXPECT_EQ(FLgetparsestate(f)->flags, unsigned(FL_PS_HEADER));
  EXPECT_EQ(FLgetparsestate(f)->id, FL_ID('h', 'e', 'l', 'l'));
  FLclose(f);
  // Shorter than a header: pushed back whole, nothing in the parse state.
  vt::writeFile(d.path("s.txt"), {'a', 'b', 'c'});
  f = FLopen(d.path("s.txt").c_str(), "r");
  EXPECT_EQ(FLparse(f), FL_NOTIFF);
  EXPECT_EQ(FLgetparsestate(f)->flags, 0u);
  uint8_t b[4];
  EXPECT_EQ(FLread(f, b, 4), 3);
  FLclose(f);
  // IFF without an accepted form: 16. Without a form check the first form is accepted.
  vt::writeFile(d.path("x.iff"), vt::group("FOR4", "XXXX", {}));
  f = FLopen(d.path("x.iff").c_str(), "r");
  FLsetform(f, [](FLfile*, FLid, FLid) { return 0; });
  EXPECT_EQ(FLparse(f), FL_NOFORM);
  FLclose(f);
  f = FLopen(d.path("x.iff").c_str(), "r");
  EXPECT_EQ(FLparse(f), FL_ACCEPT);
  EXPECT_EQ(FLgetparsestate(f)->flags, unsigned(FL_PS_HEADER | FL_PS_TYPE | FL_PS_FORM));
  FLclose(f);
}

// A filter that cannot start leaves the record reading its file; opens that cannot succeed.
TEST(FL, FailuresLeaveRecordsUsable) {
  vt::TempDir d;
  vt::writeFile(d.path("f.iff"), vt::chunk("AAAA", {7}));
  FLfile* f = FLopen(d.path("f.iff").c_str(), "r");
  EXPECT_EQ(FLfilter("no-such-filter-program", "r", f), nullptr);
  EXPECT_EQ(flerrno, FL_ENOCMD);
  FLid id;
  uint32_t size;
  ASSERT_EQ(FLbgnget(f, &id, &size), 0);  // still reads the file
  EXPECT_EQ(id, FL_ID('A', 'A', 'A', 'A'));
  FLclose(f);
  EXPECT_EQ(FLopen("/nonexistent/dir/file", "r"), nullptr);
  EXPECT_EQ(flerrno * 1000 + FLoserror(), FL_EOPEN * 1000 + ENOENT);
  EXPECT_EQ(FLopen("/tmp", "r"), nullptr);  // a directory
  EXPECT_EQ(FLopen("pipe:no-such-command-here", "r"), nullptr);
  EXPECT_EQ(flerrno, FL_ENOCMD);
}

// Views of chunk bytes in the stream's buffer, from a file and a pipe: the right bytes across
// buffer refills, null past the chunk's end or over 1 MiB, and FLget reads on where they stop.
TEST(FL, ViewsOfChunkBytes) {
  vt::TempDir d;
  Bytes big(3 << 20);
  for (size_t i = 0; i < big.size(); ++i) big[i] = uint8_t(i * 7 + i / 251);
  vt::writeFile(d.path("v.iff"), vt::cat({vt::chunk("BIG ", big), vt::chunk("TAIL", {1, 2, 3})}));
  for (const std::string& name : {d.path("v.iff"), "pipe:cat '" + d.path("v.iff") + "'"}) {
    FLfile* f = FLopen(name.c_str(), "r");
    FLid id;
    uint32_t size;
    ASSERT_EQ(FLbgnget(f, &id, &size), 0);
    size_t at = 0;
    for (size_t n : {size_t(5), size_t(65531), size_t(70000), size_t(1) << 20, size_t(3)}) {
      const auto* p = static_cast<const uint8_t*>(FLgetview(f, n));
      ASSERT_NE(p, nullptr) << name << " " << n;
      EXPECT_TRUE(std::equal(p, p + n, big.begin() + long(at))) << name << " " << n;
      at += n;
    }
    EXPECT_EQ(FLgetview(f, (1 << 20) + 1), nullptr);
    Bytes rest(big.size() - at - 10);
    EXPECT_EQ(FLget(f, rest.data(), rest.size()), int64_t(rest.size()));
    EXPECT_TRUE(std::equal(rest.begin(), rest.end(), big.begin() + long(at))) << name;
    EXPECT_EQ(FLgetview(f, 11), nullptr);  // past the chunk's end
    const auto* last = static_cast<const uint8_t*>(FLgetview(f, 10));
    EXPECT_TRUE(last && std::equal(last, last + 10, big.end() - 10)) << name;
    ASSERT_EQ(FLendget(f) | FLbgnget(f, &id, &size), 0);
    const auto* tail = static_cast<const uint8_t*>(FLgetview(f, 3));
    EXPECT_EQ(vt::hex(Bytes(tail, tail + 3)), "010203");
    FLclose(f);
  }
}
