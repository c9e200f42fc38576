// Photoshop channel data and its codecs: PackBits bytes, round trips, the deliberate 16-bit and
// prediction rules, copies, malformed channel data.
#include <gtest/gtest.h>
#include <vora/photoshop.h>

#include <zlib.h>

#include <cstring>
#include <random>
#include <vector>

#include "support/test_support.h"

using namespace ktPhotoshop;
using vt::Bytes;

namespace {

Bytes pattern(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = (i / 11) % 3 == 0 ? uint8_t(rng()) : uint8_t(i / 37);
  return b;
}

// A channel of w x h holding samples, compressed by method, then decoded afresh from its bytes.
Bytes roundTrip(TdataFormat f, uint32_t w, uint32_t h, const Bytes& samples, TCompressionMethod m,
                bool separate, bool* decodeResult = nullptr) {
  TpixelData16 a(f);
  a.addChannel(RED, w, h);
  a.setChannelRawPixels(RED, samples);
  a.setCompressionMethod(RED, m);
  EXPECT_TRUE(a.compressChannel(RED, separate));
  TpixelData16 b(f);
  b.addChannel(RED, w, h);
  b.setCompressionMethod(RED, m);
  b.setChannelCompressedPixels(RED, *a.channelCompressedPixels(RED));
  b.setChannelDataLength(RED, a.channelDataLength(RED));
  if (const std::vector<uint16_t>* t = a.compositeLenInfo(RED)) b.setCompositeLengthInfo(RED, *t);
  bool r = b.decodeChannel(RED);
  if (decodeResult) *decodeResult = r;
  const uint8_t* p = b.getChannelPixPtr(RED);
  return Bytes(p, p + samples.size());
}

}  // namespace

// PackBits rows: a run of 200 is 128 then 72, a literal of 130 is 128 then 2; decoding skips the
// header 0x80 and goes on with the next byte as a header.
TEST(PsdCodecs, PackBitsBytes) {
  Bytes run(200, 0x5A), literal(130), out(400);
  for (int i = 0; i < 130; ++i) literal[size_t(i)] = uint8_t(i);
  size_t n = codec::packBitsRow(run.data(), run.size(), out.data());
  EXPECT_EQ(vt::hex(Bytes(out.begin(), out.begin() + long(n))), "815ab95a");
  n = codec::packBitsRow(literal.data(), literal.size(), out.data());
  EXPECT_EQ(vt::hex(Bytes(out.begin(), out.begin() + long(n))), "7f" + vt::hex(Bytes(literal.begin(), literal.begin() + 128)) + "018081");
  TpixelData16 d(k8Bits);
  d.addChannel(RED, 5, 1);
  d.setCompressionMethod(RED, RLE);
  // Row table (one row of 7 bytes), then: 0x80 (skipped), literal of 2, run of 3.
  d.setChannelCompressedPixels(RED, {0x00, 0x07, 0x80, 0x01, 'a', 'b', 0xFE, 'z', 0x80});
  EXPECT_FALSE(d.decodeChannel(RED));  // the run-length decoder answers false in every case
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(d.getChannelPixPtr(RED)), 5), "abzzz");
}

// The block decoder gives the plain decoder's bytes and answer on rows packed from noise, ramps
// and flat runs, on random bytes (packets that lie about their lengths), on rows cut short, and
// on rows that hold more or less than the width.
TEST(PsdCodecs, BlockUnpackerEqualsThePlainUnpacker) {
  std::mt19937 rng(11);
  for (int round = 0; round < 400; ++round) {
    const size_t width = 1 + rng() % 700;
    Bytes row(width), packed(width * 2 + 8);
    for (size_t x = 0; x < width; ++x) row[x] = uint8_t(round % 3 == 0 ? rng() : round % 3 == 1 ? x / (1 + round % 7) : (rng() % 5 ? 9 : rng()));
    size_t len = codec::packBitsRow(row.data(), width, packed.data());
    if (round % 4 == 3) {
      for (size_t k = 0; k < len; ++k) packed[k] = uint8_t(rng());  // hostile
    }
    if (round % 5 == 4) len -= std::min<size_t>(len, rng() % 40);  // cut short
    const size_t want = round % 6 == 5 ? width / 2 + rng() % width : width;
    Bytes fast(want + 1, 0xEE), plain(want + 1, 0xEE);
    const bool a = codec::unpackBits8(packed.data(), len, fast.data(), want);
    ASSERT_EQ(a, codec::unpackBits8Plain(packed.data(), len, plain.data(), want)) << round;
    ASSERT_EQ(fast, plain) << round;
    if (round % 4 != 3 && round % 5 != 4 && want == width) {
      EXPECT_EQ(Bytes(fast.begin(), fast.end() - 1), row) << round;
    }
  }
}

