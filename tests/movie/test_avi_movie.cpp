// AVI movies: files written by TaviMovie as ffprobe and ffmpeg (peers) read them, the frame
// conversions computed here from their definitions, compressor choice, and damaged files.
#include <gtest/gtest.h>
#include <vora/movie.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "foundation/status.h"
#include "support/test_support.h"

using vt::Bytes;

namespace {

// Frames of blue, green, red, alpha pixels, bottom row first: a gradient with noise, one pixel
// (blue 255, green 0, red 128) the 8-bit cube maps to index 183, and a frame number in the corner.
Bytes frame(unsigned w, unsigned h, unsigned n) {
  std::mt19937 rng(n);
  Bytes px(size_t(w) * h * 4);
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) {
      uint8_t* p = &px[(size_t(y) * w + x) * 4];
      p[0] = uint8_t(x * 255 / w), p[1] = uint8_t(y * 255 / h), p[2] = uint8_t((x + y + 40 * n) % 256 ^ (rng() & 7));
      p[3] = 255;
    }
  memcpy(&px[4], "\xFF\x00\x80\xFF", 4);
  px[0] = uint8_t(n * 50);
  return px;
}

unsigned writeMovie(const std::string& path, const std::string& compressor, unsigned bits, unsigned w, unsigned h,
                    unsigned frames, unsigned fps = 12, int quality = 90) {
  TaviMovie m;
  EXPECT_TRUE(m.create(path, fps));
  EXPECT_TRUE(m.setCompression(compressor, quality)) << compressor;
  m.setFirstBitCount(bits);
  if (m.createVideoTrack(w, h) != 1) return 0;
  for (unsigned i = 0; i < frames; ++i) {
    Bytes f = frame(w, h, i);
    EXPECT_TRUE(m.writeFrame(f.data())) << i;
  }
  unsigned got = m.bitCount();
  EXPECT_TRUE(m.closeTrack());
  EXPECT_TRUE(m.close());
  return got;
}

// ffprobe's view of the first stream, key=value.
std::map<std::string, std::string> probe(const std::string& path) {
  std::string out;
  vt::run("ffprobe -v error -count_packets -select_streams v:0 -show_entries "
          "stream=codec_tag_string,width,height,nb_read_packets,r_frame_rate:stream_tags=title -of default=nw=1 '" +
              path + "'",
          &out);
  std::map<std::string, std::string> m;
  for (size_t at = 0; at < out.size();) {
    size_t nl = out.find('\n', at), eq = out.find('=', at);
    if (eq < nl) m[out.substr(at, eq - at)] = out.substr(eq + 1, nl - eq - 1);
    at = nl == std::string::npos ? out.size() : nl + 1;
  }
  return m;
}

// The frames ffmpeg decodes, in the stream's own pixel format or as RGB, top row first.
Bytes decoded(const std::string& path, const std::string& pixfmt) {
  vt::TempDir d;
  EXPECT_EQ(vt::run("ffmpeg -v error -i '" + path + "' -f rawvideo -pix_fmt " + pixfmt + " '" + d.path("f.raw") + "'"), 0);
  return vt::readFile(d.path("f.raw"));
}

// What a frame becomes at each bit count, from the conversion's definition: rows as they stand
// in the sample (padded to 4 bytes, except 16-bit rows), then read as a decoder reads a bitmap
// (rows padded to 4 bytes, bottom first), top row first.
Bytes expected(const Bytes& px, unsigned w, unsigned h, unsigned bits) {
  const size_t padded = ((bits * w + 7) / 8 + 3) / 4 * 4, rowOut = bits == 16 ? w * 2 : padded;
  Bytes sample(padded * h, 0);
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) {
      const uint8_t* p = &px[(size_t(y) * w + x) * 4];
      uint8_t* o = &sample[y * rowOut + x * bits / 8];
      if (bits >= 24) memcpy(o, p, bits / 8);
      if (bits == 16) {
        unsigned v = ((p[2] & 0xF8) << 7) + ((p[1] & 0xF8) << 2) + (p[0] >> 3);
        o[0] = uint8_t(v), o[1] = uint8_t(v >> 8);
      }
      if (bits == 8) o[0] = uint8_t(36 * ((p[0] + 25) / 51) + 6 * ((p[1] + 25) / 51) + (p[2] + 25) / 51);
    }
  Bytes top;
  for (unsigned y = h; y-- > 0;) top.insert(top.end(), &sample[y * padded], &sample[y * padded] + w * bits / 8);
  return top;
}

}  // namespace

