// vimg end to end: info, convert, lut, seq. Pixels are compared through ImageMagick (a peer) or
// through the library; reports by the lines a user reads.
#include <gtest/gtest.h>
#include <vora/colorlut.h>
#include <vora/ilib.h>
#include <vora/photoshop.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/psd_builder.h"
#include "support/test_support.h"

namespace {

using vt::Bytes;
using vt::vimg;
const std::string kData = VORA_TEST_DATA;
const std::string kPng = kData + "/iff/rgba8_70x66_rle.png", kIff = kData + "/iff/rgba8_70x66_rle.iff";

// Pixels of any image as 8-bit RGBA, top row first, through ImageMagick.
std::string rgba(const std::string& path) {
  std::string out;
  vt::run("convert '" + path + "' -depth 8 rgba:- | sha256sum", &out);
  return out.substr(0, 64);
}

// Runs vimg and expects each of the texts in what it printed.
void expectSays(const std::string& args, int status, std::initializer_list<std::string> texts) {
  std::string out;
  EXPECT_EQ(vimg(args, &out), status) << args << "\n" << out;
  for (const std::string& t : texts) EXPECT_NE(out.find(t), std::string::npos) << args << ": " << t << "\n" << out;
}

}  // namespace

TEST(Vimg, InfoTextJsonChunksAndErrors) {
  expectSays("info " + kData + "/iff/rgba16_33x20_rle.iff", 0,
             {"size         33 x 20", "type         RGB with Alpha", "bytes        2 per channel",
              "compression  RLE", "version      0x00010000"});
  expectSays("info --chunks --json " + kIff, 0,
             {"{\"files\":[{", "\"width\":70,\"height\":66", "{\"id\":\"TBHD\",\"offset\":12,\"size\":32}",
              "\"type\":\"TBMP\"", "{\"id\":\"RGBA\",\"offset\":12944,\"size\":43}"});
  vt::TempDir d;
  vt::writeFile(d.path("x.txt"), {'h', 'i', '\n'});
  vt::ScopedEnv path("PATH", "/usr/bin:/bin");
  std::string out;
  EXPECT_NE(vimg("info " + d.path("x.txt"), &out), 0);
  EXPECT_EQ(out.find('\n'), out.size() - 1) << out;  // one line
  EXPECT_NE(out.find(d.path("x.txt") + ": not a native image"), std::string::npos) << out;
  expectSays("info --json " + d.path("missing.iff"), 1, {"\"error\":\"the file cannot be opened: No such file or directory\""});
}

TEST(Vimg, ConvertNativeImagesBothWays) {
  vt::TempDir d;
  std::string ref = rgba(kPng), info;
  ASSERT_EQ(vimg("convert " + kIff + " " + d.path("a.png")), 0);
  EXPECT_EQ(rgba(d.path("a.png")), ref);
  for (const char* comp : {"none", "rle", "qr4"}) {
    std::string iff = d.path(std::string(comp) + ".iff");
    ASSERT_EQ(vimg("convert " + kPng + " " + iff + " --compress " + comp), 0);
    ILimage* img = ILopen(iff.c_str(), "r");
    EXPECT_STRCASEEQ(ILcompressname(ILgetcompress(img)), comp);
    ILclose(img);
    for (const char* ext : {"png", "tif"}) {
      ASSERT_EQ(vimg("convert " + iff + " " + d.path(std::string(comp) + "." + ext)), 0);
      EXPECT_EQ(rgba(d.path(std::string(comp) + "." + ext)), ref) << comp << " " << ext;
    }
  }
  std::string t = d.path("t.iff");
  ASSERT_EQ(vimg("convert " + kPng + " " + t + " --tile 32x16 --bits 16 --top-down"), 0);
  expectSays("info --tiles " + t, 0, {"bytes        2 per channel", "tile chunks  15", "RGBA (0,50)-(31,65)"});  // top band first
  ASSERT_EQ(vimg("convert " + t + " " + d.path("t.png")), 0);
  EXPECT_EQ(rgba(d.path("t.png")), ref);
  ASSERT_EQ(vimg("convert " + kData + "/iff/rgb8_40x30_rle.iff " + d.path("a.ppm")), 0);
  ASSERT_EQ(vimg("convert " + d.path("a.ppm") + " " + d.path("b.iff")), 0);
  ASSERT_EQ(vimg("convert " + d.path("b.iff") + " " + d.path("c.jpg")), 0);
  expectSays("info " + d.path("b.iff"), 0, {"RGB without Alpha"});
  expectSays("convert " + d.path("missing.png") + " " + d.path("x.iff"), 1, {"missing.png"});
  EXPECT_NE(vimg("convert " + kIff + " " + d.path("x.iff") + " --compress zip"), 0);
}

