// Fuzz target: the channel decoders on arbitrary compressed bytes, row tables and data
// lengths. The first 8 bytes choose the method, format, size and table form. The block PackBits
// decoder is also checked against the plain one on the whole input as one long row.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <vora/photoshop.h>

using namespace ktPhotoshop;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8) return 0;
  TpixelData16 d(data[0] & 1 ? k16Bits : k8Bits);
  uint32_t w = 1 + data[1] % 64, h = 1 + data[2] % 32;
  d.addChannel(RED, w, h, 3);
  d.setCompressionMethod(RED, TCompressionMethod(data[3] & 3));
  size_t at = 8;
  if (data[4] & 1) {  // a separate row-length table from the next bytes
    std::vector<uint16_t> table;
    for (uint32_t y = 0; y < h && at + 1 < size; ++y, at += 2) table.push_back(uint16_t(data[at] << 8 | data[at + 1]));
    d.setCompositeLengthInfo(RED, table);
  }
  d.setChannelCompressedPixels(RED, TsampleBuffer(data + at, data + size));
  const size_t want = size_t(data[1]) << 4 | data[2] >> 4;
  std::vector<uint8_t> fast(want + 1), plain(want + 1);
  if (codec::unpackBits8(data + 8, size - 8, fast.data(), want) != codec::unpackBits8Plain(data + 8, size - 8, plain.data(), want) ||
      memcmp(fast.data(), plain.data(), want) != 0)
    abort();
  d.setChannelDataLength(RED, uint32_t(data[5] << 8 | data[6]) + (data[7] & 1 ? uint32_t(size) : 0));
  try {
    d.decodeChannel(RED);
    const uint8_t* p = d.getChannelPixPtr(RED);
    volatile uint8_t sink = p[0];
    (void)sink;
    d.setCompressionMethod(RED, TCompressionMethod(data[3] >> 2 & 3));
    TpixelData16 e(d.format());
    e.addChannel(RED, w, h);
    e.setChannelRawPixels(RED, std::vector<uint8_t>(p, p + size_t(w) * h * (d.is16bit() ? 2 : 1)));
    e.setCompressionMethod(RED, TCompressionMethod(data[3] >> 2 & 3));
    e.compressChannel(RED, data[4] & 2);
  } catch (const TpsdException&) {
  }
  return 0;
}
