// The compressor table.
#include "ilib/il_compressors.h"

#include <cstdlib>
#include <cstring>

namespace vora::il {

namespace {
Compressor gTable[65] = {
    {"None", ILpack, ILunpack},
    {"RLE", ILpackrle, ILunpackrle},
    {"QRL", ILpackqrl, ILunpackqrl},
    {"QR4", ILpackqr4, ILunpackqr4},
};
constexpr int kFirstFree = 32, kLastFree = 63;
}  // namespace

const Compressor& compressorFor(uint32_t code) { return gTable[code < 64 ? code : 64]; }

}  // namespace vora::il

using vora::il::gTable;

extern "C" {

const char* ILcompressname(int code) { return code >= 0 ? vora::il::compressorFor(uint32_t(code)).name : nullptr; }

uintptr_t ILaddcompressor(int code, const char* name, ILpacker packer, ILunpacker unpacker) {
  if (code < vora::il::kFirstFree || code > vora::il::kLastFree) return uintptr_t(unsigned(code - 32));
  vora::il::Compressor& slot = gTable[code];
  free(const_cast<char*>(slot.name));
  slot.name = name ? strdup(name) : nullptr;
  slot.pack = packer;
  slot.unpack = unpacker;
  return uintptr_t(slot.name);
}

void ILfindcompressor(int code, char* name, ILpacker* packer, ILunpacker* unpacker) {
  const vora::il::Compressor& slot = vora::il::compressorFor(code < 0 ? 64u : uint32_t(code));
  if (name) {
    name[0] = '\0';
    if (slot.name) {
      strncpy(name, slot.name, 255);
      name[255] = '\0';
    }
  }
  if (packer) *packer = slot.pack;
  if (unpacker) *unpacker = slot.unpack;
}

}  // extern "C"
