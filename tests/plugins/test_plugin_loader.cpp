// Plug-in discovery and loading, run in fresh processes (tests/tools/plugin_driver.cpp) on test
// plug-ins built by the suite: the exact messages, the table rows, the search path, the warnings
// of the first scan only, loading from several threads; then a file through the IMF library.
#include <gtest/gtest.h>
#include <vora/foundation/dynamic_load.h>
#include <vora/imf.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

const std::string kPlugins = VORA_TEST_PLUGINS;

struct Plugins {
  vt::TempDir d;
  std::string a = d.path("A"), b = d.path("B"), home = d.path("X"), fallback = d.path("X") + "/bin/plug-ins/image/";
  Plugins() {
    vt::run("mkdir -p '" + a + "/dir.so' '" + b + "' '" + fallback + "'");
    for (const char* p : {"valid", "wrongtype", "trailing", "nullkey", "oldabi"})
      vt::run("cp '" + kPlugins + "/" + p + ".so' '" + a + "/'");
    vt::run("cp '" + kPlugins + "/valid.so' '" + b + "/'");
    vt::writeFile(a + "/notlib.so", {'n', 'o', '\n'});
    vt::writeFile(a + "/.hidden.so", {}), vt::writeFile(a + "/symbols.pdb", {});
  }
  // Runs the driver with the environment given ("" unsets); out gets standard output, err standard error.
  int driver(const std::string& args, const std::string& path, const std::string& location, std::string& out,
             std::string& err, const char* program = VORA_PLUGIN_DRIVER) {
    auto set = [](const char* n, const std::string& v) { return v.empty() ? "" : std::string(n) + "='" + v + "' "; };
    out.clear();
    int r = vt::run("cd '" + d.dir() + "' && env -u IMF_PLUG_IN_PATH -u VORA_LOCATION " + set("IMF_PLUG_IN_PATH", path) +
                        set("VORA_LOCATION", location) + program + " " + args + " 2> err.txt",
                    &out);
    err = vt::readText(d.path("err.txt"));
    return r;
  }
};

}  // namespace

