// vimg seq's grouping: the matcher run once per shape of name gives what it gives run for every
// name, on listings that mix the naming styles, padding, frames too large for a frame number,
// negative frames and digits in the names themselves.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "../tools/vimg/seq_group.h"

TEST(VimgSeq, LearntShapesGroupAsTheMatcherDoesNameByName) {
  const char* styles[] = {"%s.%04d.exr", "%s.%d.iff", "%s_%04d.tif", "%s%04d.png", "%s.%03d.%s", "%s%d.jpg"};
  std::vector<std::string> names;
  char buf[160];
  for (int s = 0; s < 12; ++s) {
    const std::string base = "shot" + std::to_string(s) + "_v" + std::to_string(s % 3);
    for (int f : {0, 1, 7, 9, 10, 99, 100, 999, 1000, 1001, 4096, 9999, 10000, 123456})
      snprintf(buf, sizeof buf, styles[s % 6], base.c_str(), f, "sgi"), names.push_back("/a/" + std::to_string(s % 2) + "/" + buf);
  }
  for (const char* odd : {"big.2147483647.exr", "big.2147483648.exr", "big.9999999999.exr", "neg.-012.exr", "neg.-013.exr",
                          "ver2.0001.exr", "ver3.0001.exr", "plain.exr", "x.1.2.exr", "x.3.4.exr", "7", "8", "0.exr", "1.exr",
                          "a..0001.exr", "a..0002.exr", "comp10001.png", "comp10002.png"})
    names.push_back(odd);
  std::shuffle(names.begin(), names.end(), std::mt19937(3));
  const vimg::Grouping fast = vimg::groupSequences(names, vimg::defaultSequenceFormats());
  const vimg::Grouping plain = vimg::groupSequences(names, vimg::defaultSequenceFormats(), false);
  ASSERT_EQ(fast.sequences.size(), plain.sequences.size());
  for (size_t i = 0; i < fast.sequences.size(); ++i) {
    EXPECT_EQ(fast.sequences[i].dir, plain.sequences[i].dir);
    EXPECT_EQ(fast.sequences[i].pattern, plain.sequences[i].pattern);
    EXPECT_EQ(fast.sequences[i].frames, plain.sequences[i].frames) << plain.sequences[i].pattern;
  }
  EXPECT_EQ(fast.singles, plain.singles);
  EXPECT_GT(plain.sequences.size(), 12u);
}