TEST(Vimg, ConvertSgiBothWays) {
  vt::TempDir d;
  std::string ref = rgba(kPng);
  for (const char* comp : {"rle", "none"})
    for (const char* bits : {"8", "16"}) {
      std::string sgi = d.path(std::string("a_") + comp + bits + ".sgi");
      ASSERT_EQ(vimg("convert " + kIff + " " + sgi + " --compress " + comp + " --bits " + bits), 0);
      expectSays("info " + sgi, 0, {std::string("storage      ") + (std::string(comp) == "rle" ? "run-length" : "verbatim"), "4 channels"});
      EXPECT_EQ(rgba(sgi), ref) << comp << bits;  // ImageMagick reads ours
      ASSERT_EQ(vimg("convert " + sgi + " " + d.path("back.png")), 0);
      EXPECT_EQ(rgba(d.path("back.png")), ref);
    }
  // Channel counts by extension: .bw grey, .rgb RGB.
  ASSERT_EQ(vimg("convert " + kData + "/sgi/im_gray8_50x20_rle.sgi " + d.path("g.bw")), 0);
  expectSays("info " + d.path("g.bw"), 0, {"50 x 20, 1 channel\n"});
  EXPECT_EQ(rgba(d.path("g.bw")), rgba(kData + "/sgi/im_gray8_50x20_rle.sgi"));
  ASSERT_EQ(vimg("convert " + kIff + " " + d.path("c.rgb")), 0);
  expectSays("info " + d.path("c.rgb"), 0, {"3 channels"});
}

TEST(Vimg, LutInfoEvalAndApply) {
  const std::string lut = kData + "/lut/";
  expectSays("lut info " + lut + "ocio/lut3d_arbitrary.csp", 0, {"parser       TccLutParserCSP", "kind         3D cube"});
  expectSays("lut info --json " + lut + "g22_flame_17.3dl", 0, {"\"parser\":\"TccLutParserAVID\",\"kind\":\"1D table\",\"entries\":4914"});
  expectSays("lut info " + lut + "g045_resolve_cube_9.cube", 1, {"not a LUT file of a known format"});
  std::string out;
  ASSERT_EQ(vimg("lut eval " + lut + "swapgb_iridas_cube_9.cube 0.5 0.25 0.75", &out), 0);
  EXPECT_EQ(out, "0.5 0.75 0.25\n");
  ASSERT_EQ(vimg("lut eval " + lut + "discreet_gamma2.2_3x256.lut 1 1 1", &out), 0);
  EXPECT_EQ(out, "0.99609375 0.99609375 0.99609375\n");  // 255 / 256
  expectSays("lut eval --json " + lut + "swapgb_iridas_9.look 0.5 0.25 0.75", 0,
             {"\"parser\":\"TccLutParserIRIDAS\",\"in\":[0.5,0.25,0.75],\"out\":[0.5,0.75,0.25]"});
  vt::TempDir d;
  ASSERT_EQ(vimg("lut apply " + lut + "sat12_resolve_cube_9.cube " + kIff + " " + d.path("o.iff")), 0);
  std::vector<uint8_t> a(70 * 66 * 4), b(a.size());
  for (auto [path, buf] : {std::pair<std::string, uint8_t*>{kIff, a.data()}, {d.path("o.iff"), b.data()}}) {
    ILimage* img = ILopen(path.c_str(), "r");
    ASSERT_EQ(ILload(img, buf, nullptr), 0);
    ILclose(img);
  }
  TfileStream s((lut + "sat12_resolve_cube_9.cube").c_str());
  std::unique_ptr<TccLut> cube(TccLutFile::read(s));
  ccLutApplyBGRA8(*cube, nullptr, a.data(), 70 * 66, 1);
  EXPECT_EQ(a, b);
  ASSERT_EQ(vimg("convert " + kIff + " " + d.path("w.iff") + " --bits 16"), 0);  // 16-bit goes through floats
  EXPECT_EQ(vimg("lut apply --lin2log " + lut + "swapgb_iridas_9.look " + d.path("w.iff") + " " + d.path("w2.iff")), 0);
}

