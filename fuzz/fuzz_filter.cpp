// Fuzz target: a filter file of arbitrary bytes, then a reduction and an enlargement through it
// (the tap tables of whatever kernel it declares).
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <vora/ilib.h>

namespace {

const std::string& directory() {
  static const std::string dir = [] {
    char name[] = "/tmp/vora_fuzz_filter_XXXXXX";
    std::string d = mkdtemp(name) ? name : "/tmp";
    setenv("VORA_FILTER_PATH", d.c_str(), 1);
    return d;
  }();
  return dir;
}

std::vector<uint8_t> gPixels(23 * 17 * 4);

int line(void* source, void** colour, void** depth) {
  int* row = static_cast<int*>(source);
  *colour = gPixels.data() + size_t(*row % 17) * 23 * 4;
  ++*row;
  *depth = nullptr;
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* f = fopen((directory() + "/fz.filter").c_str(), "wb");
  if (!f) return 0;
  fwrite(data, 1, size, f);
  fclose(f);
  for (size_t i = 0; i < gPixels.size(); ++i) gPixels[i] = uint8_t(i * 37);
  flerrno = 0;
  ILzoom* z = ILnewzoom("fz");
  if (!z) return 0;
  const int sizes[][4] = {{7, 5, 23, 17}, {61, 40, 23, 17}};
  std::vector<uint8_t> out(61 * 4 * 2);
  for (const auto& s : sizes)
    for (float blur : {0.0f, 30.0f, -20.0f}) {
      int row = 0;
      ILsetzoomblur(z, blur, blur / 2);
      if (ILbindzoom(z, &row, line, IL_ZOOM_8, s[0], s[1], s[2], s[3]) == 0)
        for (int y = 0; y < s[1]; ++y) ILreadzoom(z, out.data(), nullptr);
    }
  ILdelzoom(z);
  return 0;
}
