// Fuzz target: the AVI structure reader (forms, header and stream lists, movi lists, both kinds
// of index) on arbitrary bytes: every refusal comes with its reason.
#include <cstdint>

#include "fuzz_file.h"
#include <vora/movie.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  TaviFileInfo info;
  Tstring why;
  if (!aviFileInfo(fuzz::tempPath().c_str(), info, why) && why.isEmpty()) __builtin_trap();
  return 0;
}
