// The compressor table: 65 slots of name, packer and unpacker. Slots 0-3 are the
// built-in codecs; 32-63 are free for ILaddcompressor; a code of 64 or more is looked
// up as slot 64, which is always empty.
#pragma once

#include <vora/ilib.h>

namespace vora::il {

struct Compressor {
  const char* name;
  ILpacker pack;
  ILunpacker unpack;
};

// The slot of a code (never null; empty slots have null members).
const Compressor& compressorFor(uint32_t code);

}  // namespace vora::il
