// The SGI image library: header and packets byte for byte, round trips, other programs' files
// both ways, malformed files.
#include <gtest/gtest.h>
#include <vora/sgi.h>

#include <cstring>
#include <functional>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "foundation/status.h"
#include "imagefile/sgi_format.h"
#include "support/test_support.h"

using vt::Bytes;

namespace {

// Every pixel of an SGI file, top row first, channels interleaved, 16-bit little-endian (the
// fixtures' convention).
Bytes topFirst(const std::string& path, int* w = nullptr, int* h = nullptr, int* c = nullptr) {
  IMAGE* img = iopen(path.c_str(), "r", 0, 0, 0, 0, 0);
  if (!img) return {};
  int bpc = img->type & 0xFF, z = img->zsize;
  std::vector<unsigned short> row(img->xsize);
  Bytes out(size_t(img->xsize) * img->ysize * z * bpc);
  for (int y = 0; y < img->ysize; ++y)
    for (int ch = 0; ch < z; ++ch) {
      EXPECT_EQ(getrow(img, row.data(), unsigned(y), unsigned(ch)), img->xsize);
      for (int x = 0; x < img->xsize; ++x) {
        size_t at = ((size_t(img->ysize - 1 - y) * img->xsize + x) * z + ch) * bpc;
        out[at] = uint8_t(row[size_t(x)]);
        if (bpc == 2) out[at + 1] = uint8_t(row[size_t(x)] >> 8);
      }
    }
  if (w) *w = img->xsize;
  if (h) *h = img->ysize;
  if (c) *c = z;
  iclose(img);
  return out;
}

// Writes a picture of w x h x z values (bottom row first, channel-interleaved rows) with putrow.
std::vector<unsigned short> pattern(int w, int h, int z, int bpc, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<unsigned short> v(size_t(w) * h * z);
  unsigned mask = bpc == 2 ? 0xFFFF : 0xFF;
  for (size_t i = 0; i < v.size(); ++i)
    v[i] = uint16_t(((i / 7) % 3 == 0 ? rng() : (i / 50) * 13) & mask);
  return v;
}

bool writeSgi(const std::string& path, unsigned type, int w, int h, int z,
              const std::vector<unsigned short>& v) {
  IMAGE* img = iopen(path.c_str(), "w", type, 3, unsigned(w), unsigned(h), unsigned(z));
  if (!img) return false;
  for (int ch = 0; ch < z; ++ch)
    for (int y = 0; y < h; ++y)
      if (putrow(img, &v[(size_t(ch) * h + y) * w], unsigned(y), unsigned(ch)) != w) return false;
  return iclose(img) == 0;
}

std::vector<unsigned short> readSgi(const std::string& path, int w, int h, int z) {
  IMAGE* img = iopen(path.c_str(), "r", 0, 0, 0, 0, 0);
  std::vector<unsigned short> v(size_t(w) * h * z);
  if (!img) return {};
  for (int ch = 0; ch < z; ++ch)
    for (int y = 0; y < h; ++y) getrow(img, &v[(size_t(ch) * h + y) * w], unsigned(y), unsigned(ch));
  iclose(img);
  return v;
}

}  // namespace

TEST(Sgi, FixturesFromOtherProgramsReadWithTheReferencePixels) {
  struct Fixture {
    const char* name;
    const char* sha;
  } fixtures[] = {
      {"im_gray8_50x20_rle.sgi", "3a0314ea9e25b984edb875f829312c572f4579932421085390cc9f07a10d864a"},
      {"im_rgb8_50x20_verbatim.sgi", "ff60a3745d11397cec190adf297e75053f1b136fcbbffbe37773fea197da5e99"},
      {"im_rgba8_150x12_rle.sgi", "ba43580f0e0cfbded29c54372a8d3f57b2f2c69b7449c6209a5aeea34dfe89c8"},
      {"im_rgba16_20x10_verbatim.sgi", "cce81749545bcd04ec74281a2d58cc5b8fd67865d94fd8f93d07635ab46850e0"},
      {"pnmtosgi_rgb16_40x16_rle.sgi", "32dd5141d1c7efee81c5913fd918488376f6557d8e59752f14abd0da0436c711"},
      {"oiiotool_gray16_24x12_verbatim.sgi", "3f6c9bb0b710961ec92208d827a87e5539da6ee01ca00d4c1f6c471ef880c7eb"},
  };
  for (const Fixture& f : fixtures)
    EXPECT_EQ(vt::sha256(topFirst(std::string(VORA_TEST_DATA "/sgi/") + f.name)), f.sha) << f.name;
}

