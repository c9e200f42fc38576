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
    Formats g({"name.####.ext", "name.####.ext"});
    TimageSequence t;
    EXPECT_TRUE(TimageSequence::initializeToBestMatch("shot.0012.iff", t, 0));
  }
  // A tie between two different formats that both bind: the earlier one is kept.
  Algorithm regex(false);
  Formats h({"name.##.ext", "name_##.ext"});
  TimageSequence s;
  ASSERT_TRUE(TimageSequence::initializeToBestMatch("a_b.12.iff", s, 0));
  EXPECT_EQ(s.atFrame(5), Tstring("./a_b.05.iff"));
}

// A list whose formats fit nothing binds nothing.
TEST(ImageSequence, NoFormatFitsNothingBinds) {
  Algorithm regex(false);
  Formats f({"name.ext", "name.##.ext.##"});
  TimageSequence s;
  EXPECT_FALSE(TimageSequence::initializeToBestMatch("shot.iff", s, 0));
  EXPECT_EQ(s.atFrame(1), Tstring(""));
  Algorithm old(true);
  TimageSequence one;
  ASSERT_EQ(one.setFileNameAndFormat("dir/shot0012", "name####"), 1u);
  EXPECT_EQ(one.atFrame(13), Tstring("dir/shot0013"));
}

// setOffset(100) makes atFrame(1) produce frame 101.
TEST(ImageSequence, OffsetIsAdded) {
  for (bool old : {false, true}) {
    Algorithm a(old);
    TimageSequence s;
    s.setFileNameAndFormat("r/shot.0012.iff", "name.####.ext");
    s.setOffset(100);
    EXPECT_EQ(s.atFrame(1), Tstring("r/shot.0101.iff")) << old;
    Formats f({"name.####.ext"});
    TimageSequence t;
    ASSERT_TRUE(TimageSequence::initializeToBestMatch("r/shot.0012.iff", t, 100));
    EXPECT_EQ(t.atFrame(1), Tstring("r/shot.0101.iff")) << old;
  }
}

TEST(ImageSequence, PaddedNumAndWiderFrames) {
  TimageSequence s;
  s.setFileNameAndFormat("shot.0012.iff", "name.####.ext");
  EXPECT_EQ(s.paddedNum(7), Tstring("0007"));
  EXPECT_EQ(s.paddedNum(123456), Tstring("123456"));  // not cut
  EXPECT_EQ(s.atFrame(123456), Tstring("./shot.123456.iff"));
  EXPECT_EQ(s.paddedNum(-5), Tstring("-005"));
  EXPECT_EQ(s.atFrame(-5), Tstring("./shot.-005.iff"));
}

// Names with several dots, directories with dots, negative frames, frames wider than
// the padding, 10,000-character names, names that are only digits: defined results, no crash.
TEST(ImageSequence, AwkwardNamesHaveDefinedResults) {
  for (bool old : {false, true}) {
    Algorithm a(old);
    TimageSequence s;
    // Several dots: the regex name group takes "my.shot.v2"; the older algorithm needs as many parts.
    if (!old) {
      ASSERT_EQ(s.setFileNameAndFormat("d.1/my.shot.v2.0012.iff", "name.####.ext"), 5u);
      EXPECT_EQ(s.atFrame(3), Tstring("d.1/my.shot.v2.0003.iff"));
    } else {
      EXPECT_FALSE(binds("d.1/my.shot.v2.0012.iff", "name.####.ext"));
    }
    std::string longName(10000, 'x');
    std::string file = "dir/" + longName + ".0012.iff";
    TimageSequence l;
    ASSERT_EQ(l.setFileNameAndFormat(file, "name.####.ext"), old ? 3u : 5u);
    EXPECT_EQ(l.atFrame(1), Tstring("dir/" + longName + ".0001.iff"));
    std::string longDigits(10000, '7');
    EXPECT_FALSE(binds((longDigits + ".iff").c_str(), "name.####.ext"));
    // A frame of 10,000 digits binds "name.#.ext" (no leading zero). The regex algorithm renumbers
    // only groups that are 32-bit integers, so the name comes back as it was; the older one
    // substitutes the digits it found.
    TimageSequence w;
    ASSERT_EQ(w.setFileNameAndFormat("a." + longDigits + ".iff", "name.#.ext"), old ? 3u : 5u);
    EXPECT_EQ(w.atFrame(5), Tstring(old ? "./a.5.iff" : "./a." + longDigits + ".iff"));
    // A name that is only digits: with the regex algorithm every integer group is renumbered.
    TimageSequence d;
    if (!old) {
      ASSERT_EQ(d.setFileNameAndFormat("123.0012.iff", "name.####.ext"), 5u);
      EXPECT_EQ(d.atFrame(4), Tstring("./0004.0004.iff"));
    } else {
      ASSERT_EQ(d.setFileNameAndFormat("123.0012.iff", "name.####.ext"), 3u);
      EXPECT_EQ(d.atFrame(4), Tstring("./123.0004.iff"));
    }
    EXPECT_FALSE(binds("0012", "name.####.ext"));
  }
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
