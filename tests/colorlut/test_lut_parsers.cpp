// LUT files: the trial order, every parser, real files against OpenColorIO, malformed files.
#include <gtest/gtest.h>
#include <vora/colorlut.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "foundation/status.h"
#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA "/lut/";

struct Read {
  std::unique_ptr<TccLut> lut;
  std::string parser, why;
};

Read readFile(const std::string& path) {
  TfileStream s(path.c_str());
  const char* p = nullptr;
  Read r;
  Tstring why;
  r.lut.reset(TccLutFile::read(s, &p, &why));
  r.parser = p ? p : "";
  r.why = why.str();
  if (!r.lut) {
    EXPECT_EQ(vora::lastStatus().text(), r.why);
  }
  return r;
}

Read readText(const std::string& text) {
  vt::TempDir d;
  std::ofstream(d.path("x.lut"), std::ios::binary) << text;
  return readFile(d.path("x.lut"));
}

TscLutColor at(const TccLut& l, float r, float g, float b) {
  TscLutColor o(0, 0, 0, 0);
  l.convert(TscLutColor(r, g, b), o);
  return o;
}

// Largest difference from OpenColorIO's outputs (refs/<name>.tsv) over its 160 points.
double diffFromOcio(const TccLut& l, const std::string& name) {
  std::ifstream t(kData + "refs/" + name + ".tsv");
  std::string line;
  double worst = 0;
  int rows = 0;
  while (std::getline(t, line)) {
    if (line.empty() || line[0] == '#' || line[0] == 'r') continue;
    std::istringstream ss(line);
    float r, g, b, R, G, B;
    ss >> r >> g >> b >> R >> G >> B;
    TscLutColor o = at(l, r, g, b);
    worst = std::max({worst, double(std::fabs(o.red - R)), double(std::fabs(o.green - G)), double(std::fabs(o.blue - B))});
    ++rows;
  }
  EXPECT_EQ(rows, 160) << name;
  return worst;
}

std::string cspHeader(const std::string& kind) {
  return "CSPLUTV100\n" + kind + "\n\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 1\n0 1\n\n";
}

}  // namespace

// Real files of all six formats load with the parser the trial order picks, and agree with
// OpenColorIO within 1e-5 where it reads them the same way.
TEST(LutParsers, RealFilesTakenByTheTrialOrderAgreeWithOpenColorIo) {
  struct Case {
    const char* file;
    const char* parser;  // "" = no parser takes it
    const char* why;
  } cases[] = {
      {"sat12_cinespace_9.csp", "TccLutParserCSP", "ociobakelut cinespace"},
      {"ocio/lut3d_arbitrary.csp", "TccLutParserCSP", "pre-LUTs and a cube"},
      {"ocio/lut3d_red-only.csp", "TccLutParserCSP", ""},
      {"ocio/lut3d_grn-only.csp", "TccLutParserCSP", ""},
      {"ocio/lut3d_blu-only.csp", "TccLutParserCSP", ""},
      {"swapgb_iridas_9.look", "TccLutParserIRIDAS", ""},
      {"ocio/FileFormatIridasLook_tests_simple3d.look", "TccLutParserIRIDAS", "OCIO's own sample"},
      {"sat12_resolve_cube_9.cube", "TccLutParserARRICUBE", "a 3D-only .cube"},
      {"swapgb_iridas_cube_9.cube", "TccLutParserARRICUBE", ""},
      {"ocio/discreet-3d-lut.3dl", "TccLutParserTALLOW", "its shaper is exactly 0, 64, ..., 960, 1023"},
      {"ocio/lustre_33x33x33.3dl", "TccLutParserTALLOW", "3DMESH / Mesh 5 12 with the fixed shaper"},
  };
  for (const Case& c : cases) {
    Read r = readFile(kData + c.file);
    ASSERT_TRUE(r.lut) << c.file;
    EXPECT_EQ(r.parser, c.parser) << c.file;
    std::string name = std::string(c.file).substr(std::string(c.file).rfind('/') + 1);
    EXPECT_LE(diffFromOcio(*r.lut, name), 1e-5) << c.file;
  }
}

