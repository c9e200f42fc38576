// The native image's codecs (None, RLE, QRL, QR4): bytes written out by hand, round trips of
// every codec with row pitch, the deliberate rotations, overruns.
#include <gtest/gtest.h>
#include <vora/ilib.h>

#include <cstring>
#include <random>
#include <vector>

#include "ilib/pack_common.h"
#include "support/test_support.h"

using vt::Bytes;

namespace {

ILpackdesc desc(uint32_t w, uint32_t rows, uint32_t bytes, uint32_t mask, uint32_t epp) {
  ILpackdesc d{};
  d.width = w;
  d.rows = rows;
  d.bytes = bytes;
  d.mask = mask;
  d.epp = epp;
  return d;
}

Bytes packWith(ILpacker f, ILpackdesc d, Bytes pixels) {
  Bytes out(ILrawsize(&d) + 16, 0xEE);
  uint32_t n = f(&d, pixels.data(), out.data());
  out.resize(n);
  return out;
}

// One stream (mask 1, one element per pixel: no rotation) of the given bytes.
Bytes packStream(const Bytes& stream) {
  return packWith(ILpackrle, desc(uint32_t(stream.size()), 1, 1, 1, 1), stream);
}

Bytes repeat(uint8_t v, size_t n) { return Bytes(n, v); }
Bytes range(int from, int count) {
  Bytes b;
  for (int i = 0; i < count; ++i) b.push_back(uint8_t(from + i));
  return b;
}

}  // namespace

// RLE streams byte for byte: runs and literals split at 128; two equal bytes at a stream's start
// are a run, inside a literal they stay in it; a block packing to under 128 bytes is stored raw.
TEST(IlCodecs, RleExactBytes) {
  Bytes t = vt::cat({range(0, 125), repeat(200, 103)});  // 124-byte literal + run: 128 bytes
  struct Case {
    Bytes in, out;
  } cases[] = {
      {vt::cat({repeat('A', 150), range(100, 150)}),
       vt::cat({{0xFF, 'A'}, {0x95, 'A'}, {0x7F}, range(100, 128), {0x15}, range(228, 22)})},
      {vt::cat({{5, 5}, {1, 2, 2, 3}, range(20, 120), repeat(9, 74)}),
       vt::cat({{0x81, 5}, {0x7B, 1, 2, 2, 3}, range(20, 120), {0xC9, 9}})},
      {repeat(7, 4000), repeat(7, 4000)},  // 32 runs: 64 bytes, stored raw
  };
  for (const Case& c : cases) EXPECT_EQ(vt::hex(packStream(c.in)), vt::hex(c.out));
  EXPECT_EQ(packStream(repeat(7, 64 * 128)).size(), 128u);  // 64 runs: exactly 128 bytes, packed
  EXPECT_EQ(packStream(t).size(), 128u);
}

// No run covers more than 128 bytes (0xFF at most), no literal more than 128 (0x7F);
// a packed result that would reach the raw size is replaced by the raw data.
TEST(IlCodecs, PacketLimitsAndRawWhenNotSmaller) {
  std::mt19937 rng(7);
  Bytes s;
  for (int i = 0; i < 5000; ++i) {
    int len = 1 + int(rng() % 300);
    uint8_t v = uint8_t(rng());
    if (rng() % 2) s.insert(s.end(), size_t(len), v);
    else for (int k = 0; k < len; ++k) s.push_back(uint8_t(rng()));
  }
  Bytes out = packStream(s);
  ASSERT_LT(out.size(), s.size());
  size_t i = 0, decoded = 0;
  while (i < out.size()) {
    uint8_t h = out[i];
    size_t n = (h & 0x7F) + 1;
    EXPECT_LE(n, 128u);
    i += (h & 0x80) ? 2 : 1 + n;
    decoded += n;
  }
  EXPECT_EQ(decoded, s.size());
  // Random bytes do not pack below their size: raw.
  Bytes noise(4096);
  for (auto& b : noise) b = uint8_t(rng());
  EXPECT_EQ(packStream(noise), noise);
}

