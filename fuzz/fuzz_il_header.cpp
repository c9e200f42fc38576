// Fuzz target: ILopen + ILgetheader + fields + texts on arbitrary bytes, then a walk
// of every chunk and group with the FL reader (as vimg info --chunks does).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_file.h"
#include <vora/foundation/fl.h>
#include <vora/ilib.h>

namespace {

void walk(FLfile* f, int depth) {
  FLid id, type;
  uint32_t size;
  while (FLbgnget(f, &id, &size) == 0) {
    if (FLisgroup(id)) {
      if (FLbgnrgroup(f, &type) != 0) return;
      walk(f, depth + 1);
      if (FLendrgroup(f) != 0) return;
    } else {
      uint8_t buf[64];
      FLget(f, buf, sizeof buf);
      if (FLendget(f) != 0) return;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Non-native data goes to the input conversion: make sure no converter program can be found,
  // so that each run stays in this process.
  setenv("PATH", "/nonexistent", 1);
  unsetenv("ILICVT");
  ILinfilter(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  if (ILimage* img = ILopen(fuzz::tempPath().c_str(), "r")) {
    if (const ILheader* h = ILgetheader(img)) {
      volatile uint32_t sink = h->width ^ h->height;
      (void)sink;
      for (int i = 0; uint32_t tag = ILfieldtag(img, i); ++i) ILgetfield(img, tag, nullptr);
      const char* t;
      ILgetchunktext(img, FL_ID('A', 'U', 'T', 'H'), &t);
      ILinitio(img);
      ILsetbpp(img, 2);
    }
    while (ILnext(img) == 0) ILgetheader(img);
    ILclose(img);
  }
  if (FLfile* f = FLopen(fuzz::tempPath().c_str(), "r")) {
    walk(f, 0);
    FLclose(f);
  }
  return 0;
}
