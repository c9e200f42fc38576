// Fuzz target: the HDR readers (Radiance RGBE of our own, OpenEXR through its library) on
// arbitrary bytes: OpenEXR's magic number picks the EXR reader, anything else the Radiance one.
// EXR inputs first pass OpenEXR's own checker (the decoding inside that library is fuzzed
// upstream); what is ours, the window and size checks before allocating, is reached either way.
#include <ImfCheckFile.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "fuzz_file.h"
#include <vora/hdr_readers.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const bool exr = size >= 4 && data[0] == 0x76 && data[1] == 0x2f && data[2] == 0x31 && data[3] == 0x01;
  if (exr && !Imf::checkOpenEXRFile(reinterpret_cast<const char*>(data), size, true, true)) return 0;
  const std::string path = fuzz::tempPath() + (exr ? ".exr" : ".hdr");
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) return 0;
  fwrite(data, 1, size, f);
  fclose(f);
  std::unique_ptr<ThdrImageFile> reader(exr ? newOpenExrReader() : newRadianceReader());
  ThdrImageFileInfo info;
  TgenericPixelMap<float> map;
  if (reader->open(path.c_str(), info) == 0) reader->read(map, info.values[0] <= 4096 ? kHdrReadDisplayWindow : 0);
  remove(path.c_str());
  return 0;
}
