// The bundled format plug-ins, through the IMF library, against ImageMagick and OpenImageIO: files
// the peers wrote are read as the peers read them, files written here are read by the peers as
// the pictures given, at every channel layout and depth of each format; damaged files fail cleanly.
#include <gtest/gtest.h>
#include <vora/foundation/dynamic_load.h>
#include <vora/imf.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

// Which of a peer's channels gives red, green, blue and alpha: grey to all three colours, the
// last of two or four as alpha; -1 for none.
int peerChannel(int c, int channels) { return c < 3 ? (channels >= 3 ? c : 0) : (channels == 2 || channels == 4 ? channels - 1 : -1); }

// Pixels as red, green, blue, alpha of 16 bits, top row first.
struct Rgba {
  int w = 0, h = 0;
  std::vector<uint16_t> px;
};

void loadBundled() {
  static std::once_flag once;
  std::call_once(once, [] {
    static std::vector<std::string> files;
    for (const auto& e : fs::directory_iterator(VORA_PLUGIN_DIR)) files.push_back(e.path().string());
    static size_t next = 0;
    static std::vector<TdynamicLoad> libraries(files.size());  // kept loaded for the process, as the loader does
    ERR_mask_s(0);
    IMF_init(0, [](void** library, char** name) -> int {
      if (next >= files.size()) return 0;
      TdynamicLoad* lib = &libraries[next];
      *library = lib->open(files[next].c_str(), 0) ? lib->handle() : nullptr;
      *name = files[next++].data();
      return 1;
    });
  });
}

uint16_t to16(const void* plane, int x, const IMF_image& r) {
  if (r.colorBits == 8) return uint16_t(static_cast<const uint8_t*>(plane)[x] * 257);
  if (r.colorBits == 16) return static_cast<const uint16_t*>(plane)[x];
  const float v = static_cast<const float*>(plane)[x];
  return uint16_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 65535.0f));
}

// What the plug-in reads from frame `frame` of a file; w == 0 when it cannot.
// Reads lines as planes (layout 0) or as interleaved pixels (IMF_PIXELS_*; BGRA8 of 8-bit files).
Rgba ours(const std::string& file, int frame = 0, IMF_image* record = nullptr, int layout = 0) {
  loadBundled();
  IMF_info info;
  IMF_info_init(&info);
  info.name = file.c_str();
  IMF_object* o = IMF_open(&info, "r");
  Rgba out;
  if (!o || (frame && IMF_set_frame(o, frame) != frame)) return o ? (IMF_close(o), out) : out;
  const IMF_image& r = o->image;
  if (record) *record = r;
  out.w = r.xMax - r.xMin + 1, out.h = r.yMax - r.yMin + 1;
  out.px.assign(size_t(out.w) * out.h * 4, 65535);
  void** planes = IMF_chan_alloc(&r, out.w, nullptr);
  if (layout == IMF_PIXELS_BGRA8 && r.colorBits != 8) layout = IMF_PIXELS_RECORD;
  std::vector<uint8_t> pixels(size_t(out.w) * 4 * 4);
  for (int l = 0; l < out.h; ++l) {
    if ((layout ? IMF_scan_read_pixels(o, l, layout, pixels.data()) : IMF_scan_read(o, l, planes)) != 0) {
      out.w = 0;
      break;
    }
    uint16_t* d = &out.px[size_t(r.topDown ? l : out.h - 1 - l) * out.w * 4];
    if (layout == IMF_PIXELS_BGRA8) {
      for (int x = 0; x < out.w * 4; ++x) d[x] = uint16_t(pixels[size_t(x - x % 4 + (x % 4 < 3 ? 2 - x % 4 : 3))] * 257);
      continue;
    }
    if (layout == IMF_PIXELS_RECORD) IMF_line_split(pixels.data(), r.colorChannels + r.matteChannels, r.colorBits / 8, out.w, planes);
    for (int x = 0; x < out.w; ++x)
      for (int c = 0; c < 4; ++c) {
        const int plane = c < 3 ? (r.colorChannels == 3 ? c : 0) : r.colorChannels;
        if (c < 3 || r.matteChannels) d[x * 4 + c] = to16(planes[plane], x, r);
      }
  }
  IMF_chan_free(planes);
  IMF_close(o);
  return out;
}