// Writing row 5 of a run-length file twice leaves wastebytes equal to the first write's
// length and rowstart pointing at the second.
TEST(Sgi, RowWrittenTwiceCountsWaste) {
  vt::TempDir d;
  IMAGE* img = iopen(d.path("w.sgi").c_str(), "w", 0x0101, 2, 10, 8, 1);
  std::vector<unsigned short> row(10, 7), other(10);
  for (int i = 0; i < 10; ++i) other[size_t(i)] = uint16_t(i);
  ASSERT_EQ(putrow(img, row.data(), 5, 0), 10);
  uint32_t first = img->rowsize[5];
  EXPECT_EQ(first, 3u);  // run of 10, value, final 0
  ASSERT_EQ(putrow(img, other.data(), 5, 0), 10);
  EXPECT_EQ(img->wastebytes, first);
  EXPECT_EQ(img->rowstart[5], 512u + 2 * 4 * 8 + first);
  EXPECT_EQ(img->rowsize[5], 12u);  // literal of 10: header, 10 values, final 0
  ASSERT_EQ(iclose(img), 0);
  std::vector<unsigned short> back(10);
  IMAGE* in = iopen(d.path("w.sgi").c_str(), "r", 0, 0, 0, 0, 0);
  EXPECT_EQ(in->wastebytes, first);
  ASSERT_EQ(getrow(in, back.data(), 5, 0), 10);
  EXPECT_EQ(back, other);
  iclose(in);
}

// A run of exactly 127 equal values is a run of 126 and a run of 1; a row of 300
// distinct values is literal packets of 126, 126 and 48.
TEST(Sgi, PacketSplitsAt126) {
  std::vector<unsigned short> run(127, 9);
  unsigned char out[1024];
  ASSERT_EQ(rle_compact(run.data(), 2, out, 1, 127), 5);
  EXPECT_EQ(vt::hex(Bytes(out, out + 5)), "7e09010900");
  std::vector<unsigned short> distinct(300);
  for (int i = 0; i < 300; ++i) distinct[size_t(i)] = uint16_t(i % 256 == 255 ? 7 : i % 256);
  int n = rle_compact(distinct.data(), 2, out, 1, 300);
  ASSERT_EQ(n, 300 + 3 + 1);
  EXPECT_EQ(out[0], 0x80 | 126);
  EXPECT_EQ(out[127], 0x80 | 126);
  EXPECT_EQ(out[254], 0x80 | 48);
  EXPECT_EQ(out[303], 0);
  // Two-byte units: the length in bytes is twice the count.
  unsigned short wide[8];
  EXPECT_EQ(rle_compact(run.data(), 2, reinterpret_cast<unsigned char*>(wide), 2, 127), 5);
  EXPECT_EQ(wide[0], 126);
  EXPECT_EQ(wide[2], 1);
}

// The block packers (of 16-bit values and of bytes) make the plain packer's bytes: rows of noise, runs of two (never packed),
// runs of exactly three, runs past 126, values past a byte, a noisy gradient, at widths around the block sizes.
TEST(Sgi, BlockPackerEqualsThePlainPacker) {
  std::mt19937 rng(3);
  const std::vector<std::function<unsigned short(int)>> rows = {
      [&](int) { return uint16_t(rng() & 0xFF); },              [&](int) { return uint16_t(rng() % 3); },
      [](int x) { return uint16_t(x / 2); },                    [](int x) { return uint16_t(x / 3); },
      [](int x) { return uint16_t(x / 200 % 2 * 300 + 5); },   [&](int x) { return uint16_t(x % 37 < 20 ? 7 : rng()); },
      [](int) { return uint16_t(42); },                        [&](int x) { return uint16_t(x / 40 + rng() % 5); }};
  std::vector<unsigned char> fast(3 * 4200), plain(fast.size());
  for (size_t kind = 0; kind < rows.size(); ++kind)
    for (int width : {1, 2, 3, 9, 10, 11, 17, 18, 63, 64, 65, 127, 1000, 4096})
      for (int obpp : {1, 2}) {
        std::vector<unsigned short> values(static_cast<size_t>(width));
        for (int x = 0; x < width; ++x) values[size_t(x)] = rows[kind](x);
        const int n = rle_compact(values.data(), 2, fast.data(), obpp, width);
        ASSERT_EQ(n, rle_compact_plain(values.data(), plain.data(), obpp, width)) << kind << " " << width << " " << obpp;
        ASSERT_EQ(memcmp(fast.data(), plain.data(), size_t(n) * obpp), 0) << kind << " " << width << " " << obpp;
        if (obpp == 2) continue;
        // The byte packer of the whole-picture writer, on the low bytes of the same row.
        std::vector<uint8_t> bytes(values.begin(), values.end());
        for (size_t x = 0; x < bytes.size(); ++x) values[x] = bytes[x];
        const int m = rle_compact_bytes(bytes.data(), fast.data(), width);
        ASSERT_EQ(m, rle_compact_plain(values.data(), plain.data(), 1, width)) << kind << " " << width;
        ASSERT_EQ(memcmp(fast.data(), plain.data(), size_t(m)), 0) << kind << " " << width;
      }
}