// For 16-bit data, all high bytes of every slot come before all low bytes.
TEST(IlCodecs, SixteenBitHighPlanesBeforeLowPlanes) {
  const uint16_t px[4] = {0x1122, 0x3344, 0x5566, 0x7788};  // memory order B, G, R, A
  Bytes pixels(1024 * 8);
  for (size_t i = 0; i < 1024; ++i) memcpy(&pixels[i * 8], px, 8);
  Bytes expect;
  for (uint8_t v : {0x77, 0x11, 0x33, 0x55, 0x88, 0x22, 0x44, 0x66})  // A B G R high, then low
    for (int k = 0; k < 8; ++k) expect.insert(expect.end(), {0xFF, v});
  EXPECT_EQ(vt::hex(packWith(ILpackrle, desc(1024, 1, 2, 15, 4), pixels)), vt::hex(expect));
}

TEST(IlCodecs, NoneIsPixelInterleavedInSlotOrderWithLookups) {
  // Memory B G R A; rotated slots 0 A, 1 B, 2 G, 3 R; RGB only (mask 14) writes B G R.
  Bytes pixels = {1, 2, 3, 4, 5, 6, 7, 8};
  ILpackdesc d = desc(2, 1, 1, 14, 4);
  EXPECT_EQ(vt::hex(packWith(ILpack, d, pixels)), "010203050607");
  unsigned char invert[256];
  for (int i = 0; i < 256; ++i) invert[i] = uint8_t(255 - i);
  unsigned char* tables[4] = {nullptr, invert, nullptr, nullptr};  // slot 1 = blue
  d.lookups = tables;
  Bytes copy = pixels;
  EXPECT_EQ(vt::hex(packWith(ILpack, d, copy)), "fe0203fa0607");
  EXPECT_EQ(copy, pixels);  // the caller's pixels are unchanged afterwards
  // 16-bit elements big-endian, 32-bit words big-endian.
  uint16_t w16[4] = {0x0102, 0x0304, 0x0506, 0x0708};
  Bytes p16(8);
  memcpy(p16.data(), w16, 8);
  EXPECT_EQ(vt::hex(packWith(ILpack, desc(1, 1, 2, 15, 4), p16)), "0708010203040506");
  float z = 1.0f;
  Bytes pz(4);
  memcpy(pz.data(), &z, 4);
  EXPECT_EQ(vt::hex(packWith(ILpack, desc(1, 1, 4, 1, 1), pz)), "3f800000");
}

// Six BGRA pixels, four equal then two different. QRL packs colours (bits 16-23, 8-15, 0-7 of the
// rotated word: G, B, A) then the alpha row, and slot 3 reads back 0; QR4 packs whole pixels.
TEST(IlCodecs, QrlAndQr4ExactBytes) {
  Bytes pixels = vt::cat({{1, 2, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}});
  Bytes qrlBack = vt::cat({{1, 2, 0, 4}, {1, 2, 0, 4}, {1, 2, 0, 4}, {1, 2, 0, 4}, {5, 6, 0, 8}, {9, 10, 0, 12}});
  struct Case {
    ILpacker pack;
    ILunpacker unpack;
    const char* bytes;
    Bytes back;
  } cases[] = {{ILpackqrl, ILunpackqrl, "83020104010605080a090c830401080c", qrlBack},
               {ILpackqr4, ILunpackqr4, "830302010401070605080b0a090c", pixels}};
  for (const Case& c : cases) {
    ILpackdesc d = desc(6, 1, 1, 15, 4);
    Bytes packed = packWith(c.pack, d, pixels), back(pixels.size(), 0xEE);
    EXPECT_EQ(vt::hex(packed), c.bytes);
    d.packed = uint32_t(packed.size());
    ASSERT_EQ(c.unpack(&d, packed.data(), back.data()), 24u);
    EXPECT_EQ(vt::hex(back), vt::hex(c.back));
  }
  // Not four slots: QR4 hands over to QRL, and QRL without three colour slots to RLE.
  ILpackdesc rgb = desc(6, 1, 1, 14, 4), alpha = desc(6, 1, 1, 1, 4);
  EXPECT_EQ(packWith(ILpackqr4, rgb, pixels), packWith(ILpackqrl, rgb, pixels));
  EXPECT_EQ(packWith(ILpackqrl, alpha, pixels), packWith(ILpackrle, alpha, pixels));
}

