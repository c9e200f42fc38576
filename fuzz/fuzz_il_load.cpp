// Fuzz target: a whole-image ILload (at 16 bits or in the float layout when the input says so),
// line by line top-down, the float conversion and the depth preview, on arbitrary bytes written
// to a file.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include <vora/iff_image_file.h>
#include <vora/ilib.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("PATH", "/nonexistent", 1);  // no conversion program: everything stays in-process
  unsetenv("ILICVT");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  for (int pass = 0; pass < 2; ++pass) {
    ILimage* img = ILopen(fuzz::tempPath().c_str(), "r");
    if (!img) return 0;
    int w = 0, h = 0;
    if (ILgetsize(img, &w, &h) == 0 && w > 0 && h > 0 && uint64_t(w) * h <= (1u << 20)) {
      if (size > 40 && (data[40] & 1)) ILsetbpp(img, 2);
      if (size > 40 && (data[40] & 2)) ILctrl(img, IL_ST_READ16 | IL_ST_PACKED, 1);
      std::vector<unsigned char> px(size_t(w) * h * 16);  // up to four 32-bit floats a pixel
      std::vector<float> z(size_t(w) * h);
      if (pass == 0) {
        ILload(img, px.data(), z.data());
      } else {
        ILctrl(img, IL_ST_TOPDOWN, 1);
        for (int y = 0; y < h; ++y)
          if (ILreadline(img, px.data() + size_t(y) * w * 8, z.data() + size_t(y) * w)) break;
      }
    }
    ILclose(img);
  }
  TiffImageFile f(fuzz::tempPath().c_str(), "r");
  int w = 0, h = 0;
  if (f.getSize(w, h) == 0 && w > 0 && h > 0 && uint64_t(w) * h <= (1u << 20)) {
    std::vector<unsigned char> px(size_t(w) * h * 4);
    f.loadFloatToByte(px.data(), nullptr);
    TpixelMap map;
    if (f.reopen(fuzz::tempPath().c_str(), "r")) f.readZBuffer(map, w, h);
  }
  return 0;
}