TEST(PsdCodecs, ZipPredictionAsymmetry) {
  // 8-bit data predicted as Photoshop writes it (each byte minus the one before, per row, then
  // deflated) decodes exactly: the running sum inverts the row deltas.
  Bytes eight = pattern(40 * 9, 1), deltas = eight;
  for (size_t y = 0; y < 9; ++y)
    for (size_t j = 39; j >= 1; --j) deltas[y * 40 + j] = uint8_t(eight[y * 40 + j] - eight[y * 40 + j - 1]);
  uLongf zlen = compressBound(deltas.size());
  Bytes z(zlen);
  ASSERT_EQ(compress2(z.data(), &zlen, deltas.data(), deltas.size(), 6), Z_OK);
  z.resize(zlen);
  TpixelData16 d(k8Bits);
  d.addChannel(RED, 40, 9);
  d.setCompressionMethod(RED, ZIP_PREDICTION);
  d.setChannelCompressedPixels(RED, {z.begin(), z.end()});
  d.setChannelDataLength(RED, uint32_t(z.size() + 2));
  EXPECT_TRUE(d.decodeChannel(RED));
  EXPECT_EQ(Bytes(d.getRedPixelPtr(), d.getRedPixelPtr() + eight.size()), eight);
  // Our own encoder does not predict 8-bit channels (deliberate), so its method-3 output does not
  // come back through the running sum.
  EXPECT_NE(roundTrip(k8Bits, 40, 9, eight, ZIP_PREDICTION, false), eight);
  std::vector<uint16_t> s(40 * 9);
  for (size_t i = 0; i < s.size(); ++i) s[i] = uint16_t(i * 977);
  Bytes sixteen(s.size() * 2);
  memcpy(sixteen.data(), s.data(), sixteen.size());
  Bytes back = roundTrip(k16Bits, 40, 9, sixteen, ZIP_PREDICTION, false);
  EXPECT_NE(back, sixteen);
  // The first sample of each row is not predicted, so it survives.
  uint16_t first;
  memcpy(&first, back.data(), 2);
  EXPECT_EQ(first, s[0]);
  // Without prediction 16-bit ZIP round-trips.
  EXPECT_EQ(roundTrip(k16Bits, 40, 9, sixteen, ZIP, false), sixteen);
}

// 8-bit channels round-trip through every method and table form; 16-bit ones through raw and ZIP,
// while run-length packs only the first half of each row's bytes and decodes with a one-byte
// header advance (deliberate): those samples do not come back.
TEST(PsdCodecs, RoundTripsAndTheSixteenBitRunLengthQuirk) {
  Bytes px = pattern(300 * 17, 3);
  for (TCompressionMethod m : {RAW, RLE, ZIP})
    for (bool separate : {false, true}) EXPECT_EQ(roundTrip(k8Bits, 300, 17, px, m, separate), px) << m << separate;
  std::vector<uint16_t> s(50 * 6);
  for (size_t i = 0; i < s.size(); ++i) s[i] = uint16_t((i / 7) * 1111);
  Bytes deep(s.size() * 2);
  memcpy(deep.data(), s.data(), deep.size());
  for (TCompressionMethod m : {RAW, ZIP, RLE}) EXPECT_EQ(roundTrip(k16Bits, 50, 6, deep, m, m == RLE) == deep, m != RLE) << m;
}

// Raw 16-bit samples are stored big-endian; bytes already compressed are not encoded again.
TEST(PsdCodecs, StoredBytes) {
  TpixelData16 d(k16Bits), c(k8Bits);
  d.addChannel(GREEN, 2, 1);
  d.setChannelRawPixels(GREEN, {0x34, 0x12, 0x78, 0x56});  // 0x1234, 0x5678 in machine order
  d.setCompressionMethod(GREEN, RAW);
  ASSERT_TRUE(d.compressChannel(GREEN, false));
  EXPECT_EQ(vt::hex(*d.channelCompressedPixels(GREEN)), "12345678");
  c.addChannel(RED, 4, 1);
  c.setChannelCompressedPixels(RED, {0x00, 0x02, 0xFD, 0x07});
  c.setCompressionMethod(RED, RLE);
  EXPECT_TRUE(c.compressChannel(RED, false));
  EXPECT_EQ(vt::hex(*c.channelCompressedPixels(RED)), "0002fd07");
  EXPECT_EQ(vt::hex(Bytes(c.getRedPixelPtr(), c.getRedPixelPtr() + 4)), "07070707");
}