TEST(AviMovie, PeersReadEveryCompressorAndBitCount) {
  struct Case {
    const char* compressor;
    unsigned bits;  // asked for (0: the default walk)
    unsigned w, h, frames;
    unsigned wantBits;
    const char* tag;
    double minPsnr;  // 99: exact
  } cases[] = {
      {"none", 0, 33, 21, 1, 24, "[0][0][0][0]", 99},   {"none", 32, 33, 21, 3, 32, "[0][0][0][0]", 99},
      {"none", 16, 33, 21, 3, 16, "[0][0][0][0]", 99},  {"none", 8, 33, 21, 3, 8, "[0][0][0][0]", 99},
      {"msvideo1", 0, 32, 20, 3, 16, "MSVC", 25},       {"cinepak", 0, 32, 20, 3, 24, "cvid", 20},
      {"MJPG", 0, 33, 21, 300, 24, "MJPG", 30},         {"huffyuv", 0, 34, 21, 3, 24, "HFYU", 99},
      {"png", 0, 33, 21, 3, 24, "MPNG", 99},
  };
  vt::TempDir d;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.compressor) + " " + std::to_string(c.bits));
    std::string path = d.path(std::string(c.compressor) + std::to_string(c.bits) + ".avi");
    ASSERT_EQ(writeMovie(path, c.compressor, c.bits, c.w, c.h, c.frames), c.wantBits);
    auto p = probe(path);
    EXPECT_EQ(p["codec_tag_string"], c.tag);
    EXPECT_EQ(p["width"] + "x" + p["height"], std::to_string(c.w) + "x" + std::to_string(c.h));
    EXPECT_EQ(p["nb_read_packets"], std::to_string(c.frames));
    EXPECT_EQ(p["r_frame_rate"], "12/1");
    EXPECT_EQ(p["TAG:title"], "Video Stream");
    Bytes last = frame(c.w, c.h, c.frames - 1);
    if (std::string(c.tag) == "[0][0][0][0]") {  // uncompressed: the conversion, exactly
      const char* fmt = c.wantBits == 32 ? "bgra" : c.wantBits == 24 ? "bgr24" : c.wantBits == 16 ? "rgb555le" : "pal8";
      Bytes all = decoded(path, fmt);
      Bytes want = expected(last, c.w, c.h, c.wantBits);
      size_t frameBytes = all.size() / c.frames;  // pal8 frames carry their palette after the indexes
      ASSERT_GE(frameBytes, want.size());
      EXPECT_TRUE(std::equal(want.begin(), want.end(), all.begin() + long((c.frames - 1) * frameBytes)));
      if (c.wantBits == 8) {
        EXPECT_EQ(all[(c.frames - 1) * frameBytes + size_t(c.h - 1) * c.w + 1], 183);
      }
    } else {
      Bytes rgb = decoded(path, "bgr24");
      Bytes want = expected(last, c.w, c.h, 24);
      ASSERT_EQ(rgb.size(), c.frames * want.size());
      EXPECT_GE(vt::psnr(want, Bytes(rgb.begin() + long((c.frames - 1) * want.size()), rgb.end()), 255.0), c.minPsnr);
    }
  }
}

