// Fuzz target: the HDR readers (Radiance RGBE of our own, OpenEXR through its library) on
// arbitrary bytes: OpenEXR's magic number picks the EXR reader, anything else the Radiance one.
// Pixels are read only for small pictures (4096 samples at most): what is ours, the window and
// size checks before allocating, is reached at every size, and the decoders stay quick. A read
// answers 0 or -1, nothing else.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "fuzz_file.h"
#include <vora/hdr_readers.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const bool exr = size >= 4 && data[0] == 0x76 && data[1] == 0x2f && data[2] == 0x31 && data[3] == 0x01;
  const std::string suffix = exr ? ".exr" : ".hdr", path = fuzz::tempPath() + suffix;
  if (!fuzz::writeInput(data, size, suffix)) return 0;
  std::unique_ptr<ThdrImageFile> reader(exr ? newOpenExrReader() : newRadianceReader());
  ThdrImageFileInfo info;
  TgenericPixelMap<float> map;
  if (reader->open(path.c_str(), info) == 0 && int64_t(info.values[5]) * info.values[6] <= 4096 &&
      int64_t(info.values[0]) * info.values[1] <= 4096)
    if (int r = reader->read(map, size % 2 ? kHdrReadDisplayWindow : 0); r != 0 && r != -1) __builtin_trap();
  remove(path.c_str());
  return 0;
}
