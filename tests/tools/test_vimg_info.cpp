// vimg info: text, --json and --chunks reports, and a clear error for other files.
#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace {
std::string vimg(const std::string& args, int* status) {
  std::string out;
  *status = vt::vimg(args, &out);
  return out;
}
}  // namespace

TEST(VimgInfo, DescribesANativeImage) {
  int st;
  std::string out = vimg("info " VORA_TEST_DATA "/iff/rgba16_33x20_rle.iff", &st);
  EXPECT_EQ(st, 0);
  EXPECT_NE(out.find("size         33 x 20"), std::string::npos) << out;
  EXPECT_NE(out.find("type         RGB with Alpha"), std::string::npos);
  EXPECT_NE(out.find("bytes        2 per channel"), std::string::npos);
  EXPECT_NE(out.find("compression  RLE"), std::string::npos);
  EXPECT_NE(out.find("version      0x00010000"), std::string::npos);
}

TEST(VimgInfo, ChunksAndJson) {
  int st;
  std::string out = vimg("info --chunks --json " VORA_TEST_DATA "/iff/rgba8_70x66_rle.iff", &st);
  EXPECT_EQ(st, 0);
  EXPECT_EQ(out.rfind("{\"files\":[{", 0), 0u) << out;
  EXPECT_NE(out.find("\"width\":70,\"height\":66"), std::string::npos);
  EXPECT_NE(out.find("{\"id\":\"TBHD\",\"offset\":12,\"size\":32}"), std::string::npos);
  EXPECT_NE(out.find("\"type\":\"TBMP\""), std::string::npos);
  EXPECT_NE(out.find("{\"id\":\"RGBA\",\"offset\":12944,\"size\":43}"), std::string::npos);
}

TEST(VimgInfo, OtherFilesGiveAOneLineErrorAndNonZeroStatus) {
  vt::TempDir d;
  vt::writeFile(d.path("x.txt"), {'h', 'i', '\n'});
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");
  int st;
  std::string out = vimg("info " + d.path("x.txt"), &st);
  EXPECT_NE(st, 0);
  EXPECT_EQ(out.find('\n'), out.size() - 1) << out;  // one line
  EXPECT_NE(out.find(d.path("x.txt") + ": not a native image"), std::string::npos) << out;
  out = vimg("info --json " + d.path("missing.iff"), &st);
  EXPECT_NE(st, 0);
  EXPECT_NE(out.find("\"error\":\"the file cannot be opened: No such file or directory\""),
            std::string::npos)
      << out;
}