// The byte expander answers as the value-by-value one and writes the same values, on packets of
// every length, cut short, overflowing their row or missing their final 0.
TEST(Sgi, ByteExpanderEqualsThePlainExpander) {
  std::mt19937 rng(9);
  for (int round = 0; round < 3000; ++round) {
    Bytes packets;
    while (packets.size() < 1 + rng() % 300) {
      const unsigned count = rng() % 6 ? rng() % 20 : rng() % 128;
      packets.push_back(uint8_t((rng() % 2 ? 0x80 : 0) | count));
      for (unsigned k = 0; k < ((packets.back() & 0x80) ? count : 1); ++k) packets.push_back(uint8_t(rng()));
    }
    if (round % 3) packets.push_back(0);
    const int cnt = int(rng() % 400), len = int(packets.size() - (round % 7 == 0 ? rng() % 4 : 0));
    Bytes fast(size_t(cnt) + 1, 0xEE), plain(fast);
    const int a = rle_expand(packets.data(), 1, reinterpret_cast<unsigned short*>(fast.data()), 1, cnt, len);
    ASSERT_EQ(a, rle_expand_plain(packets.data(), plain.data(), cnt, len)) << round;
    ASSERT_EQ(fast[size_t(cnt)], 0xEE) << round;  // nothing past the row
    if (a > 0) {
      ASSERT_EQ(Bytes(fast.begin(), fast.begin() + a), Bytes(plain.begin(), plain.begin() + a)) << round;
    }
  }
}

TEST(Sgi, HeaderWrittenByteForByte) {
  vt::TempDir d;
  std::vector<unsigned short> v = pattern(3, 2, 1, 1, 1);
  for (auto& x : v) x = uint16_t(x % 200 + 5);
  ASSERT_TRUE(writeSgi(d.path("h.sgi"), 0x0001, 3, 2, 1, v));
  Bytes f = vt::readFile(d.path("h.sgi"));
  ASSERT_EQ(f.size(), 512u + 6);
  unsigned mn = 65535, mx = 0;
  for (auto x : v) mn = std::min<unsigned>(mn, x), mx = std::max<unsigned>(mx, x);
  Bytes expect = {0x01, 0xDA, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x02, 0x00, 0x01};
  vt::be32(expect, mn);
  vt::be32(expect, mx);
  vt::be32(expect, 0);
  Bytes name(80, 0);
  memcpy(name.data(), "no name", 7);
  expect.insert(expect.end(), name.begin(), name.end());
  vt::be32(expect, 0);  // colormap
  EXPECT_EQ(vt::hex(Bytes(f.begin(), f.begin() + 108)), vt::hex(expect));
  // Bytes 176 to 511 are zeros; rows start at 512.
  EXPECT_EQ(Bytes(f.begin() + 176, f.begin() + 512), Bytes(336, 0));
  EXPECT_EQ(f[512], v[0]);
}

