// Fuzz target: the AVI structure reader (forms, header and stream lists, movi lists, both kinds
// of index) on arbitrary bytes.
#include <cstdint>

#include "fuzz_file.h"
#include <vora/movie.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  TaviFileInfo info;
  Tstring why;
  aviFileInfo(fuzz::tempPath().c_str(), info, why);
  return 0;
}