// Where the parsers deliberately differ from OpenColorIO, each difference is named.
TEST(LutParsers, DeliberateDifferencesFromOpenColorIo) {
  // Integer 1D tables divide by 2^n (256 for 8-bit values), OpenColorIO by 2^n - 1.
  for (const char* f : {"discreet_gamma2.2_3x256.lut", "ocio/logtolin_8to8.lut"}) {
    Read r = readFile(kData + f);
    ASSERT_TRUE(r.lut) << f;
    EXPECT_EQ(r.parser, "TccLutParserMORAINE") << f;
    EXPECT_NEAR(at(*r.lut, 1.0f, 1.0f, 1.0f).red, 255.0f / 256.0f, 1e-6) << f;
    double d = diffFromOcio(*r.lut, std::string(f).substr(std::string(f).rfind('/') + 1));
    EXPECT_GT(d, 1e-5) << f;
    EXPECT_LE(d, 1.0 / 256 + 1e-6) << f;  // at most the scale's difference at the top
  }
  // AVID triples: OpenColorIO has no reader; the same integers as the Discreet file give the same
  // table here.
  Read avid = readFile(kData + "avid_gamma2.2_256.lut");
  ASSERT_TRUE(avid.lut);
  EXPECT_EQ(avid.parser, "TccLutParserAVID");
  Read disc = readFile(kData + "discreet_gamma2.2_3x256.lut");
  for (float x : {0.1f, 0.5f, 0.9f}) EXPECT_EQ(at(*avid.lut, x, x, x).green, at(*disc.lut, x, x, x).green);
  // ociobakelut's flame .3dl has the shaper 0 64 ... 512 575 639 ... 1023 (rounded i*1023/16), not
  // the exact one TALLOW requires: TALLOW refuses it and AVID (tried after it) takes the whole file
  // as a 1D table of triples, its shaper line included.
  Read flame = readFile(kData + "g22_flame_17.3dl");
  ASSERT_TRUE(flame.lut);
  EXPECT_EQ(flame.parser, "TccLutParserAVID");
  EXPECT_EQ(flame.lut->kind(), uint32_t(TccLut::kTable));
  EXPECT_EQ(flame.lut->table().size(), 17u * 17 * 17 + 1);
  // ociobakelut's lustre file for a 9-point cube: "Mesh 3 12" and a 9-value shaper line. Only a
  // 17-integer line is a shaper here, so that line is the first data line: TALLOW takes the file
  // with its lattice shifted by one point, far from OpenColorIO's reading.
  Read lustre = readFile(kData + "sat12_lustre_9.3dl");
  ASSERT_TRUE(lustre.lut);
  EXPECT_EQ(lustre.parser, "TccLutParserTALLOW");
  EXPECT_GT(diffFromOcio(*lustre.lut, "sat12_lustre_9.3dl"), 0.1);
  // "12to16fp": OpenColorIO takes the Discreet values as 16-bit floats; MORAINE reads integers
  // scaled by 2^n (65536 here).
  Read fp = readFile(kData + "ocio/Test_12to16fp.lut");
  ASSERT_TRUE(fp.lut);
  EXPECT_EQ(fp.parser, "TccLutParserMORAINE");
  EXPECT_GT(diffFromOcio(*fp.lut, "Test_12to16fp.lut"), 0.1);
}

TEST(LutParsers, FilesNoParserTakes) {
  struct Case {
    const char* file;
    const char* why;
  } cases[] = {
      {"g045_resolve_cube_9.cube", "a 1D-only .cube (LUT_1D_SIZE): no ARRICUBE file"},
      {"ocio/iridas_1d.cube", "1D"},
      {"ocio/iridas_3d.cube", "DOMAIN_MIN/MAX follow the size line: no keyword may"},
      {"ocio/resolve_1d3d.cube", "1D and 3D with LUT_1D_INPUT_RANGE"},
      {"ocio/crosstalk.3dl", "a 16-bit shaper (TALLOW) and a comment first (AVID)"},
      {"ocio/error_truncated_file.3dl", "truncated (OCIO fails too)"},
      {"ocio/error_truncated_file.lut", "truncated (OCIO fails too)"},
      {"ocio/legacy_flmlk_desat.lut", "OCIO fails too"},
      {"ocio/legacy_slog_to_log_v3_lustre.lut", "OCIO fails too"},
  };
  for (const Case& c : cases) EXPECT_FALSE(readFile(kData + c.file).lut) << c.file << ": " << c.why;
}