TEST(Sgi, RoundTripsOfEveryStorageDepthAndChannelCount) {
  vt::TempDir d;
  for (unsigned storage : {0u, 1u})
    for (int bpc : {1, 2})
      for (int z : {1, 3, 4})
        for (int w : {1, 17, 300}) {
          int h = 9;
          std::vector<unsigned short> v = pattern(w, h, z, bpc, uint32_t(w + z * 7 + bpc));
          std::string p = d.path("r.sgi");
          ASSERT_TRUE(writeSgi(p, (storage << 8) | unsigned(bpc), w, h, z, v));
          EXPECT_EQ(readSgi(p, w, h, z), v) << storage << " " << bpc << " " << z << " " << w;
          // The whole-picture calls: the same picture as interleaved pixels, top row first, rows
          // padded; read from the rows' file and written to a file the row calls read back.
          const size_t rowBytes = size_t(w) * z * bpc + 3;
          Bytes px(rowBytes * h, 0xEE), got(px.size(), 0xEE);
          for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
              for (int c = 0; c < z; ++c)
                memcpy(&px[size_t(h - 1 - y) * rowBytes + (size_t(x) * z + c) * bpc], &v[(size_t(c) * h + y) * w + x], size_t(bpc));
          IMAGE* img = iopen(p.c_str(), "r", 0, 0, 0, 0, 0);
          ASSERT_EQ(getpixels(img, got.data(), rowBytes), 0);
          iclose(img);
          EXPECT_EQ(got, px) << storage << " " << bpc << " " << z << " " << w;
          const std::string q = d.path("p.sgi");
          img = iopen(q.c_str(), "w", (storage << 8) | unsigned(bpc), 3, unsigned(w), unsigned(h), unsigned(z));
          ASSERT_EQ(putpixels(img, px.data(), rowBytes), 0);
          ASSERT_EQ(iclose(img), 0);
          EXPECT_EQ(readSgi(q, w, h, z), v);
          const Bytes rows = vt::readFile(p), pixels = vt::readFile(q);
          // The header's file fields (sizes, min, max) are the same; verbatim rows are the same
          // bytes, run-length rows go in another order.
          auto part = [](const Bytes& f, size_t from, size_t to) { return Bytes(f.begin() + long(from), f.begin() + long(to)); };
          EXPECT_EQ(part(pixels, 0, 108), part(rows, 0, 108));
          if (storage == 0) {
            EXPECT_EQ(part(pixels, 176, pixels.size()), part(rows, 176, rows.size()));
          }
          // Both files were written over the last round's (run-length files in place): each
          // ends where its last row does, and nothing of the old file is left before 512.
          size_t end = 512 + size_t(w) * h * z * bpc;
          if (storage == 1) {
            const size_t n = size_t(h) * z;
            auto be32 = [&](size_t at) { return size_t(rows[at]) << 24 | size_t(rows[at + 1]) << 16 | size_t(rows[at + 2]) << 8 | rows[at + 3]; };
            end = 512 + 8 * n;
            for (size_t i = 0; i < n; ++i) end = std::max(end, be32(512 + 4 * i) + be32(512 + 4 * (n + i)));
          }
          EXPECT_EQ(rows.size(), end);
          EXPECT_EQ(pixels.size(), end);
          EXPECT_EQ(part(pixels, 176, 512), Bytes(336, 0));
        }
}

// ---- interoperability -----------------------------------------------------------------------

namespace {
const char* kPeer = "/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py";

// Writes the top-first interleaved pixels as a binary PNM/PAM that ImageMagick reads.
void writePam(const std::string& path, const Bytes& px, int w, int h, int c, int bpc) {
  const char* tuple = c == 1 ? "GRAYSCALE" : c == 3 ? "RGB" : "RGB_ALPHA";
  std::string hdr = "P7\nWIDTH " + std::to_string(w) + "\nHEIGHT " + std::to_string(h) + "\nDEPTH " +
                    std::to_string(c) + "\nMAXVAL " + (bpc == 2 ? "65535" : "255") + "\nTUPLTYPE " + tuple +
                    "\nENDHDR\n";
  Bytes b(hdr.begin(), hdr.end());
  for (size_t i = 0; i < px.size(); i += size_t(bpc))
    if (bpc == 2) b.insert(b.end(), {px[i + 1], px[i]});  // PAM is big-endian
    else b.push_back(px[i]);
  vt::writeFile(path, b);
}
}  // namespace

