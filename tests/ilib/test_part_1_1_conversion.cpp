// Part 1.1: foreign files through converter programs (input and output conversion), for real.
#include <gtest/gtest.h>
#include <vora/ilib.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/test_support.h"

using vt::Bytes;

namespace {

// A 6 x 4 binary PPM: a file no native reader knows.
Bytes ppm(int w, int h) {
  Bytes b;
  vt::text(b, "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n");
  b.resize(b.size() + size_t(w * h * 3), 0x7f);
  return b;
}

std::string slurp(const std::string& path) {
  std::ifstream f(path);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

// Puts a converter named rastx (our test program) first on PATH, logging its calls.
struct FakeRastx {
  explicit FakeRastx(const vt::TempDir& d)
      : bin(d.path("bin")),
        log(d.path("rastx.log")),
        path("PATH", (bin + ":" + std::string(getenv("PATH"))).c_str()),
        logEnv("TCONV_LOG", log.c_str()) {
    vt::run("mkdir -p '" + bin + "' && ln -sf '" VORA_TCONV "' '" + bin + "/rastx'");
  }
  std::string bin, log;
  vt::ScopedEnv path, logEnv;
};

class Conversion : public ::testing::Test {
 protected:
  void SetUp() override {
    ILinfilter(nullptr);
    ILoutfilter(nullptr);
    saved = ilconfig;
    ilconfig = 0;
    children = vt::childCount();
  }
  void TearDown() override {
    ILinfilter(nullptr);
    ILoutfilter(nullptr);
    ilconfig = saved;
    EXPECT_EQ(vt::childCount(), children) << "a converter process was left behind";
  }
  uint32_t saved = 0;
  int children = 0;
  vt::TempDir d;
  vt::ScopedEnv icvt{"ILICVT", nullptr};
  vt::ScopedEnv ocvt{"ILOCVT", nullptr};
};

}  // namespace

TEST_F(Conversion, IlicvtProgramSeesTheWholeFileThroughPushBack) {
  vt::writeFile(d.path("a.ppm"), ppm(6, 4));
  vt::ScopedEnv env("ILICVT", VORA_TCONV " ppm2iff");
  ILimage* img = ILopen(d.path("a.ppm").c_str(), "r");
  ASSERT_NE(img, nullptr) << FLstrerror(flerrno);
  int w, h;
  ASSERT_EQ(ILgetsize(img, &w, &h), 0);
  EXPECT_EQ(w, 6);  // the converter parsed "P6\n6 4": the 8 bytes the parse took came back
  EXPECT_EQ(h, 4);
  EXPECT_EQ(ILgettype(img), IL_COLOR);
  EXPECT_TRUE(img->flags & FL_FILTER);
  EXPECT_EQ(ILclose(img), 0);
}

TEST_F(Conversion, InfilterOverridesTheEnvironment) {
  vt::writeFile(d.path("b.ppm"), ppm(3, 2));
  vt::ScopedEnv env("ILICVT", "/nonexistent/converter");
  ILinfilter(VORA_TCONV " ppm2iff");
  ILimage* img = ILopen(d.path("b.ppm").c_str(), "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 3u);
  ILclose(img);
}

TEST_F(Conversion, DefaultConverterReadsTheFileByNameThroughAPipe) {
  FakeRastx rastx(d);
  vt::writeFile(d.path("c.ppm"), ppm(5, 7));
  ILimage* img = ILopen(d.path("c.ppm").c_str(), "r");
  ASSERT_NE(img, nullptr) << FLstrerror(flerrno);
  EXPECT_EQ(ILgetstate(img), uint32_t(IL_ST_READ));
  EXPECT_TRUE(img->flags & FL_PIPE);
  EXPECT_EQ(ILgetheader(img)->height, 7u);
  ILclose(img);
  // "pipe:%s %s stdout" with the default "rastx -s".
  EXPECT_EQ(slurp(rastx.log), "argv0 -s " + d.path("c.ppm") + " stdout\n");
}

TEST_F(Conversion, DefaultConverterOnAFilterStreamGetsEverythingAfterTheFirstDot) {
  // A ".gz" name is read through gzip (a filter stream, flag 0x100), so the default command
  // becomes "rastx -sf" + everything after the first '.': deliberately "ppm.gz" here.
  FakeRastx rastx(d);
  vt::writeFile(d.path("pic.ppm"), ppm(4, 3));
  ASSERT_EQ(vt::run("gzip -c '" + d.path("pic.ppm") + "' > '" + d.path("pic.ppm.gz") + "'"), 0);
  ILimage* img = ILopen(d.path("pic.ppm.gz").c_str(), "r");
  ASSERT_NE(img, nullptr) << FLstrerror(flerrno);
  EXPECT_EQ(ILgetheader(img)->width, 4u);
  ILclose(img);
  EXPECT_EQ(slurp(rastx.log), "argv0 -sf ppm.gz\n");
}

TEST_F(Conversion, SecondAttemptUsesTheDefaultConverter) {
  // The first command (cat) yields no native image; the second attempt wraps "rastx -s".
  FakeRastx rastx(d);
  vt::writeFile(d.path("e.ppm"), ppm(2, 9));
  ILinfilter("cat");
  ILimage* img = ILopen(d.path("e.ppm").c_str(), "r");
  ASSERT_NE(img, nullptr) << FLstrerror(flerrno);
  EXPECT_EQ(ILgetstate(img), uint32_t(IL_ST_READ));
  EXPECT_EQ(ILgetheader(img)->height, 9u);
  ILclose(img);
  EXPECT_EQ(slurp(rastx.log), "argv0 -s\n");
}

TEST_F(Conversion, MissingConverterGives111WithoutHanging) {
  vt::writeFile(d.path("f.ppm"), ppm(2, 2));
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");  // no rastx anywhere
  EXPECT_EQ(ILopen(d.path("f.ppm").c_str(), "r"), nullptr);
  EXPECT_EQ(flerrno, 111);
  ILinfilter("no-such-converter-program -x");
  EXPECT_EQ(ILopen(d.path("f.ppm").c_str(), "r"), nullptr);
  EXPECT_EQ(flerrno, 111);
}

TEST_F(Conversion, ConverterThatFailsGivesNoImage) {
  // The command starts but writes nothing: not native, then the default converter is missing.
  vt::writeFile(d.path("g.ppm"), ppm(2, 2));
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");
  ILinfilter(VORA_TCONV " fail");
  EXPECT_EQ(ILopen(d.path("g.ppm").c_str(), "r"), nullptr);
  EXPECT_EQ(flerrno, 111);
}

TEST_F(Conversion, CompressedNativeImageReadsTransparently) {
  std::string p = d.path("n.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  ILsetsize(img, 33, 44);
  ILputheader(img);
  ILclose(img);
  ASSERT_EQ(vt::run("gzip -k '" + p + "'"), 0);
  img = ILopen((p + ".gz").c_str(), "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->height, 44u);
  ILclose(img);
}

TEST_F(Conversion, OutputConverterCatWritesTheSameImage) {
  std::string direct = d.path("direct.iff"), viaCat = d.path("cat.iff");
  ILconfig(IL_CFG_NOOUTCVT, 0);
  ILoutfilter("cat");
  ILimage* img = ILopen(viaCat.c_str(), "w");
  ASSERT_NE(img, nullptr);
  EXPECT_TRUE(img->flags & FL_FILTER);
  ILsetsize(img, 12, 13);
  ASSERT_EQ(ILputheader(img), 0);
  ASSERT_EQ(ILclose(img), 0);
  ILoutfilter(nullptr);
  img = ILopen(direct.c_str(), "w");
  ILsetsize(img, 12, 13);
  ILputheader(img);
  ILclose(img);
  Bytes a = vt::readFile(direct), b = vt::readFile(viaCat);
  ASSERT_EQ(a.size(), b.size());
  // Identical but for the DATE text (the last 24 bytes), which may tick between the two.
  EXPECT_EQ(vt::hex(Bytes(a.begin(), a.end() - 24)), vt::hex(Bytes(b.begin(), b.end() - 24)));
}

TEST_F(Conversion, IlocvtFromTheEnvironmentAndConfigBits) {
  std::string p = d.path("up.iff");
  {
    vt::ScopedEnv env("ILOCVT", VORA_TCONV " upper");
    ILimage* img = ILopen(p.c_str(), "w");
    ILputheader(img);
    ASSERT_EQ(ILclose(img), 0);
    Bytes b = vt::readFile(p);
    ASSERT_GT(b.size(), 12u);
    EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 12), "CIMG");
    std::string all(b.begin(), b.end());
    std::string auth = all.substr(all.find("AUTH") + 8, 6);
    EXPECT_EQ(auth, [&] {  // the converter upper-cased the text
      std::string s = auth;
      for (char& c : s) c = char(toupper(c));
      return s;
    }());
    // Bit 1: never run the output converter.
    ILconfig(IL_CFG_NOOUTCVT, 1);
    img = ILopen(p.c_str(), "w");
    EXPECT_FALSE(img->flags & FL_FILTER);
    ILclose(img);
    ILconfig(IL_CFG_NOOUTCVT, 0);
    // "pipe:" names get it only with bit 2.
    std::string pipeName = "pipe:cat > '" + d.path("p.iff") + "'";
    img = ILopen(pipeName.c_str(), "w");
    ASSERT_NE(img, nullptr);
    EXPECT_FALSE(img->flags & FL_FILTER);
    EXPECT_EQ(ILgetcompress(img), IL_NONE);  // a pipe that cannot seek defaults to no compression
    ILclose(img);
    ILconfig(IL_CFG_PIPEOUTCVT | IL_CFG_PIPERLE, 1);
    img = ILopen(pipeName.c_str(), "w");
    ASSERT_NE(img, nullptr);
    EXPECT_TRUE(img->flags & FL_FILTER);
    ILclose(img);
    ILconfig(IL_CFG_PIPEOUTCVT, 0);
  }
  ILimage* pipe = ILopen(("pipe:cat > '" + d.path("q.iff") + "'").c_str(), "w");
  EXPECT_EQ(ILgetcompress(pipe), IL_RLE);  // bit 4 keeps RLE on pipes
  ILclose(pipe);
}

TEST_F(Conversion, MissingOutputConverterGives111) {
  ILoutfilter("no-such-output-converter");
  EXPECT_EQ(ILopen(d.path("x.iff").c_str(), "w"), nullptr);
  EXPECT_EQ(flerrno, 111);
}

TEST_F(Conversion, FailingOutputConverterReportedAtClose) {
  ILoutfilter(VORA_TCONV " fail");
  ILimage* img = ILopen(d.path("y.iff").c_str(), "w");
  ASSERT_NE(img, nullptr);
  ILputheader(img);
  EXPECT_EQ(ILclose(img), 111);
}

TEST_F(Conversion, PipeNamesReadAndWrite) {
  std::string p = d.path("w.iff");
  ILimage* img = ILopen(("pipe:cat > '" + p + "'").c_str(), "w");
  ASSERT_NE(img, nullptr);
  ILsetsize(img, 21, 22);
  ASSERT_EQ(ILputheader(img), 0);
  ASSERT_EQ(ILclose(img), 0);
  img = ILopen(("pipe:cat '" + p + "'").c_str(), "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 21u);
  EXPECT_EQ(ILclose(img), 0);
}

TEST_F(Conversion, ReaderClosingEarlyLeavesNoChildBehind) {
  // A converter that would write for ever: closing after the header must still end it.
  std::string p = d.path("big.iff");
  ILimage* img = ILopen(p.c_str(), "w");
  ILputheader(img);
  ILclose(img);
  std::string cmd = "pipe:cat '" + p + "'; yes";
  img = ILopen(cmd.c_str(), "r");
  ASSERT_NE(img, nullptr);
  ASSERT_NE(ILgetheader(img), nullptr);
  EXPECT_EQ(ILclose(img), 0);
}
