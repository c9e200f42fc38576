// The compressor table.
#include "ilib/il_compressors.h"

namespace vora::il {

namespace {
Compressor gTable[65] = {
    {"None", ILpack, ILunpack},
    {"RLE", ILpackrle, ILunpackrle},
    {"QRL", ILpackqrl, ILunpackqrl},
    {"QR4", ILpackqr4, ILunpackqr4},
};
}  // namespace

const Compressor& compressorFor(uint32_t code) { return gTable[code < 64 ? code : 64]; }

}  // namespace vora::il

extern "C" const char* ILcompressname(int code) {
  return code >= 0 ? vora::il::compressorFor(uint32_t(code)).name : nullptr;
}