TEST(IlCodecs, RotationsAreDeliberatelyAsymmetricForFourByteElements) {
  uint8_t one[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ILpackdesc d = desc(2, 1, 1, 15, 4);
  ConvertBGRAtoABGR(&d, one);
  EXPECT_EQ(vt::hex(Bytes(one, one + 8)), "0401020308050607");
  ConvertABGRtoBGRA(&d, one);
  EXPECT_EQ(vt::hex(Bytes(one, one + 8)), "0102030405060708");
  uint32_t words[4] = {0x11223344, 0x55667788, 0x99AABBCC, 0xDDEEFF00};
  ILpackdesc d4 = desc(1, 1, 4, 15, 4);
  ConvertBGRAtoABGR(&d4, reinterpret_cast<unsigned char*>(words));  // bytes inside each element
  EXPECT_EQ(words[0], 0x22334411u);
  ConvertABGRtoBGRA(&d4, reinterpret_cast<unsigned char*>(words));  // whole elements
  EXPECT_EQ(words[0], 0x66778855u);
  EXPECT_EQ(words[3], 0x22334411u);
  ILpackdesc three = desc(2, 1, 1, 7, 3);  // only with four elements per pixel
  uint8_t p3[6] = {1, 2, 3, 4, 5, 6};
  ConvertBGRAtoABGR(&three, p3);
  EXPECT_EQ(p3[0], 1);
}

// Round trips of every codec, 8 and 16 bits, several masks, with a row pitch wider than the block.
TEST(IlCodecs, RoundTripsEveryCodecWithPitch) {
  std::mt19937 rng(3);
  struct Codec {
    ILpacker pack;
    ILunpacker unpack;
  } codecs[] = {{ILpack, ILunpack}, {ILpackrle, ILunpackrle}, {ILpackqrl, ILunpackqrl},
                {ILpackqr4, ILunpackqr4}};
  for (const Codec& c : codecs)
    for (uint32_t bytes : {1u, 2u})
      for (uint32_t mask : {15u, 14u, 1u, 5u})
        for (uint32_t w : {1u, 63u, 130u}) {
          uint32_t rows = 37, pitch = w + 5;
          size_t n = size_t(pitch) * rows * 4 * bytes;
          Bytes src(n);
          for (size_t i = 0; i < n; ++i) src[i] = uint8_t((rng() % 4) ? (i / 97) : rng());
          ILpackdesc d = desc(w, rows, bytes, mask, 4);
          d.pitch = pitch;
          Bytes keep = src;
          Bytes packed(ILrawsize(&d));
          uint32_t np = c.pack(&d, src.data(), packed.data());
          ASSERT_EQ(src, keep);
          ASSERT_LE(np, ILrawsize(&d));
          Bytes back = src;  // slots not present keep their bytes
          d.packed = np;
          ASSERT_EQ(c.unpack(&d, packed.data(), back.data()), uint32_t(w * rows * 4 * bytes));
          // QRL drops slot 3 unless it fell back to the raw form.
          bool qrlLoss = (c.pack == ILpackqrl || (c.pack == ILpackqr4 && mask != 15)) &&
                         bytes == 1 && flbitset[mask] >= 3 && np < ILrawsize(&d);
          for (uint32_t y = 0; y < rows; ++y)
            for (uint32_t x = 0; x < w; ++x)
              for (uint32_t e = 0; e < 4; ++e) {
                // Memory element e is rotated slot (e + 1) % 4; QRL does not keep slot 3 (red).
                uint32_t slot = (e + 1) % 4;
                size_t at = ((size_t(y) * pitch + x) * 4 + e) * bytes;
                for (uint32_t b = 0; b < bytes; ++b) {
                  uint8_t want = (mask & (1u << slot)) ? keep[at + b] : back[at + b];
                  if (qrlLoss && slot == 3) want = 0;
                  ASSERT_EQ(back[at + b], want) << c.pack << " bytes " << bytes << " mask " << mask
                                                << " w " << w << " at " << x << "," << y;
                }
              }
        }
}

// Byte elements in every slot go through planes and the vectorised split and join (also with
// streaming stores); a lookup table that maps every byte to itself sends the same block
// through the per-byte path. Both give the same packed bytes and the same pixels, also from
// damaged packets (the same refusals).
TEST(IlCodecs, RlePlanesEqualThePerBytePath) {
  std::mt19937 rng(9);
  unsigned char identity[256];
  for (int i = 0; i < 256; ++i) identity[i] = uint8_t(i);
  unsigned char* tables[4] = {identity, identity, identity, identity};
  for (uint32_t epp : {2u, 3u, 4u})
    for (uint32_t w : {1u, 40u, 64u, 71u})
      for (int round = 0; round < 4; ++round) {
        const int damage = round & 1;
        ILpackdesc fast = desc(w, 23, 1, (1u << epp) - 1, epp), plain = fast;
        fast.pitch = plain.pitch = w + 3;
        fast.options = round & 2 ? IL_UNPACK_STREAM : 0;
        plain.lookups = tables;
        Bytes src(size_t(w + 3) * 23 * epp);
        for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(rng() % 3 ? i / 50 : rng());
        const Bytes a = packWith(ILpackrle, fast, src), b = packWith(ILpackrle, plain, src);
        ASSERT_EQ(a, b) << epp << " " << w;
        Bytes packed = a;
        for (int k = 0; damage && k < 8; ++k) packed[rng() % packed.size()] = uint8_t(rng());
        Bytes x(src.size(), 0xEE), y(src.size(), 0xEE);
        fast.packed = plain.packed = uint32_t(packed.size());
        const uint32_t nx = ILunpackrle(&fast, packed.data(), x.data()), ny = ILunpackrle(&plain, packed.data(), y.data());
        ASSERT_EQ(nx, ny) << epp << " " << w << " " << damage;
        if (nx) {
          EXPECT_EQ(x, y) << epp << " " << w << " " << damage;
        }
      }
}

// The block encoder makes the plain encoder's packets and meets the budget where it does: streams
// of noise, of pairs, of runs of three and of 129, of literals of 127 to 129 ending in equal bytes.
TEST(IlCodecs, RleBlockEncoderEqualsThePlainEncoder) {
  std::mt19937 rng(21);
  for (int round = 0; round < 600; ++round) {
    const size_t n = 1 + rng() % (round % 2 ? 40 : 700);
    const int period = 1 + int(rng() % 140);
    Bytes a(n);
    for (size_t i = 0; i < n; ++i)
      a[i] = uint8_t(round % 5 == 0 ? rng() : round % 5 == 1 ? i / (round % 3 ? 2 : 200) : round % 5 == 2 ? i / 3 : (i % period) < 3 ? 7 : rng() % 4);
    const size_t budget = round % 3 ? 2 * n + 8 : n;  // a third must fall back within the raw size
    Bytes fast(budget + 1), plain(budget + 1);
    vora::il::pack::Output of(fast.data(), budget), op(plain.data(), budget);
    const bool a1 = vora::il::pack::encodeBytes(of, a.data(), n), a2 = vora::il::pack::encodeBytesPlain(op, a.data(), n);
    ASSERT_EQ(a1, a2) << round;
    if (a1) {
      ASSERT_EQ(Bytes(fast.data(), of.at()), Bytes(plain.data(), op.at())) << round;
    }
  }
}

TEST(IlCodecs, QrlRowsWiderThan4096AreCodedWhole) {
  // One row of 5000 equal pixels: runs of 128 across the whole row, then the alpha row.
  const uint32_t w = 5000;
  Bytes pixels;
  for (uint32_t i = 0; i < w; ++i) pixels.insert(pixels.end(), {1, 2, 3, 4});
  ILpackdesc d = desc(w, 1, 1, 15, 4);
  Bytes packed = packWith(ILpackqrl, d, pixels);
  ASSERT_EQ(packed.size(), 40u * 4 + 40u * 2);  // 39 runs of 128 and one of 8, twice
  EXPECT_EQ(vt::hex(Bytes(packed.begin() + 39 * 4, packed.begin() + 40 * 4)), "87020104");
  Bytes back(pixels.size());
  d.packed = uint32_t(packed.size());
  ASSERT_EQ(ILunpackqrl(&d, packed.data(), back.data()), w * 4);
  EXPECT_EQ(vt::hex(Bytes(back.begin() + 4095 * 4, back.begin() + 4097 * 4)), "0102000401020004");
}

// Packed data that overruns its block, and descriptors the codecs cannot serve (slots outside the
// pixel, three-byte elements, overlapping rows): the decoders answer 0 with code 23.
TEST(IlCodecs, DecodersRefuseOverrunsAndImpossibleDescriptors) {
  auto with = [](ILpackdesc d, uint32_t pitch) { return d.pitch = pitch, d; };
  struct Case {
    const char* what;
    ILunpacker unpack;
    ILpackdesc d;
    Bytes in;
  } cases[] = {
      {"RLE runs of 256 for a 200-byte plane", ILunpackrle, desc(200, 1, 1, 1, 1), {0xFF, 1, 0xFF, 1}},
      {"a literal past the end of the input", ILunpackrle, desc(200, 1, 1, 1, 1), {0x7F, 1, 2}},
      {"a QRL run of 6 pixels in a row of 4", ILunpackqrl, desc(4, 2, 1, 14, 4), {0x85, 1, 2, 3}},
      {"raw data not whole", ILunpack, desc(200, 1, 1, 1, 1), Bytes(10, 0)},
      {"four slots in a two-element pixel", ILunpackrle, desc(4, 1, 1, 15, 2), Bytes(16, 0)},
      {"three-byte elements", ILunpack, desc(4, 1, 3, 1, 1), Bytes(12, 0)},
      {"rows that overlap", ILunpackqr4, with(desc(8, 2, 1, 1, 1), 4), Bytes(16, 0)},
  };
  for (Case& c : cases) {
    Bytes px(256 * 8);
    c.d.packed = uint32_t(c.in.size());
    flerrno = 0;
    EXPECT_EQ(c.unpack(&c.d, c.in.data(), px.data()), 0u) << c.what;
    EXPECT_EQ(flerrno, 23) << c.what;
  }
  Bytes px(64), out(64);
  ILpackdesc d = desc(4, 1, 1, 15, 2);
  EXPECT_EQ(ILpackrle(&d, px.data(), out.data()), 0u);  // encoders: 0
}

namespace {
int gPacked = 0, gUnpacked = 0;
uint32_t countingPack(ILpackdesc* d, unsigned char* p, unsigned char* o) { return ++gPacked, ILpackqrl(d, p, o); }
uint32_t countingUnpack(ILpackdesc* d, const unsigned char* i, unsigned char* p) {
  return ++gUnpacked, ILunpackqrl(d, i, p);
}
}  // namespace

// The table the tile codecs consult: only codes 32-63 take the caller's codecs, and an image
// written with one reads back through it.
TEST(IlCodecs, CallersCompressorsServeTheTileCodecs) {
  char name[256];
  ILpacker p = ILpackrle;
  ILunpacker u = ILunpackrle;
  for (int code : {7, 200, -1}) {
    ILfindcompressor(code, name, &p, &u);
    EXPECT_STREQ(name, "") << code;
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(u, nullptr);
  }
  EXPECT_NE(ILaddcompressor(5, "no", ILpackrle, ILunpackrle), 0u);
  EXPECT_NE(ILaddcompressor(64, "no", ILpackrle, ILunpackrle), 0u);
  EXPECT_EQ(ILcompressname(5), nullptr);
  EXPECT_STREQ(reinterpret_cast<const char*>(ILaddcompressor(40, "Counting", countingPack, countingUnpack)),
               "Counting");
  ILfindcompressor(40, name, &p, &u);
  EXPECT_STREQ(name, "Counting");
  vt::TempDir d;
  const std::string file = d.path("c.iff");
  std::vector<unsigned char> pixels(40 * 30 * 4), back(pixels.size());
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = uint8_t(i * 7 / 5);
  ILimage* w = ILopen(file.c_str(), "w");
  ILsetsize(w, 40, 30);
  ILsettype(w, IL_COLOR | IL_ALPHA);
  ILsetcompress(w, 40);
  ASSERT_EQ(ILsave(w, pixels.data(), nullptr, 0), 0);
  ASSERT_EQ(ILclose(w), 0);
  ILimage* r = ILopen(file.c_str(), "r");
  ASSERT_EQ(ILload(r, back.data(), nullptr), 0);
  ILclose(r);
  EXPECT_EQ(back, pixels);
  EXPECT_GT(gPacked, 0);
  EXPECT_EQ(gUnpacked, gPacked);
  ILaddcompressor(40, nullptr, nullptr, nullptr);
  r = ILopen(file.c_str(), "r");
  EXPECT_EQ(ILload(r, back.data(), nullptr), IL_ENOCODEC);
  ILclose(r);
}