// What a peer reads: ImageMagick ("im") as straight RGBA, or OpenImageIO ("oiio").
Rgba peer(const std::string& file, const std::string& who, int frame = 0) {
  vt::TempDir d;
  Rgba out;
  std::string size;
  const std::string raw = d.path("p.raw");
  if (who == "im") {
    const std::string in = "'" + file + "[" + std::to_string(frame) + "]'";
    if (vt::run("convert " + in + " -coalesce -format '%w %h' info:", &size) != 0) return out;
    vt::run("convert " + in + " -coalesce -depth 16 -endian LSB -define quantum:format=integer rgba:'" + raw + "'");
  } else if (who == "oiio-floats") {  // floats as they are, made 16-bit as ours() makes them
    if (vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py floats '" + file + "' '" + raw + "'", &size) != 0) return out;
    int channels = 0;
    sscanf(size.c_str(), "%d %d %d", &out.w, &out.h, &channels);
    const vt::Bytes b = vt::readFile(raw);
    const size_t n = size_t(out.w) * out.h;
    if (channels < 1 || b.size() != n * channels * 4) return out.w = 0, out;
    out.px.assign(n * 4, 65535);
    for (size_t i = 0; i < n; ++i)
      for (int c = 0; c < 4; ++c) {
        float v;
        if (peerChannel(c, channels) < 0) continue;
        memcpy(&v, &b[(i * channels + peerChannel(c, channels)) * 4], 4);
        out.px[i * 4 + c] = uint16_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 65535.0f));
      }
    return out;
  } else {
    if (vt::run("/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py read '" + file + "' '" + raw + "' --unassociated", &size) != 0)
      return out;
  }
  int channels = 4, bits = 16;
  sscanf(size.c_str(), "%d %d %d %d", &out.w, &out.h, &channels, &bits);
  const vt::Bytes b = vt::readFile(raw);
  const size_t n = size_t(out.w) * out.h;
  if (b.size() != n * channels * (bits / 8)) return out.w = 0, out;
  out.px.assign(n * 4, 65535);
  for (size_t i = 0; i < n; ++i)
    for (int c = 0; c < 4; ++c) {
      const int from = peerChannel(c, channels);
      if (from < 0) continue;
      const size_t at = (i * channels + from) * (bits / 8);
      out.px[i * 4 + c] = bits == 8 ? uint16_t(b[at] * 257) : uint16_t(b[at] | b[at + 1] << 8);
    }
  return out;
}

// The largest difference of two pictures of one size, or 65536 when they differ in size.
int largest(const Rgba& a, const Rgba& b) {
  if (a.w != b.w || a.h != b.h || a.w == 0) return 65536;
  int m = 0;
  for (size_t i = 0; i < a.px.size(); ++i) m = std::max(m, std::abs(int(a.px[i]) - int(b.px[i])));
  return m;
}

// Peak signal to noise of a lossy copy, in dB (0 when the sizes differ).
double psnr(const Rgba& a, const Rgba& b) {
  return a.w != b.w || a.h != b.h || a.w == 0 ? 0 : vt::psnr(a.px, b.px, 65535.0);
}

// A picture of w x h with a gradient and noise; with colours > 0 only that many colours, with
// colours < 0 smooth.
Rgba picture(int w, int h, unsigned seed, int colours = 0) {
  Rgba p{w, h, std::vector<uint16_t>(size_t(w) * h * 4)};
  std::mt19937 rng(seed);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 4; ++c) {
        int v = c == 3 ? (x * 65535 / (w - 1)) : int((x * 2000 + y * 3000 + c * 9000 + rng() % 4000) % 65536);
        if (colours < 0) v = c == 3 ? 65535 : x * 1000 + y * 1500 + c * 5000;  // smooth, for lossy coding
        else if (colours) v = c == 3 ? (x < w / 2 ? 0 : 65535) : int(((x / 4 + y / 3 + c) % colours) * 65535 / colours);
        p.px[(size_t(y) * w + x) * 4 + c] = uint16_t(v);
      }
  return p;
}

