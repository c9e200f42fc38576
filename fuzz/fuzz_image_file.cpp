// The image file front end on any bytes: identified, opened (native, SGI, or a Photoshop document
// converted to a temporary native file), read whole at the file's size or resampled, with depth,
// and by bands.
#include <cstdint>

#include <vora/image_file.h>

#include "fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The whole input is the file (so that sample files seed it); its last byte also picks the reads.
  if (size < 1 || !fuzz::writeInput(data, size)) return 0;
  const uint8_t mode = data[size - 1];
  TimageFile f;
  if (f.identifyAndOpen(fuzz::tempPath().c_str()) != 0) return 0;
  TpixelMap map;
  if (mode & 1) map.requestSize({0, 0, uint16_t(1 + (mode >> 2)), uint16_t(1 + (mode >> 4))});
  map.setWantDepthMap(mode & 2);
  if (mode & 0x80) {
    unsigned short w = 0, h = 0;
    unsigned char bytes = 0;
    if (f.getDimensions(w, h, bytes) == 0 && map.create(w, h)) f.readPixelMap(map, 0, h);
  } else if (f.readPixelMap(map) == 0 && (mode & 2)) {
    TdepthBuffer depth;
    f.close();
    if (f.identifyAndOpen(fuzz::tempPath().c_str()) == 0) f.readDepthMap(depth);
  }
  f.close();
  return 0;
}
