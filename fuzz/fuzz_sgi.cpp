// Fuzz target: iopen, getrow of every row of every channel and getpixels of the whole picture
// on arbitrary bytes.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include <vora/sgi.h>


extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  IMAGE* img = iopen(fuzz::tempPath().c_str(), "r", 0, 0, 0, 0, 0);
  if (!img) return 0;
  std::vector<unsigned short> row(size_t(img->xsize) + 1);
  // Bounded work per input: at most 4096 rows are asked for.
  unsigned asked = 0;
  for (unsigned z = 0; z < img->zsize && asked < 4096; ++z)
    for (unsigned y = 0; y < img->ysize && asked < 4096; ++y, ++asked) getrow(img, row.data(), y, z);
  getrow(img, row.data(), img->ysize, 0);  // out of range
  iclose(img);
  // The whole picture, when it is small enough to hold (the bytes per channel as the header says,
  // bounded by the two the reader takes).
  img = iopen(fuzz::tempPath().c_str(), "r", 0, 0, 0, 0, 0);
  if (!img) return 0;
  const size_t rowBytes = size_t(img->xsize) * img->zsize * 2;
  if (rowBytes * img->ysize <= (16u << 20)) {
    std::vector<uint8_t> px(rowBytes * img->ysize + 1);
    getpixels(img, px.data(), rowBytes);
  }
  iclose(img);
  return 0;
}
