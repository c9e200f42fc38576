// vimg seq: grouping files into sequences (ranges, missing frames) and naming frames.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/test_support.h"

namespace {
using vt::vimg;
void touch(const vt::TempDir& d, const std::string& name) { vt::writeFile(d.path(name), {}); }
}  // namespace

TEST(VimgSeq, ListsSequencesWithRangesAndMissingFrames) {
  vt::TempDir d;
  for (int f : {1, 2, 3, 4, 6, 10, 11, 12}) {
    char n[64];
    snprintf(n, sizeof n, "shot.%04d.iff", f);
    touch(d, n);
  }
  for (int f : {7, 8, 9, 10, 99, 100, 1000, 1001}) touch(d, "plate_" + std::to_string(f) + ".exr");
  touch(d, "notes.txt");
  std::string out;
  ASSERT_EQ(vimg("seq " + d.dir(), &out), 0);
  EXPECT_NE(out.find(d.dir() + "/shot.####.iff  1-4,6,10-12  (8 frames; missing 5,7-9)"), std::string::npos) << out;
  // An unpadded sequence stays one sequence though 1000 and 1001 also fit name####.ext.
  EXPECT_NE(out.find(d.dir() + "/plate_#.exr  7-10,99-100,1000-1001  (8 frames; missing 11-98,101-999)"),
            std::string::npos) << out;
  EXPECT_NE(out.find(d.dir() + "/notes.txt\n"), std::string::npos) << out;
  ASSERT_EQ(vimg("seq --json " + d.dir(), &out), 0);
  EXPECT_NE(out.find("\"pattern\":\"shot.####.iff\",\"first\":1,\"last\":12,\"count\":8,"
                     "\"frames\":\"1-4,6,10-12\",\"missing\":\"5,7-9\""), std::string::npos) << out;
  EXPECT_NE(out.find("\"files\":[\"" + d.dir() + "/notes.txt\"]"), std::string::npos) << out;
}

TEST(VimgSeq, ExtraFormatsExtendTheDefaults) {
  vt::TempDir d;
  touch(d, "take-0001-final.dpx");
  touch(d, "take-0002-final.dpx");
  std::string out;
  ASSERT_EQ(vimg("seq " + d.dir(), &out), 0);
  EXPECT_NE(out.find("take-0001-final.dpx\n"), std::string::npos) << out;  // fits no default
  ASSERT_EQ(vimg("seq " + d.dir() + " --format name####-final.ext", &out), 0);
  EXPECT_NE(out.find("take-####-final.dpx  1-2  (2 frames)"), std::string::npos) << out;
}

TEST(VimgSeq, FrameNamesAnyFrame) {
  std::string out;
  ASSERT_EQ(vimg("seq frame /shots/a.b/shot.0012.iff 7", &out), 0);
  EXPECT_EQ(out, "/shots/a.b/shot.0007.iff\n");
  ASSERT_EQ(vimg("seq frame shot.0012.iff 123456", &out), 0);
  EXPECT_EQ(out, "shot.123456.iff\n");
  // The formats given replace the defaults, in order: "#" does not take the leading zero.
  EXPECT_NE(vimg("seq frame shot.0012.iff 7 --format name.#.ext", &out), 0);
  EXPECT_NE(out.find("fits none of the formats"), std::string::npos) << out;
  ASSERT_EQ(vimg("seq frame shot.12.iff 7 --format name.#.ext", &out), 0);
  EXPECT_EQ(out, "shot.7.iff\n");
}