// 32-bit float pixels read as 8 bits (clamped); the depth channel as a grey picture.
TEST(Vimg, FloatPixelsAndTheDepthPreview) {
  vt::TempDir d;
  ASSERT_EQ(vimg("convert " + kData + "/iff/float_rgba_3x2.iff " + d.path("f.png")), 0);
  const Bytes row = {0xbf, 0x7f, 0x3f, 0, 0x1f, 0, 0xff, 0xff, 0x0c, 0xe5, 0x99, 0x4c};
  EXPECT_EQ(rgba(d.path("f.png")), vt::sha256(vt::cat({row, row})));
  ILimage* img = ILopen(d.path("z.iff").c_str(), "w");
  const float z[4] = {0, 2, 4, 6};
  const Bytes px(16);
  ASSERT_EQ(ILsetsize(img, 2, 2) | ILsettype(img, IL_COLOR | IL_ZBUFFER) | ILsave(img, px.data(), z, 0) | ILclose(img), 0);
  ASSERT_EQ(vimg("depth " + d.path("z.iff") + " " + d.path("z.png")), 0);
  std::string grey;
  vt::run("convert '" + d.path("z.png") + "' -depth 8 gray:- | od -An -tx1 | tr -d ' \\n'", &grey);
  EXPECT_EQ(grey, "9b3700ff");  // top row first: 155, 55; then 0 (no depth), 255 (nearest)
  expectSays("depth " + kIff + " " + d.path("x.png"), 1, {"has no depth channel"});
}

// identify and copy: the front end from the command line, with the failures said once.
TEST(Vimg, IdentifyAndCopyThroughTheFrontEnd) {
  vt::TempDir d;
  expectSays("identify " + kIff + " " + kData + "/psd/gimp_rgb8_layers.psd", 0, {"vora 70x66", "psd 24x16"});
  ASSERT_EQ(vimg("copy " + kData + "/psd/gimp_rgb8_layers.psd " + d.path("doc.png") + " --format png --size 12x8"), 0);
  expectSays("identify " + d.path("doc.png"), 0, {"png 12x8"});
  expectSays("copy " + d.path("missing.png") + " " + d.path("x.iff"), 1, {"missing.png: cannot be read"});
  expectSays("ifftoany " + d.path("x.gif") + " " + kIff + " --format nosuch", 2, {"unknown format nosuch"});
}