TEST(PsdCodecs, InvalidFormatAndCopyMismatchThrow) {
  TpixelData16 d(TdataFormat(5)), a(k8Bits, 2, 2, false), b(k16Bits, 2, 2, false);
  d.addChannel(RED, 2, 2), a.addChannel(RED, 2, 2), b.addChannel(RED, 2, 2);
  EXPECT_EQ(vt::thrown<TpsdException>([&] { d.getRedPixelPtr(); }), "Invalid format specification for pix format");
  EXPECT_EQ(vt::thrown<TpsdException>([&] { a.copyChannel(RED, b); }), "Channel format mismatch in copy");
}

TEST(PsdCodecs, CopiesClampAndClip) {
  TpixelData16 big(k8Bits), small(k8Bits);
  big.addChannel(RED, 4, 3, 9);
  small.addChannel(RED, 2, 2);
  small.setChannelRawPixels(RED, {1, 2, 3, 4});
  big.copyChannel(RED, 3, 2, small);  // only (0,0) of the source lands inside
  const uint8_t* p = big.getRedPixelPtr();
  EXPECT_EQ(vt::hex(Bytes(p, p + 12)), "090909090909090909090901");
  big.copyChannel(RED, -1, 0, small);  // the left column falls outside
  EXPECT_EQ(p[0], 2);
  EXPECT_EQ(p[4], 4);
  TpixelData16 dst(k8Bits);
  dst.addChannel(RED, 4, 3);
  const int32_t rect[4] = {1, 0, 2, 2}, at[2] = {2, 1};
  dst.copyRect(rect, at, small);
  const uint8_t* q = dst.getRedPixelPtr();
  EXPECT_EQ(q[1 * 4 + 2], 2);
  EXPECT_EQ(q[2 * 4 + 2], 4);
  small.copyChannel(RED, big);  // the span is clamped to the source's length
  EXPECT_EQ(small.getRedPixelPtr()[3], big.getRedPixelPtr()[3]);
}

// Hostile channel data: row tables that overrun, lengths that lie, ZIP that does not inflate.
TEST(PsdCodecsMalformed, LyingLengthsAndBadZip) {
  TpixelData16 d(k8Bits);
  d.addChannel(RED, 8, 4);
  d.setCompressionMethod(RED, RLE);
  d.setChannelCompressedPixels(RED, {0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 1});  // rows of 65535 bytes
  EXPECT_FALSE(d.decodeChannel(RED));
  EXPECT_NE(d.getRedPixelPtr(), nullptr);
  d.setChannelCompressedPixels(RED, {0x00});  // not even the row table
  d.decodeChannel(RED);
  EXPECT_EQ(d.getRedPixelPtr()[31], 0);
  TpixelData16 z(k8Bits);
  z.addChannel(RED, 8, 4, 7);
  z.setCompressionMethod(RED, ZIP);
  z.setChannelCompressedPixels(RED, {1, 2, 3, 4, 5, 6});
  z.setChannelDataLength(RED, 8);
  EXPECT_FALSE(z.decodeChannel(RED));
  EXPECT_EQ(z.getRedPixelPtr()[0], 7);  // no raw samples kept: the default value
  z.setChannelCompressedPixels(RED, {1, 2});
  z.setChannelDataLength(RED, 0x7FFFFFFF);  // a length past the bytes held
  EXPECT_FALSE(z.decodeChannel(RED));
  // Found by fuzz_psd_channel: rows of length 0 and no bytes at all (a null source for memcpy).
  TpixelData16 empty(k8Bits);
  empty.addChannel(RED, 3, 2, 5);
  empty.setCompressionMethod(RED, RLE);
  empty.setCompositeLengthInfo(RED, {0, 0});
  empty.setChannelCompressedPixels(RED, {});
  empty.decodeChannel(RED);
  EXPECT_EQ(empty.getRedPixelPtr()[0], 0);
  empty.setCompressionMethod(RED, RAW);
  empty.setChannelCompressedPixels(RED, {});
  empty.decodeChannel(RED);
  TpixelData16 w(k16Bits);
  w.addChannel(RED, 3, 2);
  w.setCompressionMethod(RED, RLE);
  w.setCompositeLengthInfo(RED, {9, 40000});
  w.setChannelCompressedPixels(RED, {0x7F, 0x00, 1, 2, 3});  // literal headers past the row
  w.decodeChannel(RED);
  EXPECT_NE(w.getRedPixelPtr(), nullptr);
}
