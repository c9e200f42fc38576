// Image sequences under both matching algorithms: which format binds a name, and the names of
// other frames.
#include <gtest/gtest.h>
#include <vora/imagefile.h>

#include <string>

#include "support/test_support.h"

namespace {

// Selects the algorithm for the sequences created in its scope.
struct Algorithm {
  vt::ScopedEnv env;
  explicit Algorithm(bool old) : env("VORA_USE_OLD_IMG_SEQ_ALG", old ? "1" : nullptr) {}
};

struct Formats {
  TstringArray saved;
  explicit Formats(const TstringArray& list) {
    TimageSequence::getFileNameFormats(saved);
    TimageSequence::setFileNameFormats(list);
  }
  ~Formats() { TimageSequence::setFileNameFormats(saved); }
};

bool binds(const char* file, const char* format) {
  TimageSequence s;
  try {
    return s.setFileNameAndFormat(file, format) > 0;
  } catch (int e) {
    EXPECT_EQ(e, 1);
    return false;
  }
}

}  // namespace

// With the list name.#.ext, name.####.ext, shot.0012.iff binds the second format under
// the regex algorithm ("#" does not accept the leading zero), and atFrame(7) gives the same
// directory followed by "/" and shot.0007.iff.
TEST(ImageSequence, LeadingZeroPicksThePaddedFormat) {
  Algorithm regex(false);
  Formats f({"name.#.ext", "name.####.ext"});
  TimageSequence s;
  ASSERT_TRUE(s.isRegexAlgorithm());
  ASSERT_TRUE(TimageSequence::initializeToBestMatch("/shots/a.b/shot.0012.iff", s, 0));
  EXPECT_EQ(s.atFrame(7), Tstring("/shots/a.b/shot.0007.iff"));
  EXPECT_EQ(s.nextFrame(7), Tstring("/shots/a.b/shot.0008.iff"));
  EXPECT_FALSE(binds("shot.0012.iff", "name.#.ext"));
  // The older algorithm: both formats have three parts, and the width rule picks the second too.
  Algorithm old(true);
  TimageSequence o;
  ASSERT_FALSE(o.isRegexAlgorithm());
  ASSERT_TRUE(TimageSequence::initializeToBestMatch("/shots/a.b/shot.0012.iff", o, 0));
  EXPECT_EQ(o.atFrame(7), Tstring("/shots/a.b/shot.0007.iff"));
}

// Whether a name binds a format, under the regex (R) and the older (O) algorithm: "#" takes no
// leading zero; formats without '#' or with two runs never bind; the older algorithm finds the
// number at the end of a dot-separated part.
TEST(ImageSequence, WhichNamesBindWhichFormats) {
  struct Case {
    const char *file, *format;
    bool regex, old;
  } cases[] = {
      {"shot.12.iff", "name.#.ext", true, true},     {"shot.0.iff", "name.#.ext", true, true},
      {"shot.012.iff", "name.#.ext", false, false},  {"shot.0012.iff", "name.#.ext", false, false},
      {"shot.iff", "name.ext", false, false},        {"shot.12.iff.34", "name.##.ext.##", false, false},
      {"shot0012.iff", "name####.ext", true, true},  {"shot0012", "name####.ext", false, false},
      {"shot.012.iff", "name.####.ext", false, false}, {"0012", "name.####.ext", false, false},
      {"d.1/my.shot.v2.0012.iff", "name.####.ext", true, false},
  };
  for (const Case& c : cases)
    for (bool old : {false, true}) {
      Algorithm a(old);
      EXPECT_EQ(binds(c.file, c.format), old ? c.old : c.regex) << c.file << " " << c.format << (old ? " O" : " R");
    }
  int pad = 0;
  EXPECT_EQ(TimageSequence::convertToRegex("name.####.ext", pad), Tstring("(.*[^\\.])(\\.)([0-9]{4})(\\.)([a-zA-Z]+)"));
  EXPECT_EQ(pad, 4);
  EXPECT_EQ(TimageSequence::convertToRegex("name#.ext", pad), Tstring("(.*[^\\.0-9])([0-9]|[1-9][0-9]*)(\\.)([a-zA-Z]+)"));
  EXPECT_THROW(TimageSequence::convertToRegex("name.##.ext.##", pad), int);
  TimageSequence s;
  EXPECT_EQ(s.atFrame(1), Tstring(""));  // unbound
  for (auto [file, format] : {std::pair<const char*, const char*>{"", "name.#.ext"}, {"a.1.iff", ""}, {"a.iff", "name.#.ext"}})
    EXPECT_THROW(s.setFileNameAndFormat(file, format), int) << file << " " << format;
  EXPECT_EQ(s.atFrame(1), Tstring(""));  // a failed bind leaves it unbound
}