TEST(Vimg, SeqGroupsFilesAndNamesFrames) {
  vt::TempDir d;
  for (int f : {1, 2, 3, 4, 6, 10, 11, 12}) vt::writeFile(d.path("shot." + std::string(4 - std::to_string(f).size(), '0') + std::to_string(f) + ".iff"), {});
  for (int f : {7, 8, 9, 10, 99, 100, 1000, 1001}) vt::writeFile(d.path("plate_" + std::to_string(f) + ".exr"), {});
  for (const char* f : {"notes.txt", "take-0001-final.dpx", "take-0002-final.dpx"}) vt::writeFile(d.path(f), {});
  // An unpadded sequence stays one sequence though 1000 and 1001 also fit name####.ext.
  expectSays("seq " + d.dir(), 0,
             {d.dir() + "/shot.####.iff  1-4,6,10-12  (8 frames; missing 5,7-9)",
              d.dir() + "/plate_#.exr  7-10,99-100,1000-1001  (8 frames; missing 11-98,101-999)", d.dir() + "/notes.txt\n",
              "take-0001-final.dpx\n"});
  expectSays("seq --json " + d.dir(), 0,
             {"\"pattern\":\"shot.####.iff\",\"first\":1,\"last\":12,\"count\":8,\"frames\":\"1-4,6,10-12\",\"missing\":\"5,7-9\""});
  expectSays("seq " + d.dir() + " --format name####-final.ext", 0, {"take-####-final.dpx  1-2  (2 frames)"});
  const std::pair<std::string, std::string> frames[] = {
      {"/shots/a.b/shot.0012.iff 7", "/shots/a.b/shot.0007.iff\n"},
      {"shot.0012.iff 123456", "shot.123456.iff\n"},
      {"shot.12.iff 7 --format name.#.ext", "shot.7.iff\n"},  // formats given replace the defaults
  };
  std::string out;
  for (const auto& [args, want] : frames) {
    ASSERT_EQ(vimg("seq frame " + args, &out), 0) << args;
    EXPECT_EQ(out, want);
  }
  expectSays("seq frame shot.0012.iff 7 --format name.#.ext", 1, {"fits none of the formats"});
}

// A 32768 x 32768 native image of four tiny tiles (a few hundred bytes) is refused at once,
// before anything is allocated; the memory limit refuses what the file could hold.
TEST(VimgMalformed, DeclaredSizesTheFileCannotHoldAreRefusedAtOnce) {
  vt::TempDir d;
  Bytes tiles;
  for (uint16_t i = 0; i < 4; ++i) {
    Bytes t;
    for (uint16_t v : {uint16_t(i * 8192), uint16_t(0), uint16_t(i * 8192 + 8191), uint16_t(32767)}) vt::be16(t, v);
    t.insert(t.end(), {0xFF, 1, 0xFF, 2});
    tiles = vt::cat({tiles, vt::chunk("RGBA", t)});
  }
  for (uint32_t compress : {IL_RLE, IL_QRL, IL_QR4}) {
    vt::writeFile(d.path("bomb.iff"), vt::group("FOR4", "CIMG", vt::cat({vt::chunk("TBHD", vt::tbhd(32768, 32768, 3, 0, 4, compress)),
                                                                        vt::group("FOR4", "TBMP", tiles)})));
    expectSays("convert " + d.path("bomb.iff") + " " + d.path("out.png"), 1, {"bomb.iff: image too large", "(error 110)"});
    auto t0 = std::chrono::steady_clock::now();
    ILimage* img = ILopen(d.path("bomb.iff").c_str(), "r");
    EXPECT_EQ(ILcanload(img), IL_ETOOLARGE);
    Bytes line(32768 * 4);
    EXPECT_EQ(ILreadline(img, line.data(), nullptr), IL_ETOOLARGE);
    ILclose(img);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(100)) << compress;
  }
  ASSERT_EQ(vt::run("convert -size 1000x1000 xc:red '" + d.path("big.png") + "' && convert '" + d.path("big.png") + "' '" + d.path("big.sgi") + "'"), 0);
  ASSERT_EQ(vimg("convert " + d.path("big.png") + " " + d.path("big.iff")), 0);
  for (const char* in : {"big.iff", "big.sgi"}) expectSays("--max-memory 1 convert " + d.path(in) + " " + d.path("o.png"), 1, {in});
  EXPECT_EQ(vimg("--max-memory 8 convert " + d.path("big.iff") + " " + d.path("o.png")), 0);
}

