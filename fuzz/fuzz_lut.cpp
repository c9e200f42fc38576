// Fuzz target: TccLutFile::read on arbitrary bytes (all six parsers in turn), then a
// few conversions and a batch through whatever table came out.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "fuzz_file.h"
#include <vora/colorlut.h>


extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  TfileStream s(fuzz::tempPath().c_str());
  std::unique_ptr<TccLut> lut(TccLutFile::read(s));
  if (!lut) return 0;
  TscLutColor o(0, 0, 0, 0);
  for (float v : {-1.0f, 0.0f, 0.37f, 1.0f, 2.0f}) lut->convert(TscLutColor(v, 1.0f - v, v * v), o);
  float px[12] = {0.1f, 0.5f, 1.0f, 1, 0, 0, 0, 1, 1.0f, 1.0f, 1.0f, 0};
  ccLutApply(*lut, nullptr, px, 3, 4, 1);
  return 0;
}