// Two formats with equal scores: the first in the list wins.
TEST(ImageSequence, EqualScoresFirstWins) {
  for (bool old : {false, true}) {
    Algorithm a(old);
    // Both have five groups (regex) / three parts (older) and both bind shot.0012.iff.
    Formats f({"name.####.ext", "name.#ext#.ext"});
    TimageSequence s;
    ASSERT_TRUE(TimageSequence::initializeToBestMatch("shot.0012.iff", s, 0)) << old;
    EXPECT_EQ(s.atFrame(3), Tstring("./shot.0003.iff")) << old;
  }
  // A tie between two different formats that both bind: the earlier one is kept.
  Algorithm regex(false);
  Formats h({"name.##.ext", "name_##.ext"});
  TimageSequence s;
  ASSERT_TRUE(TimageSequence::initializeToBestMatch("a_b.12.iff", s, 0));
  EXPECT_EQ(s.atFrame(5), Tstring("./a_b.05.iff"));
  Formats none({"name.ext", "name.##.ext.##"});  // a list whose formats fit nothing binds nothing
  TimageSequence n;
  EXPECT_FALSE(TimageSequence::initializeToBestMatch("shot.iff", n, 0));
  EXPECT_EQ(n.atFrame(1), Tstring(""));
}

// The name of another frame, under the regex (R) and the older (O) algorithm: offsets, frames wider
// than the padding and negative ones, several dots, 10,000-character names, frames of 10,000
// digits (the regex algorithm renumbers only 32-bit integer groups), names that are only digits.
TEST(ImageSequence, NamesOfOtherFrames) {
  const std::string x(10000, 'x'), digits(10000, '7');
  struct Case {
    std::string file, format;
    const char* algorithms;
    int offset, frame;
    std::string name;
  } cases[] = {
      {"r/shot.0012.iff", "name.####.ext", "RO", 100, 1, "r/shot.0101.iff"},
      {"shot.0012.iff", "name.####.ext", "RO", 0, 123456, "./shot.123456.iff"},
      {"shot.0012.iff", "name.####.ext", "RO", 0, -5, "./shot.-005.iff"},
      {"d.1/my.shot.v2.0012.iff", "name.####.ext", "R", 0, 3, "d.1/my.shot.v2.0003.iff"},
      {"dir/" + x + ".0012.iff", "name.####.ext", "RO", 0, 1, "dir/" + x + ".0001.iff"},
      {"a." + digits + ".iff", "name.#.ext", "R", 0, 5, "./a." + digits + ".iff"},
      {"a." + digits + ".iff", "name.#.ext", "O", 0, 5, "./a.5.iff"},
      {"123.0012.iff", "name.####.ext", "R", 0, 4, "./0004.0004.iff"},
      {"123.0012.iff", "name.####.ext", "O", 0, 4, "./123.0004.iff"},
      {"shot0012.iff", "name####.ext", "O", 0, 9, "./shot0009.iff"},
      {"dir/shot0012", "name####", "O", 0, 13, "dir/shot0013"},
  };
  for (const Case& c : cases)
    for (char alg : std::string(c.algorithms)) {
      Algorithm a(alg == 'O');
      TimageSequence s;
      ASSERT_GT(s.setFileNameAndFormat(c.file, c.format), 0u) << c.file.substr(0, 40) << " " << alg;
      s.setOffset(c.offset);
      EXPECT_EQ(s.atFrame(c.frame), Tstring(c.name)) << c.file.substr(0, 40) << " " << alg;
    }
  Formats f({"name.####.ext"});  // the best match takes the offset too
  TimageSequence t;
  ASSERT_TRUE(TimageSequence::initializeToBestMatch("r/shot.0012.iff", t, 100));
  EXPECT_EQ(t.atFrame(1), Tstring("r/shot.0101.iff"));
  EXPECT_FALSE(binds((digits + ".iff").c_str(), "name.####.ext"));
}

TEST(ImageSequence, FrameInfoGivesThePattern) {
  for (bool old : {false, true}) {
    Algorithm a(old);
    TimageSequence s;
    s.setFileNameAndFormat("x/shot.0042.iff", "name.####.ext");
    int frame = 0;
    Tstring pattern;
    ASSERT_TRUE(s.frameInfo(frame, pattern));
    EXPECT_EQ(frame, 42);
    EXPECT_EQ(pattern, Tstring("shot.####.iff"));
  }
}