TEST(VimgMalformed, OneLineNamingTheFileAndWhatWasWrong) {
  vt::TempDir d;
  std::string out;
  EXPECT_EQ(vimg("psd info " + d.path("missing.psd"), &out), 1);
  EXPECT_EQ(out, "vimg: " + d.path("missing.psd") + ": cannot be opened: No such file or directory\n");
  Bytes sgi = vt::readFile(kData + "/sgi/im_rgba8_150x12_rle.sgi");
  sgi.resize(sgi.size() / 2);
  vt::writeFile(d.path("cut.sgi"), sgi);
  EXPECT_EQ(vimg("convert " + d.path("cut.sgi") + " " + d.path("o.png"), &out), 1);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
  EXPECT_NE(out.find("getrow: error on read of row"), std::string::npos) << out;
  // Damaged pixel data: where the reading stopped.
  EXPECT_EQ(vimg("convert " + kData + "/iff/bad/rle-runs-past-their-tile.iff " + d.path("o.png"), &out), 1);
  EXPECT_NE(out.find("packed data overruns its tile, reading stopped at offset 96 (error 23)"), std::string::npos) << out;
  EXPECT_EQ(vimg("info " + kData + "/iff/bad/no-tbhd.iff", &out), 1);  // damage found in the header
  EXPECT_NE(out.find("no image header before the end of the image, reading stopped at offset 36"), std::string::npos) << out;
  // A layer of 57 channels after a good one: described as far as it was read, then the failure.
  vt::psd::Document doc;
  doc.layers.resize(2);
  doc.layers[0].name = "good", doc.layers[1].name = "many";
  doc.layers[1].channels.assign(57, vt::psd::rawChannel(0, {}));
  vt::writeFile(d.path("many.psd"), vt::psd::build(doc));
  EXPECT_EQ(vimg("psd info " + d.path("many.psd"), &out), 1);
  EXPECT_NE(out.find("[0] \"good\""), std::string::npos) << out;
  EXPECT_NE(out.find("many.psd: Invalid information read from file (described as far as it was read: 1 layer records)"),
            std::string::npos) << out;
  // Grey stays grey in formats that have grey.
  ASSERT_EQ(vimg("convert " + kData + "/sgi/im_gray8_50x20_rle.sgi " + d.path("g.png")), 0);
  std::string channels;
  vt::run("identify -format '%[channels]' '" + d.path("g.png") + "'", &channels);
  EXPECT_EQ(channels, "gray");
}

// Every Photoshop document here, including ag-psd's nested sets and GIMP's documents with names of
// 128 and 200 characters (which the signed name-pad rule misreads): info, JSON, every layer read and the
// composite end with status 0, or 1 and one failure line, never by a signal.
TEST(VimgMalformed, EveryDocumentThroughEveryPsdCommand) {
  vt::TempDir d;
  int runs = 0;
  for (const char* name : {"agpsd_layers_rle.psd", "agpsd_layers_zip.psd", "agpsd_effects_adjust.psd", "agpsd_nested_long_names.psd",
                           "im_cmyk8_layers_rle.psd", "im_gray8_layers_rle.psd", "im_rgb16_layers_rle.psd",
                           "gimp_rgb8_long_name.psd", "gimp_rgb16_long_name.psd"}) {
    const std::string doc = kData + "/psd/" + name;
    std::vector<std::string> commands = {"psd info " + doc, "psd info --json " + doc,
                                         "psd extract " + doc + " --composite " + d.path("c.png")};
    ktPhotoshop::TphotoshopFile* f = nullptr;
    ASSERT_EQ(ktPhotoshop::openPsdFile(doc.c_str(), f, true), ktPhotoshop::kSuccess) << name;
    std::unique_ptr<ktPhotoshop::TpsdFile> psd(static_cast<ktPhotoshop::TpsdFile*>(f));
    try {
      psd->readAllLayerRecordInformation();
    } catch (const ktPhotoshop::TpsdException&) {  // the records read before stay
    }
    for (const auto& l : psd->layers())
      if (l->width() && l->height()) commands.push_back("psd extract " + doc + " --layer '" + l->name.str() + "' " + d.path("l.png"));
    for (const std::string& c : commands) {
      std::string out;
      int status = vimg(c, &out);
      size_t failureLines = 0;
      for (size_t at = out.find("vimg: "); at != std::string::npos; at = out.find("vimg: ", at + 1))
        failureLines += out.compare(at, 14, "vimg: warning:") != 0 && out.find(name, at) != std::string::npos;
      EXPECT_TRUE(status == 0 || (status == 1 && failureLines >= 1)) << c << " status " << status << "\n" << out;
      ++runs;
    }
  }
  EXPECT_GT(runs, 40);
}