// Writes p through the plug-in with channels (1-4) and bits, its lines as planes (layout 0) or
// as interleaved pixels (IMF_PIXELS_*); returns what the file should hold as RGBA (grey from red,
// no alpha: opaque, 8 bits: the high byte), or w == 0 on failure.
Rgba write(const std::string& file, const char* key, const Rgba& p, int channels, int bits,
           std::vector<const char*> settings = {}, int layout = 0) {
  loadBundled();
  IMF_info info;
  IMF_info_init(&info);
  info.name = file.c_str(), info.key = key;
  IMF_image& r = info.image;
  r.xMax = p.w - 1, r.yMax = p.h - 1, r.topDown = 1;
  r.colorChannels = channels >= 3 ? 3 : 1, r.matteChannels = channels % 2 == 0;
  r.colorBits = bits, r.colorType = bits == 32 ? IMF_TYPE_FLOAT : IMF_TYPE_INT;
  info.settings.items = settings.data(), info.settings.count = int32_t(settings.size());
  Rgba want = p;
  IMF_object* o = IMF_open(&info, "w");
  if (!o) return want.w = 0, want;
  void** planes = IMF_chan_alloc(&r, p.w, nullptr);
  const int n = r.colorChannels + r.matteChannels;
  std::vector<uint8_t> pixels(size_t(p.w) * 4 * 4);
  for (int y = 0; y < p.h; ++y) {
    for (int x = 0; x < p.w; ++x) {
      uint16_t* q = &want.px[(size_t(y) * p.w + x) * 4];
      if (bits == 8)
        for (int c = 0; c < 4; ++c) q[c] = uint16_t((q[c] >> 8) * 257);
      if (r.colorChannels == 1) q[1] = q[2] = q[0];
      if (!r.matteChannels) q[3] = 65535;
      for (int c = 0; c < r.colorChannels + r.matteChannels; ++c) {
        const uint16_t v = q[c == r.colorChannels ? 3 : c];
        if (bits == 8) static_cast<uint8_t*>(planes[c])[x] = uint8_t(v >> 8);
        else if (bits == 16) static_cast<uint16_t*>(planes[c])[x] = v;
        else static_cast<float*>(planes[c])[x] = float(v) / 65535.0f;
      }
      for (int c = 0; layout == IMF_PIXELS_BGRA8 && c < 4; ++c) {  // grey goes as green; what the file drops is noise
        const bool dropped = c == 3 ? !r.matteChannels : c != 1 && r.colorChannels == 1;
        pixels[size_t(x) * 4 + c] = dropped ? uint8_t(x * 7 + c) : uint8_t(q[c < 3 ? 2 - c : 3] >> 8);
      }
    }
    if (layout == IMF_PIXELS_RECORD) IMF_planes_join(planes, n, bits / 8, p.w, pixels.data());
    if ((layout ? IMF_scan_write_pixels(o, y, layout, pixels.data()) : IMF_scan_write(o, y, planes)) != 0) want.w = 0;
  }
  IMF_chan_free(planes);
  if (IMF_close(o) != 0) want.w = 0;
  return want;
}

const std::string kSamples = VORA_TEST_DATA "/plugins";

