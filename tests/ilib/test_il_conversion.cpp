// Foreign files through converter programs (input and output conversion), for real.
#include <gtest/gtest.h>
#include <vora/ilib.h>

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
  // ILinfilter wins over the environment.
  vt::ScopedEnv wrong("ILICVT", "/nonexistent/converter");
  ILinfilter(VORA_TCONV " ppm2iff");
  img = ILopen(d.path("a.ppm").c_str(), "r");
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(ILgetheader(img)->width, 6u);
  ILclose(img);
}

// The default converter, "rastx -s", gets the file by name ("pipe:%s %s stdout"); on a filter
// stream (a ".gz" name) it becomes "rastx -sf" + everything after the first '.' (deliberately
// "ppm.gz"); when a given command (cat) yields no native image, a second attempt wraps "rastx -s".
TEST_F(Conversion, DefaultConverterCommands) {
  FakeRastx rastx(d);
  vt::writeFile(d.path("c.ppm"), ppm(5, 7));
  ASSERT_EQ(vt::run("gzip -c '" + d.path("c.ppm") + "' > '" + d.path("g.ppm.gz") + "'"), 0);
  struct Case {
    std::string file;
    const char* infilter;
    std::string log;
  } cases[] = {{"c.ppm", nullptr, "argv0 -s " + d.path("c.ppm") + " stdout\n"},
               {"g.ppm.gz", nullptr, "argv0 -sf ppm.gz\n"},
               {"c.ppm", "cat", "argv0 -s\n"}};
  for (const Case& c : cases) {
    vt::run("rm -f '" + rastx.log + "'");
    ILinfilter(c.infilter);
    ILimage* img = ILopen(d.path(c.file).c_str(), "r");
    ASSERT_NE(img, nullptr) << c.file << ": " << FLstrerror(flerrno);
    EXPECT_EQ(ILgetheader(img)->width * 10 + ILgetheader(img)->height, 57u) << c.file;
    if (!c.infilter && c.file == "c.ppm") {
      EXPECT_TRUE(img->flags & FL_PIPE);
    }
    ILclose(img);
    EXPECT_EQ(vt::readText(rastx.log), c.log) << c.file;
  }
}

// A converter that is missing, or that starts and writes nothing: 111, without hanging.
TEST_F(Conversion, MissingOrFailingConvertersGive111) {
  vt::writeFile(d.path("f.ppm"), ppm(2, 2));
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");  // no rastx anywhere
  for (const char* filter : {static_cast<const char*>(nullptr), "no-such-converter-program -x", VORA_TCONV " fail"}) {
    ILinfilter(filter);
    EXPECT_EQ(ILopen(d.path("f.ppm").c_str(), "r"), nullptr) << (filter ? filter : "default");
    EXPECT_EQ(flerrno, 111) << (filter ? filter : "default");
  }
  ILoutfilter("no-such-output-converter");
  EXPECT_EQ(ILopen(d.path("x.iff").c_str(), "w"), nullptr);
  EXPECT_EQ(flerrno, 111);
  ILoutfilter(VORA_TCONV " fail");  // reported at close
  ILimage* img = ILopen(d.path("y.iff").c_str(), "w");
  ASSERT_NE(img, nullptr);
  ILputheader(img);
  EXPECT_EQ(ILclose(img), 111);
}

TEST_F(Conversion, OutputConverterCatWritesTheSameImage) {
  std::string direct = d.path("direct.iff"), viaCat = d.path("cat.iff");
  ILconfig(IL_CFG_NOOUTCVT, 0);
  for (const char* filter : {"cat", static_cast<const char*>(nullptr)}) {
    ILoutfilter(filter);
    ILimage* img = ILopen((filter ? viaCat : direct).c_str(), "w");
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(bool(img->flags & FL_FILTER), filter != nullptr);
    ASSERT_EQ(ILsetsize(img, 12, 13) | ILputheader(img) | ILclose(img), 0);
  }
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
    std::string all = vt::readText(p);
    EXPECT_EQ(all.substr(8, 4), "CIMG");
    std::string auth = all.substr(all.find("AUTH") + 8, 6);
    for (char c : auth) EXPECT_FALSE(islower(c)) << auth;  // the converter upper-cased the text
    ILconfig(IL_CFG_NOOUTCVT, 1);  // bit 1: never run the output converter
    img = ILopen(p.c_str(), "w");
    EXPECT_FALSE(img->flags & FL_FILTER);
    ILclose(img);
    ILconfig(IL_CFG_NOOUTCVT, 0);
    // "pipe:" names get it only with bit 2; a pipe that cannot seek defaults to no compression.
    std::string pipeName = "pipe:cat > '" + d.path("p.iff") + "'";
    for (bool bit2 : {false, true}) {
      ILconfig(IL_CFG_PIPEOUTCVT, bit2 ? 1 : 0);
      img = ILopen(pipeName.c_str(), "w");
      ASSERT_NE(img, nullptr);
      EXPECT_EQ(bool(img->flags & FL_FILTER), bit2);
      if (!bit2) {
        EXPECT_EQ(ILgetcompress(img), IL_NONE);
      }
      ILclose(img);
    }
    ILconfig(IL_CFG_PIPEOUTCVT, 0);
  }
  ILconfig(IL_CFG_PIPERLE, 1);  // bit 4 keeps RLE on pipes
  ILimage* pipe = ILopen(("pipe:cat > '" + d.path("q.iff") + "'").c_str(), "w");
  EXPECT_EQ(ILgetcompress(pipe), IL_RLE);
  ILclose(pipe);
}

// pipe: names both ways, gzip-compressed native images, and a reader closing early on a
// converter that would write for ever (the fixture checks that no child is left behind).
TEST_F(Conversion, PipesGzipAndEarlyClose) {
  std::string p = d.path("w.iff");
  ILimage* img = ILopen(("pipe:cat > '" + p + "'").c_str(), "w");
  ASSERT_NE(img, nullptr);
  ASSERT_EQ(ILsetsize(img, 21, 22) | ILputheader(img) | ILclose(img), 0);
  ASSERT_EQ(vt::run("gzip -k '" + p + "'"), 0);
  for (std::string name : {"pipe:cat '" + p + "'", p + ".gz", "pipe:cat '" + p + "'; yes"}) {
    img = ILopen(name.c_str(), "r");
    ASSERT_NE(img, nullptr) << name;
    ASSERT_NE(ILgetheader(img), nullptr) << name;
    EXPECT_EQ(ILgetheader(img)->width, 21u) << name;
    EXPECT_EQ(ILclose(img), 0) << name;
  }
}