TEST(PluginLoader, MessagesTableRowsAndWarningsOfTheFirstScanOnly) {
  Plugins s;
  std::string out, err;
  ASSERT_EQ(s.driver("scan 2", s.a + ";" + s.b, s.home, out, err), 0) << err;
  const std::string perScan = "File " + s.a + "/dir.so is a directory.\n" + "Cannot open plugin " + s.a + "/notlib.so: ";
  const std::string rest = "Error; plugin " + s.a + "/nullkey.so has no key.\n" + "Error: plugin " + s.a +
                           "/trailing.so does not have valid entry point type/name\n" + "Error: plugin " + s.a +
                           "/wrongtype.so does not have valid entry point type/name\n";
  // The override warning (no closing quote, as it always was) in the first scan only.
  const std::string warning = "WARNING: local IMF plug-in `" + s.a + "/valid.so' overrides `" + s.b + "/valid.so\n";
  size_t second = err.find("-- scan 2\n");
  ASSERT_NE(second, std::string::npos) << err;
  const std::string one = err.substr(0, second), two = err.substr(second);
  EXPECT_EQ(one.find("-- scan 1\n" + warning + perScan), 0u) << one;
  EXPECT_NE(one.find(".\n" + rest), std::string::npos) << one;
  EXPECT_EQ(two.find("-- scan 2\n" + perScan), 0u) << two;
  EXPECT_EQ(two.find("WARNING"), std::string::npos);
  EXPECT_EQ(err.find("VORA_LOCATION"), std::string::npos);
  // Three rows a scan (the second scan adds them again); one format, the first of its key.
  const std::string rows = "row oldabi.so old\nrow valid.so tst\nrow valid.so tst\n";
  EXPECT_NE(out.find("dir " + s.a + "/\ndir " + s.b + "/\ndir " + s.fallback + "\n" + rows + rows + "format tst " + s.a +
                     "/valid.so\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("refused " + s.a + "/oldabi.so: entry-point table of version 0, this library takes 1 to 2\n"), std::string::npos) << out;
  EXPECT_NE(out.find("refused " + s.b + "/valid.so: key \"tst\" is taken by " + s.a + "/valid.so\n"), std::string::npos) << out;
}

TEST(PluginLoader, SearchPathDefaultDirectoryAndInvalidDirectories) {
  Plugins s;
  std::string out, err;
  // The default directory already listed (without its "/") is not added again.
  ASSERT_EQ(s.driver("scan 1", s.b + ";" + s.home + "/bin/plug-ins/image", s.home, out, err), 0);
  EXPECT_EQ(out.substr(0, out.find("row")), "dir " + s.b + "/\ndir " + s.fallback + "\n");
  EXPECT_EQ(err, "-- scan 1\n");
  // No IMF_PLUG_IN_PATH: the default directory alone.
  ASSERT_EQ(s.driver("scan 1", "", s.home, out, err), 0);
  EXPECT_EQ(out, "dir " + s.fallback + "\n");
  // No VORA_LOCATION: said once; the empty default lists the working directory; a directory
  // that cannot be listed is said once too.
  ASSERT_EQ(s.driver("scan 2", "/nonexistent;;", "", out, err), 0);
  const std::string one = err.substr(0, err.find("-- scan 2"));
  EXPECT_EQ(one.find("-- scan 1\nVORA_LOCATION is unset.\nIMF plugin path invalid:/nonexistent/\nFile A is a directory.\n"), 0u) << one;
  EXPECT_EQ(err.find("unset", err.find("-- scan 2")), std::string::npos) << err;
  EXPECT_EQ(out.substr(0, out.find("row")), "dir /nonexistent/\ndir \n");
}

// One thread loads, the others wait; also ten times built with ThreadSanitizer, no race reported.
TEST(PluginLoader, EightThreadsLoadOnce) {
  Plugins s;
  std::vector<const char*> drivers{VORA_PLUGIN_DRIVER};
#ifdef VORA_PLUGIN_DRIVER_TSAN
  drivers.insert(drivers.end(), 10, VORA_PLUGIN_DRIVER_TSAN);
#endif
  for (const char* program : drivers) {
    std::string out, err;
    ASSERT_EQ(s.driver("threads", s.a, s.home, out, err, program), 0) << err;
    EXPECT_EQ(err.find("ThreadSanitizer"), std::string::npos) << err;
    EXPECT_EQ(out.substr(out.find("row")), "row oldabi.so old\nrow valid.so tst\nformat tst " + s.a + "/valid.so\nrefused " +
                                               s.a + "/oldabi.so: entry-point table of version 0, this library takes 1 to 2\n");
  }
}

namespace {
int handOver(void** library, char** name) {
  static TdynamicLoad lib;
  static std::string path = kPlugins + "/valid.so";
  if (lib.handle()) return 0;
  lib.open(path.c_str(), 0);
  *library = lib.handle(), *name = path.data();
  return 1;
}
}  // namespace

// A picture written and read back through the IMF library and the test plug-in; the records a
// caller could not size buffers by are refused before the plug-in runs.
TEST(Imf, WriteReadAndRefusals) {
  ERR_mask_s(0);  // failures are read from IMF_last_error here
  ASSERT_EQ(IMF_init(0, handOver), 0);
  const IMF_format* f = IMF_find("TST");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(IMF_find("tst"), f);
  // A further extension finds the format (in a run of the whole suite, the first build of this
  // plug-in registered, all of which name the same); names are made with the first extension.
  ASSERT_NE(IMF_find("TSX"), nullptr);
  EXPECT_STREQ(IMF_find("TSX")->extension, "tst");
  EXPECT_STREQ(f->extension, "tst");
  EXPECT_EQ(f->flags & IMF_MULTIFRAME, 0u);
  vt::TempDir d;
  IMF_info info;
  IMF_info_init(&info);
  const std::string path = d.path("a.tst");
  info.name = path.c_str(), info.key = "tst";
  info.image.xMax = 4, info.image.yMax = 2, info.image.colorChannels = 3, info.image.topDown = 1;
  IMF_object* w = IMF_open(&info, "w");
  ASSERT_NE(w, nullptr) << IMF_last_error();
  int n = 0;
  void** planes = IMF_chan_alloc(&w->image, 5, &n);
  ASSERT_EQ(n, 3);
  // Line y, sample c of pixel x is 100c + 10y + x; lines go as planes, record pixels, BGRA8 pixels
  // (the test plug-in has a version 1 table: the library splits pixels into planes for it).
  auto value = [](int c, int y, int x) { return uint8_t(100 * c + 10 * y + x); };
  std::vector<uint8_t> pixels(20);
  for (int y = 0; y < 3; ++y) {
    for (int c = 0; c < 3; ++c)
      for (int x = 0; x < 5; ++x) {
        static_cast<uint8_t*>(planes[c])[x] = value(c, y, x);
        pixels[size_t(y == 1 ? 3 * x + c : 4 * x + 2 - c)] = value(c, y, x);
      }
    ASSERT_EQ(y == 0 ? IMF_scan_write(w, y, planes) : IMF_scan_write_pixels(w, y, y == 1 ? IMF_PIXELS_RECORD : IMF_PIXELS_BGRA8, pixels.data()), 0);
  }
  EXPECT_EQ(IMF_scan_write(w, 3, planes), -1);
  EXPECT_EQ(IMF_scan_write_pixels(w, 2, 7, pixels.data()), -1);
  ASSERT_EQ(IMF_close(w), 0);
  EXPECT_EQ(vt::hex(vt::readFile(path)).substr(0, 24 + 6), "5453543105000000030000000064c8");
  EXPECT_STREQ(IMF_get_file_type(path.c_str(), 0, nullptr), "tst");
  IMF_info_init(&info);
  info.name = path.c_str();
  IMF_object* r = IMF_open(&info, "r");
  ASSERT_NE(r, nullptr);
  for (int y = 0; y < 3; ++y) {
    std::fill(pixels.begin(), pixels.end(), 0);
    ASSERT_EQ(y == 2 ? IMF_scan_read(r, y, planes) : IMF_scan_read_pixels(r, y, y == 0 ? IMF_PIXELS_BGRA8 : IMF_PIXELS_RECORD, pixels.data()), 0);
    for (int c = 0; c < 3; ++c)
      for (int x = 0; x < 5; ++x) {
        const uint8_t got = y == 2 ? static_cast<uint8_t*>(planes[c])[x] : pixels[size_t(y == 1 ? 3 * x + c : 4 * x + 2 - c)];
        EXPECT_EQ(got, value(c, y, x)) << "line " << y << " sample " << c << " pixel " << x;
      }
    if (y == 0) {
      EXPECT_EQ(pixels[3], 255);  // no matte: opaque
    }
  }
  EXPECT_EQ(IMF_set_frame(r, 1), -1);
  EXPECT_EQ(IMF_close(r), 0);
  IMF_chan_free(planes);
  // Records no buffer can be sized by, and files no plug-in claims.
  for (auto bad : {std::array<int, 4>{0, -1, 3, 8}, {0, 0, 2, 8}, {0, 0, 3, 12}, {0, 1 << 21, 3, 8}}) {
    IMF_info_init(&info);
    info.name = path.c_str(), info.key = "tst";
    info.image.xMax = bad[0], info.image.yMax = bad[1], info.image.colorChannels = bad[2], info.image.colorBits = bad[3];
    EXPECT_EQ(IMF_open(&info, "w"), nullptr) << bad[1] << " " << bad[2] << " " << bad[3];
  }
  const std::string shortFile = d.path("short.tst");
  vt::writeFile(shortFile, {'T', 'S', 'T', '1', 9});
  IMF_info_init(&info);
  info.name = shortFile.c_str();
  EXPECT_EQ(IMF_open(&info, "r"), nullptr);
  EXPECT_EQ(IMF_last_error(), shortFile + ": not a test image");
  EXPECT_EQ(IMF_get_file_type(d.path("missing").c_str(), 0, nullptr), nullptr);
}

// The interleaving kernels (vectorised per shape) against the plain per-sample loop, at widths
// around the vector lengths and the shapes that have no kernel of their own.
TEST(Imf, PlanesJoinAndSplitAsThePlainLoop) {
  std::mt19937 rng(5);
  for (int bytes : {1, 2, 4})
    for (int count = 1; count <= 5; ++count)
      for (int width : {0, 1, 15, 33, 1000}) {
        std::vector<std::vector<uint8_t>> planes(size_t(count), std::vector<uint8_t>(size_t(width * bytes)));
        std::vector<const void*> in;
        for (auto& p : planes) {
          for (auto& v : p) v = uint8_t(rng());
          in.push_back(p.data());
        }
        std::vector<uint8_t> line(size_t(width * bytes * count) + 1, 0xAB), want(line);
        for (int x = 0; x < width; ++x)
          for (int c = 0; c < count; ++c)
            memcpy(&want[size_t((x * count + c) * bytes)], &planes[size_t(c)][size_t(x * bytes)], size_t(bytes));
        IMF_planes_join(in.data(), count, bytes, width, line.data());
        ASSERT_EQ(line, want) << bytes << " bytes, " << count << " planes, width " << width;
        std::vector<std::vector<uint8_t>> back(size_t(count), std::vector<uint8_t>(size_t(width * bytes)));
        std::vector<void*> out;
        for (auto& p : back) out.push_back(p.data());
        IMF_line_split(line.data(), count, bytes, width, out.data());
        ASSERT_EQ(back, planes) << bytes << " bytes, " << count << " planes, width " << width;
      }
}