std::vector<std::string> samples() {
  std::vector<std::string> files;
  for (const auto& e : fs::recursive_directory_iterator(kSamples))
    if (e.is_regular_file()) files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

// Every sample (tests/data/plugins, made by tests/tools/make_plugin_samples.sh) read as its peer
// reads it: exactly, but for JPEG's colour conversions and float rounding.
TEST(PluginInterop, PeerFilesReadAsThePeersReadThem) {
  int files = 0;
  for (const std::string& f : samples()) {
    const std::string ext = fs::path(f).extension().string();
    // ImageMagick reads its own bottom-origin TGA files upside down, and OpenImageIO hands EXR
    // and float TIFF over premultiplied: OpenImageIO is the peer of TGA, ImageMagick of the rest.
    // EXR and Radiance are linear light, which ImageMagick turns into sRGB on reading.
    // OpenImageIO reads JPEG 2000 subsampled by 2 at the reference grid's size, each sample twice
    // (ImageMagick misplaces the samples of its own file).
    const bool halved = f.find("subsampled") != std::string::npos;
    const std::string who = ext == ".tga" || halved ? "oiio" : ext == ".exr" || ext == ".hdr" || ext == ".pfm" ? "oiio-floats" : "im";
    // JPEG: the peers' colour conversions; TIFF palettes are 16-bit, read here at 8 bits.
    const int tolerance = ext == ".jpg" ? 3 * 257 : f.find("palette.tif") != std::string::npos ? 255
                                                  : f.find("float.tif") != std::string::npos ? 1 : 0;
    for (int frame = 0; frame < (f.find("2pages") != std::string::npos || f.find("2frames") != std::string::npos ? 2 : 1); ++frame) {
      // JPEG's lines come as BGRA8 from the codec itself; the others in turn as planes, record
      // pixels and BGRA8.
      const int layout = ext == ".jpg" ? IMF_PIXELS_BGRA8 : files % 3;
      SCOPED_TRACE(f + " frame " + std::to_string(frame) + " layout " + std::to_string(layout));
      const Rgba a = ours(f, frame, nullptr, layout);
      Rgba b = peer(f, who, frame);
      ASSERT_GT(b.w, 0) << "the peer cannot read it";
      for (size_t i = 0; halved && i < a.px.size(); ++i) b.px[i] = b.px[(i / 4 / a.w * 2 * b.w + i / 4 % a.w * 2) * 4 + i % 4];
      if (halved) b = {a.w, a.h, std::vector<uint16_t>(b.px.begin(), b.px.begin() + long(a.px.size()))};
      EXPECT_LE(largest(a, b), tolerance);
    }
    ++files;
  }
  EXPECT_EQ(files, 50);
  // Radiance stored bottom line first (+Y), which OpenImageIO reads upside down: its -Y original.
  const Rgba top = ours(VORA_TEST_DATA "/hdr/flat_5x4.hdr"), bottom = ours(VORA_TEST_DATA "/hdr/flat_5x4_bottom_first.hdr");
  EXPECT_EQ(largest(top, bottom), 0);
}

// Pictures written at each channel layout and depth of each format, read by a peer as given.
TEST(PluginInterop, PeersReadWhatIsWritten) {
  struct Case {
    const char* key;
    const char* ext;
    int channels, bits;
    const char* who;
    int tolerance, colours;
    std::vector<const char*> settings;
    int width = 31;
  } cases[] = {
      {"png", "png", 1, 8, "im", 0, 0, {}},      {"png", "png", 2, 8, "im", 0, 0, {}},
      {"png", "png", 3, 16, "im", 0, 0, {}},     {"png", "png", 4, 16, "oiio", 0, 0, {}},
      {"png", "png", 4, 8, "oiio", 0, 0, {}},    {"tiff", "tif", 1, 8, "im", 0, 0, {}},
      {"tiff", "tif", 3, 16, "oiio", 0, 0, {"compression=lzw"}}, {"tiff", "tif", 4, 8, "im", 0, 0, {"tile=16x16"}},
      {"tiff", "tif", 3, 32, "im", 1, 0, {"compression=none"}},  {"exr", "exr", 3, 32, "oiio-floats", 33, 0, {}},
      {"exr", "exr", 4, 32, "oiio-floats", 0, 0, {"type=float"}}, {"jpeg", "jpg", 3, 8, "im", 36, -1, {"quality=95"}},
      {"jpeg", "jpg", 1, 8, "oiio", 36, -1, {}}, {"gif", "gif", 3, 8, "im", 0, 40, {}},
      {"gif", "gif", 4, 8, "oiio", 0, 40, {}},   {"webp", "webp", 3, 8, "oiio", 0, 0, {}},
      {"webp", "webp", 4, 8, "im", 0, 0, {}},    {"tga", "tga", 1, 8, "oiio", 0, 0, {}},
      {"tga", "tga", 3, 8, "im", 0, 0, {"compression=none"}},   {"tga", "tga", 4, 8, "oiio", 0, 0, {}},
      {"bmp", "bmp", 1, 8, "im", 0, 0, {}},      {"bmp", "bmp", 3, 8, "oiio", 0, 0, {}},
      {"bmp", "bmp", 4, 8, "im", 0, 0, {}},      {"jp2", "jp2", 1, 8, "oiio", 0, 0, {}},
      {"jp2", "jp2", 2, 16, "im", 0, 0, {}},     {"jp2", "j2k", 3, 16, "oiio", 0, 0, {}},
      {"jp2", "jp2", 4, 8, "im", 0, 0, {}},      {"jp2", "jp2", 3, 8, "im", 35, -1, {"ratio=4"}},
      // RGBE: 8 bits of mantissa; lines longer than runs and literals, too short to be coded, black
      {"hdr", "hdr", 3, 32, "oiio-floats", 520, 0, {}, 300}, {"hdr", "hdr", 1, 32, "oiio-floats", 520, 0, {}, 7},
      {"hdr", "hdr", 3, 32, "oiio-floats", 0, 1, {}, 300},
      {"pnm", "pgm", 1, 8, "oiio", 0, 0, {}},    {"pnm", "ppm", 3, 16, "im", 0, 0, {}},
      {"pnm", "pam", 2, 8, "im", 0, 0, {}},      {"pnm", "pam", 4, 16, "im", 0, 0, {}},
      {"pnm", "pfm", 3, 32, "oiio-floats", 0, 0, {}}, {"pnm", "pfm", 1, 32, "oiio-floats", 0, 0, {}},
  };
  vt::TempDir d;
  unsigned seed = 1;
  for (const Case& c : cases) {
    const std::string file = d.path(std::string("w") + std::to_string(seed) + "." + c.ext);
    SCOPED_TRACE(file + " " + std::to_string(c.channels) + " channels, " + std::to_string(c.bits) + " bits, " + c.who);
    const Rgba want = write(file, c.key, picture(c.width, 13, seed++, c.colours), c.channels, c.bits, c.settings);
    ASSERT_GT(want.w, 0) << IMF_last_error();
    const bool lossy = c.colours < 0;
    for (Rgba got : {peer(file, c.who), ours(file)}) {
      if (std::string(c.key) == "gif" && c.channels == 4 && got.px.size() == want.px.size())
        for (size_t i = 3; i < got.px.size(); i += 4)  // a transparent GIF pixel has no colour of its own
          if (want.px[i] == 0) memcpy(&got.px[i - 3], &want.px[i - 3], 6);
      if (lossy) EXPECT_GE(psnr(got, want), c.tolerance) << psnr(got, want);  // dB
      else EXPECT_LE(largest(got, want), c.tolerance);
    }
  }
}

// Lines handed as interleaved pixels (the codec's own layout, or vimg's blue, green, red, alpha)
// make the files that lines of planes make, byte for byte, through the plug-ins that take them
// as they are (JPEG's BGRX), those that stream (JPEG) or hold pictures whole, and the library's
// way through planes for those that do not.
TEST(PluginInterop, PixelLinesWriteWhatPlanesWrite) {
  vt::TempDir d;
  for (const char* key : {"jpeg", "png", "tga"})
    for (int channels : {1, 2, 3, 4}) {
      if (std::string(key) == "jpeg" && channels % 2 == 0) continue;
      const Rgba pic = picture(37, 9, unsigned(channels), 0);
      const std::string planes = d.path("planes"), record = d.path("record"), bgra = d.path("bgra");
      SCOPED_TRACE(std::string(key) + " " + std::to_string(channels) + " channels");
      ASSERT_GT(write(planes, key, pic, channels, 8).w, 0);
      ASSERT_GT(write(record, key, pic, channels, 8, {}, IMF_PIXELS_RECORD).w, 0) << IMF_last_error();
      ASSERT_GT(write(bgra, key, pic, channels, 8, {}, IMF_PIXELS_BGRA8).w, 0) << IMF_last_error();
      EXPECT_EQ(vt::readFile(record), vt::readFile(planes));
      EXPECT_EQ(vt::readFile(bgra), vt::readFile(planes));
    }
}

// Multi-frame files: frames written in order are the frames read, here and by ImageMagick.
TEST(PluginInterop, FramesWrittenInOrderAreRead) {
  vt::TempDir d;
  for (const char* key : {"gif", "tiff", "pnm"}) {
    const std::string file = d.path(std::string("f.") + key);
    loadBundled();
    IMF_info info;
    IMF_info_init(&info);
    info.name = file.c_str(), info.key = key;
    info.image.xMax = 19, info.image.yMax = 9, info.image.colorChannels = 3, info.image.topDown = 1;
    IMF_object* o = IMF_open(&info, "w");
    ASSERT_NE(o, nullptr) << IMF_last_error();
    void** planes = IMF_chan_alloc(&info.image, 20, nullptr);
    for (int frame = 0; frame < 3; ++frame) {
      if (frame) {
        ASSERT_EQ(IMF_set_frame(o, frame), frame);
      }
      for (int y = 0; y < 10; ++y) {
        for (int c = 0; c < 3; ++c) memset(planes[c], 40 * frame + 10 * c + y, 20);
        ASSERT_EQ(IMF_scan_write(o, y, planes), 0);
      }
    }
    IMF_chan_free(planes);
    ASSERT_EQ(IMF_close(o), 0);
    IMF_image r;
    for (int frame = 0; frame < 3; ++frame) {
      const Rgba a = ours(file, frame, &r), b = peer(file, "im", frame);
      EXPECT_EQ(r.frames, 3);
      EXPECT_EQ(largest(a, b), 0) << key << " frame " << frame;
      EXPECT_EQ(a.px[4 * 20 * 5 + 1], (40 * frame + 10 + 5) * 257) << key << " frame " << frame;
    }
    EXPECT_EQ(ours(file, 3).w, 0);
  }
}

// Every sample cut short: each read ends in an answer, never a crash (the suite also runs under
// ASan and UBSan; flipped bytes are the fuzz targets' part); a file cut inside its header is refused.
TEST(PluginMalformed, TruncatedFilesFailCleanly) {
  vt::TempDir d;
  for (const std::string& f : samples()) {
    const vt::Bytes good = vt::readFile(f);
    const std::string bad = d.path("bad" + fs::path(f).extension().string());
    for (size_t n : {size_t(0), size_t(3), size_t(12), good.size() / 3, good.size() / 2, good.size() - 1}) {
      vt::writeFile(bad, vt::Bytes(good.begin(), good.begin() + long(n)));
      const Rgba r = ours(bad);
      if (n <= 12) {
        EXPECT_EQ(r.w, 0) << f << " cut to " << n;
      }
    }
  }
}

// The codec libraries allocate what a chunk or attribute length says before reading it: a length
// running past the end of the file is refused before it costs gigabytes.
TEST(PluginMalformed, LengthsPastTheEndAreRefusedBeforeDecoding) {
  vt::TempDir d;
  const vt::Bytes huge = {0xF0, 0xFF, 0xFF, 0x7F};  // 0x7FFFFFF0, little-endian
  struct Case {
    std::string sample, name;
    size_t at;          // where the damaged record is put
    vt::Bytes record;   // what is put there
    bool last = false;  // the file ends with the record
  } cases[] = {
      // after the PNG signature and IHDR: a tEXt chunk of 0x7FFFFFF0 bytes, in the file and last
      {"png/im_rgba8.png", "bad.png", 33, {0x7F, 0xFF, 0xFF, 0xF0, 't', 'E', 'X', 't', 'k', 0}},
      {"png/im_rgba8.png", "cut.png", 33, {0x7F, 0xFF, 0xFF, 0xF0, 't', 'E', 'X', 't', 'k'}, true},
      // first in the OpenEXR header: an attribute of a type unknown to the library, as large
      {"exr/oiio_half.exr", "bad.exr", 8, {'x', 0, 'j', 'u', 'n', 'k', 0, huge[0], huge[1], huge[2], huge[3]}},
  };
  for (const Case& c : cases) {
    vt::Bytes b = vt::readFile(kSamples + "/" + c.sample);
    b.insert(b.begin() + long(c.at), c.record.begin(), c.record.end());
    if (c.last) b.resize(c.at + c.record.size());
    const std::string path = d.path(c.name);
    vt::writeFile(path, b);
    IMF_info info;
    IMF_info_init(&info);
    info.name = path.c_str();
    loadBundled();
    EXPECT_EQ(IMF_open(&info, "r"), nullptr) << c.name;
    EXPECT_NE(std::string(IMF_last_error()).find("runs past the end of the file"), std::string::npos) << IMF_last_error();
  }
}
