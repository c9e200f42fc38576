// Fuzz target: every decoder on arbitrary packed bytes and descriptors. The first 8
// bytes choose the codec and the descriptor; the rest is the packed input.
#include <cstdint>
#include <cstring>
#include <vector>

#include <vora/ilib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8) return 0;
  static const ILunpacker unpackers[] = {ILunpack, ILunpackrle, ILunpackqrl, ILunpackqr4};
  ILpackdesc d{};
  d.width = 1 + data[1] % 80;
  d.rows = 1 + data[2] % 40;
  static const uint32_t bytesOf[] = {1, 2, 4, 1};
  d.bytes = bytesOf[data[3] & 3];
  d.mask = data[4] & 15;
  d.epp = 1 + (data[5] & 3);
  if (d.epp == 2) d.epp = 4;
  d.pitch = (data[6] & 1) ? d.width + (data[6] >> 4) : 0;
  d.byteelems = (data[6] >> 1) & 1;
  d.options = (data[6] >> 2) & 1;
  // Descriptors the codecs cannot serve (slots outside the pixel) must be refused, not served.
  if (data[7] & 2) d.mask |= data[7] & 0xF0;
  unsigned char table[256];
  for (int i = 0; i < 256; ++i) table[i] = uint8_t(255 - i);
  unsigned char* tables[4] = {table, nullptr, table, nullptr};
  if (data[7] & 1) d.lookups = tables;
  const uint8_t* in = data + 8;
  d.packed = uint32_t(size - 8);
  uint32_t mem = d.byteelems ? 1 : d.bytes;
  size_t pitch = d.pitch ? d.pitch : d.width;
  std::vector<unsigned char> out(pitch * d.rows * d.epp * mem, 0);  // what a caller would give
  // The packed input lives in its own exact-size allocation so overreads are caught.
  std::vector<uint8_t> packed(in, in + d.packed);
  unpackers[data[0] & 3](&d, packed.data(), out.data());
  return 0;
}