TEST(AviMovie, ChoosingCompressorsAndFrameFormats) {
  TstringArray names;
  TaviMovie::enumCodec(names);
  ASSERT_GE(names.size(), 4u);
  EXPECT_EQ(names.back(), Tstring("none"));
  TaviMovie m;
  ASSERT_TRUE(m.setCompression("NONE", 50));
  EXPECT_EQ(m.compressOptions().handler, 0x20424944u);  // "DIB "
  EXPECT_EQ(m.compressOptions().flags * 100 + m.compressOptions().quality, 800u);
  for (auto [name, quality, want] : {std::tuple<const char*, int, uint32_t>{"mjpg", 150, 10000}, {"MJPEG", -5, 0},
                                     {"Mjpeg", 42, 4200}}) {
    ASSERT_TRUE(m.setCompression(name, quality)) << name;
    const TaviCompressOptions& o = m.compressOptions();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&o.handler), 4), "MJPG");
    EXPECT_EQ(o.quality, want) << name;
    EXPECT_EQ(o.keyFrameEvery * 100 + o.flags, 1012u);
  }
  EXPECT_FALSE(m.setCompression("no-such-codec", 50));
  EXPECT_EQ(m.compressOptions().handler, 0u);
  // HuffYUV takes 32-bit frames but is offered 24 first; only Microsoft Video 1 starts at 32.
  vt::TempDir d;
  EXPECT_EQ(writeMovie(d.path("h.avi"), "huffyuv", 0, 8, 8, 1), 24u);
  EXPECT_EQ(writeMovie(d.path("h32.avi"), "huffyuv", 32, 8, 8, 1), 32u);
  // Microsoft Video 1 takes sizes in blocks of 4 only: no format is accepted, nothing stays open.
  TaviMovie msvc;
  ASSERT_TRUE(msvc.create(d.path("m.avi"), 25));
  ASSERT_TRUE(msvc.setCompression("msvc", 50));
  EXPECT_EQ(msvc.createVideoTrack(30, 20), 0xFFFFFFFFu);
  EXPECT_FALSE(msvc.trackOpen());
  EXPECT_TRUE(msvc.frameFormat().empty());
  Bytes f = frame(30, 20, 0);
  EXPECT_FALSE(msvc.writeFrame(f.data()));
  // At 8 bits the format carries the colour cube; entries past 215 wrap modulo 256.
  TaviMovie eight;
  ASSERT_TRUE(eight.create(d.path("e.avi"), 25) && eight.setCompression("none", 0));
  eight.setFirstBitCount(8);
  ASSERT_EQ(eight.createVideoTrack(5, 3), 1u);
  const std::vector<uint8_t>& fmt = eight.frameFormat();
  ASSERT_EQ(fmt.size(), 1064u);
  EXPECT_EQ(fmt[20], 24);  // image size: rows of 5 bytes padded to 8, 3 rows
  EXPECT_EQ(std::vector<uint8_t>(fmt.begin() + 40 + 4 * 255, fmt.end()), (std::vector<uint8_t>{101, 0, 153, 0}));
  EXPECT_EQ(eight.createVideoTrack(5, 3), 0xFFFFFFFFu);  // one video track a file
  EXPECT_EQ(eight.lastError(), Tstring("unable to create the video stream"));
}

// 180 frames of 1920 x 1080 at 24 bits: 1.1 GB, two RIFF forms. Players that know the OpenDML
// indexes see every frame; the first form alone still plays.
TEST(AviMovie, FilesPastOneGigabyte) {
  vt::TempDir d;
  const std::string path = d.path("big.avi");
  TaviMovie m;
  ASSERT_TRUE(m.create(path, 24) && m.setCompression("none", 0));
  ASSERT_EQ(m.createVideoTrack(1920, 1080), 1u);
  Bytes px = frame(1920, 1080, 1);
  for (int i = 0; i < 180; ++i) {
    px[0] = uint8_t(i);
    ASSERT_TRUE(m.writeFrame(px.data())) << i;
  }
  ASSERT_TRUE(m.closeTrack() && m.close());
  auto p = probe(path);
  EXPECT_EQ(p["nb_read_packets"], "180");
  TaviFileInfo info;
  Tstring why;
  ASSERT_TRUE(aviFileInfo(path, info, why)) << why.str();
  EXPECT_EQ(info.forms, 2u);
  EXPECT_EQ(info.chunks, 180u);
  EXPECT_EQ(info.streams.at(0).frames, 180u);
  std::string out;
  vt::run("ffmpeg -v error -i '" + path + "' -vf select='eq(n\\,179)' -frames:v 1 -f rawvideo -pix_fmt bgr24 - 2>/dev/null | head -c 1 | od -An -tu1",
          &out);
  EXPECT_EQ(std::stoi(out), 0) << "the top-left of the last frame";  // the frame number sits bottom-left
}