// Files written in the test: which parser takes each (none: ""), and one value it must give.
TEST(LutParsers, TrialOrderAndEachParsersRules) {
  std::string csp = cspHeader("1D") + "2\n0 0 0\n1 1 1\n", crlf;
  for (char c : csp) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  std::string triples;  // 4913 integer triples: TALLOW before AVID (a 17^3 cube scaled by 1/4095)
  for (int k = 0; k < 4913; ++k) triples += std::to_string(k % 17 * 200) + " 0 4095\n";
  std::string shaper, mesh;
  for (int i = 0; i < 16; ++i) shaper += std::to_string(64 * i) + " ";
  for (int k = 0; k < 4913; ++k) mesh += "0 1 2\n";
  std::string cube2 = "TITLE \"x\"\n# c\nLUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) cube2 += "0.5 0.25 1\n# between\n";
  // IRIDAS pieces: a short piece at a line end stands alone, not joined to the next line.
  std::string look = "<?xml version=\"1.0\" ?>\n<look>\n <LUT>\n  <size>\"2\"</size>\n  <data>\n";
  std::string one = "0000803f", zero = "00000000", data, second = one;
  for (int i = 0; i < 24; ++i) data += (i % 3 == 0) ? one : zero;
  for (int i = 0; i < 21; ++i) second += zero;
  auto t0 = [](const TccLut& l) { return l.table()[0]; };
  struct Case {
    const char* what;
    std::string text;
    const char* parser;
    std::function<float(const TccLut&)> value;
    float want;
  } cases[] = {
      {"CSP with LF", csp, "TccLutParserCSP", nullptr, 0},
      {"CSP with CR LF: refused by all six", crlf, "", nullptr, 0},
      {"AVID with CR LF (sscanf)", "0 0 0\r\n255 255 255\r\n", "TccLutParserAVID", nullptr, 0},
      {"4913 triples", triples, "TccLutParserTALLOW", [&](const TccLut& l) { return t0(l).blue; }, 1.0f},
      {"4913 triples, blue fastest", triples, "TccLutParserTALLOW", [](const TccLut& l) { return l.table()[3 * 17 * 17].red; }, 600.0f / 4095.0f},
      {"few triples", "0 0 0\n100 100 100\n", "TccLutParserAVID", nullptr, 0},
      {"MORAINE largest 2047: / 4096", "# a comment\nLUT: 1 3\n0\n# inside\n1000\n2047\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[2].green; }, 2047.0f / 4096.0f},
      {"MORAINE channel by channel", "LUT: 3 2\n0\n255\n10\n20\n30\n40\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[1].blue; }, 40.0f / 256.0f},
      {"MORAINE 1023: / 1024", "LUT: 1 2\n0\n1023\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[1].red; }, 1023.0f / 1024.0f},
      {"MORAINE 65535: / 65536", "LUT: 1 2\n0\n65535\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[1].red; }, 65535.0f / 65536.0f},
      {"MORAINE 100: / 256", "LUT: 1 2\n0\n100\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[1].red; }, 100.0f / 256.0f},
      {"MORAINE largest 0", "LUT: 1 2\n0\n0\n", "TccLutParserMORAINE", [](const TccLut& l) { return l.table()[1].red; }, 0.0f},
      {"MORAINE zero entries", "LUT: 1 0\n", "TccLutParserMORAINE", [](const TccLut& l) { return float(l.table().size()); }, 0.0f},
      {"ARRICUBE size 1", "TITLE \"x\"\nLUT_3D_SIZE 1\n0 0 0\n", "", nullptr, 0},
      {"ARRICUBE size 2 with comments", cube2, "TccLutParserARRICUBE", [&](const TccLut& l) { return t0(l).green; }, 0.25f},
      {"IRIDAS on one line", look + data + "\n", "TccLutParserIRIDAS", [&](const TccLut& l) { return t0(l).red; }, 1.0f},
      {"IRIDAS short piece at a line end", look + one + "0000\n" + second + "\n", "TccLutParserIRIDAS", [&](const TccLut& l) { return t0(l).blue; }, 1.0f},
      {"TALLOW shaper ending 1023", "3DMESH\nMesh 4 12\n" + shaper + "1023\n" + mesh, "TccLutParserTALLOW", nullptr, 0},
      {"TALLOW shaper ending 4095: refused by all", "3DMESH\nMesh 4 12\n" + shaper + "4095\n" + mesh, "", nullptr, 0},
      {"CSP 2D", cspHeader("2D"), "", nullptr, 0},
  };
  for (const Case& c : cases) {
    Read r = readText(c.text);
    EXPECT_EQ(r.parser, c.parser) << c.what;
    EXPECT_EQ(bool(r.lut), *c.parser != 0) << c.what;
    if (r.lut && c.value) {
      EXPECT_FLOAT_EQ(c.value(*r.lut), c.want) << c.what;
    }
  }
}

TEST(LutParsers, CspMetadataCommentsAndOneDimensional) {
  std::string text = "CSPLUTV100\n1D\nBEGIN METADATA\nanything 1 2 3\nEND METADATA\n"
                     "3\n0 0.5 1\n0 0.25 1\n0\nnone\nnone\n2\n0 1\n0 1\n# a comment\n3\n0 0 0\n0.5 0.5 0.5\n1 1 1\n";
  Read r = readText(text);
  ASSERT_TRUE(r.lut);
  EXPECT_EQ(r.lut->kind(), uint32_t(TccLut::kTable));
  EXPECT_EQ(r.lut->preLut(0).size() * 10 + r.lut->preLut(1).size(), 30u);  // a count of 0: empty
  EXPECT_FLOAT_EQ(at(*r.lut, 0.5f, 0.5f, 0.5f).red, 0.25f);                // through the red pre-LUT
  EXPECT_EQ(TccLutFile::getExtensions(), (kt::set<Tstring>{"3dl", "csp", "cube", "look", "lut"}));
  TfileStream closed, missing("/nonexistent/x.cube");
  EXPECT_EQ(TccLutFile::read(closed), nullptr);
  EXPECT_EQ(TccLutFile::read(missing), nullptr);
}

// Empty files, binary garbage, huge declared sizes, NaN and infinite
// values, missing lines: read returns null without crashing or allocating more than the file holds.
TEST(LutParsersMalformed, GarbageAndHugeSizes) {
  EXPECT_FALSE(readText("").lut);
  std::string garbage;
  for (int i = 0; i < 5000; ++i) garbage += char((i * 7919) % 256);
  EXPECT_FALSE(readText(garbage).lut);
  EXPECT_FALSE(readText("LUT_3D_SIZE 100000\n0 0 0\n").lut);
  EXPECT_FALSE(readText("LUT_3D_SIZE 2147483647\n0 0 0\n").lut);
  EXPECT_FALSE(readText("CSPLUTV100\n3D\n2147483647\n0 1\n0 1\n").lut);
  EXPECT_FALSE(readText(cspHeader("3D") + "2000000 2000000 2000000\n0 0 0\n").lut);
  EXPECT_FALSE(readText("LUT: 3 2000000000\n0\n1\n").lut);
  EXPECT_FALSE(readText("3DMESH\nMesh 10 12\n0 0 0\n1 1 1\n").lut);  // lattice of 1025^3
  EXPECT_FALSE(readText("3DMESH\nMesh 4 0\n0 0 0\n").lut);            // output scale of zero
  std::string iridas = "<?xml version=\"1.0\" ?>\n<look>\n<LUT>\n<size>\"1000\"</size>\n<data>\n0000803f\n";
  EXPECT_FALSE(readText(iridas).lut);
  EXPECT_FALSE(readText("LUT_3D_SIZE 2\n1 2 3\n").lut);  // missing lines
  // The reason given is the one of the parser that read furthest, at the file's line number.
  EXPECT_EQ(readText("\n\nLUT_3D_SIZE 2\n0 0 0\n\n1 x 1\n").why, "line 6: three numbers expected (ARRICUBE)");
  EXPECT_EQ(readText("CSPLUTV100\n2D\n").why, "line 2: \"1D\" or \"3D\" expected (CSP)");
}

TEST(LutParsersMalformed, NanAndInfiniteValuesGiveDefinedResults) {
  std::string cube = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) cube += i % 2 ? "nan inf -inf\n" : "0.5 0.5 0.5\n";
  Read r = readText(cube);
  ASSERT_TRUE(r.lut);  // the values are what the file says; the lookup follows the arithmetic
  TscLutColor o = at(*r.lut, 0.25f, 0.25f, 0.25f);
  EXPECT_TRUE(std::isnan(o.red));
  // Even at an exact lattice point a NaN neighbour gives NaN: lerp is a + (b - a) x 0.
  EXPECT_TRUE(std::isnan(at(*r.lut, 0.0f, 0.0f, 0.0f).red));
  std::string allFinite = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) allFinite += "0.5 0.5 0.5\n";
  Read f = readText(allFinite);
  EXPECT_FLOAT_EQ(at(*f.lut, NAN, INFINITY, -INFINITY).red, 0.5f);
}
