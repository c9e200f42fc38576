// Fuzz target: a whole-image ILload, then line by line top-down, on arbitrary
// bytes written to a file.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_file.h"
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
      std::vector<unsigned char> px(size_t(w) * h * 8);
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
  return 0;
}