TEST(AviMalformed, DamagedFilesAreRefusedWithAReason) {
  vt::TempDir d;
  const std::string good = d.path("good.avi"), bad = d.path("bad.avi");
  ASSERT_EQ(writeMovie(good, "none", 0, 16, 8, 4), 24u);
  const Bytes whole = vt::readFile(good);
  auto find = [&](const char* id, size_t from = 0) {
    return size_t(std::search(whole.begin() + long(from), whole.end(), id, id + 4) - whole.begin());
  };
  auto set32 = [](Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
  };
  struct Case {
    const char* what;
    std::function<void(Bytes&)> damage;
    const char* reason;
  } cases[] = {
      {"truncated", [&](Bytes& b) { b.resize(b.size() - 100); }, "runs past the end of the file"},
      {"header only", [&](Bytes& b) { b.resize(11); }, "not an AVI file"},
      {"lying chunk", [&](Bytes& b) { set32(b, find("00db", find("movi")) + 4, 0x7FFFFFF0); }, "runs past the end of its movi list"},
      {"lying stream list", [&](Bytes& b) { set32(b, find("strh") + 4, 100000); }, "runs past the end of its stream list"},
      {"old index past the end", [&](Bytes& b) { set32(b, find("idx1") + 8 + 16 + 8, 0x70000000); }, "index entry 1"},
      {"super index past the end", [&](Bytes& b) { set32(b, find("indx") + 8 + 24, 0x70000000); }, "super index entry 0"},
      {"super index overfull", [&](Bytes& b) { set32(b, find("indx") + 8 + 4, 0x10000000); }, "more entries"},
  };
  for (const Case& c : cases) {
    Bytes b = whole;
    c.damage(b);
    vt::writeFile(bad, b);
    TaviFileInfo info;
    Tstring why;
    EXPECT_FALSE(aviFileInfo(bad, info, why)) << c.what;
    EXPECT_NE(why.str().find(c.reason), std::string::npos) << c.what << ": " << why.str();
    EXPECT_EQ(vora::lastStatus().text(), why.str());
    std::string out;
    EXPECT_EQ(vt::vimg("info " + bad, &out), 1) << c.what;
    EXPECT_EQ(out.find("vimg: " + bad + ": "), 0u) << out;
  }
}

TEST(VimgMovie, SequencesCodecsAndMismatchedFrames) {
  vt::TempDir d;
  for (int f : {1, 2, 3, 5}) {
    char name[32];
    snprintf(name, sizeof name, "shot.%04d.ppm", f);
    ASSERT_EQ(vt::run("convert -size 24x16 xc:'rgb(" + std::to_string(f * 40) + ",20,200)' '" + d.path(name) + "'"), 0);
  }
  std::string out;
  ASSERT_EQ(vt::vimg("movie " + d.path("s.avi") + " " + d.path("shot.####.ppm") + " --fps 30 --compressor mjpg --quality 80", &out), 0) << out;
  EXPECT_NE(out.find("4 frames, 24 x 16, 24 bits"), std::string::npos) << out;
  ASSERT_EQ(vt::vimg("info --json " + d.path("s.avi"), &out), 0);
  EXPECT_NE(out.find("\"handler\":\"MJPG\",\"name\":\"Video Stream\",\"codec\":\"MJPG\",\"width\":24,\"height\":16,\"bits\":24,"
                     "\"frames\":4,\"rate\":30"), std::string::npos) << out;
  ASSERT_EQ(vt::vimg("movie --codecs", &out), 0);
  EXPECT_NE(out.find("mjpeg\n"), std::string::npos);
  ASSERT_EQ(vt::run("convert -size 8x8 xc:red '" + d.path("small.ppm") + "'"), 0);
  EXPECT_EQ(vt::vimg("movie " + d.path("m.avi") + " " + d.path("shot.0001.ppm") + " " + d.path("small.ppm"), &out), 1);
  EXPECT_NE(out.find("small.ppm: 8 x 8, the movie's frames are 24 x 16"), std::string::npos) << out;
  EXPECT_EQ(vt::vimg("movie " + d.path("m.avi") + " " + d.path("shot.0001.ppm") + " --compressor xvid9", &out), 2);
  EXPECT_EQ(vt::vimg("movie " + d.path("m.avi") + " " + d.path("none.####.ppm"), &out), 1);
}