// files written by ImageMagick and by OpenImageIO (RLE and verbatim, 8 and 16 bits, grey,
// RGB and RGBA) read here with identical pixels; files written here read identically in both.
TEST(SgiInterop, ImageMagickAndOpenImageIoBothWays) {
  vt::TempDir d;
  for (int bpc : {1, 2})
    for (int c : {1, 3, 4}) {
      const int w = 70, h = 21;
      std::vector<unsigned short> v = pattern(w, h, c, bpc, uint32_t(bpc * 10 + c));
      for (const char* storage : {"RLE", "None"}) {
        std::string ours = d.path("ours.sgi");
        ASSERT_TRUE(writeSgi(ours, (std::string(storage) == "RLE" ? 0x100u : 0u) | unsigned(bpc), w, h, c, v));
        Bytes px = topFirst(ours);
        std::string what = std::string(storage) + " bpc " + std::to_string(bpc) + " c " + std::to_string(c);
        // ImageMagick reads ours.
        std::string out;
        std::string fmt = c == 1 ? "gray" : c == 3 ? "rgb" : "rgba";
        vt::run("convert '" + ours + "' -depth " + std::to_string(bpc * 8) + " -endian LSB " + fmt + ":- | sha256sum", &out);
        EXPECT_EQ(out.substr(0, 64), vt::sha256(px)) << "ImageMagick reading ours, " << what;
        // OpenImageIO reads ours.
        ASSERT_EQ(vt::run(std::string(kPeer) + " read '" + ours + "' '" + d.path("o.raw") + "'"), 0);
        EXPECT_TRUE(vt::readFile(d.path("o.raw")) == px) << "OpenImageIO reading ours, " << what;
        // ImageMagick writes (its 16-bit SGI is verbatim even when asked for RLE).
        writePam(d.path("src.pam"), px, w, h, c, bpc);
        std::string im = d.path("im.sgi");
        ASSERT_EQ(vt::run("convert '" + d.path("src.pam") + "' -depth " + std::to_string(bpc * 8) + " -compress " +
                          storage + " '" + im + "'"), 0);
        EXPECT_TRUE(topFirst(im) == px) << "ours reading ImageMagick's, " << what;
      }
      // OpenImageIO writes (verbatim only).
      Bytes px = topFirst(d.path("ours.sgi"));
      vt::writeFile(d.path("in.raw"), px);
      std::string oi = d.path("oi.sgi");
      ASSERT_EQ(vt::run(std::string(kPeer) + " write '" + oi + "' " + std::to_string(w) + " " + std::to_string(h) + " " +
                        std::to_string(c) + " " + std::to_string(bpc * 8) + " '" + d.path("in.raw") + "' none"), 0);
      EXPECT_TRUE(topFirst(oi) == px) << "ours reading OpenImageIO's, bpc " << bpc << " c " << c;
    }
}

// ---- hostile input --------------------------------------------------------------------------

namespace {

// Opens bytes as an SGI file and reads every row; returns "ok", or the first message.
std::string readAll(const Bytes& file) {
  vt::TempDir d;
  vt::writeFile(d.path("h.sgi"), file);
  vt::Messages m;
  IMAGE* img = iopen(d.path("h.sgi").c_str(), "r", 0, 0, 0, 0, 0);
  if (!img && !m.lines().empty()) {
    EXPECT_EQ(m.lines()[0], "SGI image: " + vora::lastStatus().text());
  }
  if (!img) return m.lines().empty() ? "no image" : m.lines()[0];
  std::vector<unsigned short> row(size_t(img->xsize) + 1);
  for (unsigned z = 0; z < img->zsize && m.lines().empty(); ++z)
    for (unsigned y = 0; y < img->ysize && m.lines().empty(); ++y) getrow(img, row.data(), y, z);
  iclose(img);
  if (!m.lines().empty()) {
    EXPECT_EQ(m.lines().back(), "SGI image: " + vora::lastStatus().text());
  }
  // The whole-picture reader fails as the rows do, with the same message.
  vt::Messages whole;
  img = iopen(d.path("h.sgi").c_str(), "r", 0, 0, 0, 0, 0);
  std::vector<uint8_t> px(size_t(img->xsize) * img->ysize * img->zsize * 2);
  EXPECT_EQ(getpixels(img, px.data(), size_t(img->xsize) * img->zsize * (SGI_BPC(img) == 2 ? 2 : 1)),
            m.lines().empty() ? 0 : -1);
  iclose(img);
  EXPECT_EQ(whole.lines().empty() ? "ok" : whole.lines()[0], m.lines().empty() ? "ok" : m.lines()[0]);
  return m.lines().empty() ? "ok" : m.lines()[0];
}

}  // namespace

// Every file of tests/data/sgi/bad gives its message (expected.tsv), never a crash.
TEST(SgiMalformed, EveryDamageGivesItsMessage) {
  std::ifstream list(VORA_TEST_DATA "/sgi/bad/expected.tsv");
  std::string file, message;
  int files = 0;
  while (list >> file && std::getline(list >> std::ws, message)) {
    EXPECT_EQ(readAll(vt::readFile(VORA_TEST_DATA "/sgi/bad/" + file)), message == "ok" ? message : message + "\n") << file;
    ++files;
  }
  EXPECT_EQ(files, 19);
  vt::Messages m;
  EXPECT_EQ(iopen("/tmp/x.sgi", "r+", 0, 0, 0, 0, 0), nullptr);
  EXPECT_TRUE(m.said("SGI image: iopen: read/write mode not supported\n"));
}
