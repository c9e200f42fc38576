// Frame ranges given in a name's extension ("shot.iff.1,100,2").
#include <cstdlib>
#include <cstring>

#include "ilib/il_handle.h"

extern "C" int ILrange(const char* name, double range[3], char* realname, int /*extra*/) {
  if (!name) return -1;
  if (strchr(name, ':')) {
    if (strncmp(name, "mmap:", 5) != 0) return 0;
    name += 5;
  }
  if (realname) strcpy(realname, name);
  const char* previous = FLswappath(ILgetpath());
  bool found = FLfindfile(name) != nullptr;
  FLswappath(previous);
  if (found) return 0;
  const char* ext = FLgetext(name);
  if (!ext || !strchr(ext, ',')) return -1;
  char* end = nullptr;
  double start = strtod(ext, &end);
  double last = 0.0;
  long step = 1;
  if (*end == ',') {
    const char* e2 = end + 1;
    last = strtod(e2, &end);
    if (end == e2) last = 0.0;
    if (*end == ',') {
      long s = strtol(end + 1, nullptr, 10);
      if (s != 0) step = s;
    }
  }
  if (last == 0.0) last = 1e10;  // a missing or zero end means "no end"
  if (last < start) last = start;
  if (range) {
    range[0] = start;
    range[1] = last;
    range[2] = double(step);
  }
  if (realname) realname[ext - 1 - name] = 0;
  return 1;
}
