// Quick blur of a 4-byte-per-pixel image: shrink, then enlarge through a blurring gauss zoom.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include <vora/ilib.h>

#include "foundation/status.h"

namespace {

// Lines of an image in memory, width * 4 bytes apart.
struct MemoryLines {
  const unsigned char* base;
  size_t stride;
  int next;
};

int memoryLine(void* source, void** colour, void** depth) {
  MemoryLines* m = static_cast<MemoryLines*>(source);
  *colour = const_cast<unsigned char*>(m->base + m->stride * size_t(m->next++));
  *depth = nullptr;
  return 0;
}

// Resamples in (sw x sh) into out (dw x dh).
int run(ILzoom* z, unsigned char* out, const unsigned char* in, int sw, int sh, int dw, int dh) {
  MemoryLines src{in, size_t(sw) * 4, 0};
  if (int r = ILbindzoom(z, &src, memoryLine, IL_ZOOM_8, dw, dh, sw, sh)) return r;
  for (int y = 0; y < dh; ++y)
    if (int r = ILreadzoom(z, out + size_t(y) * dw * 4, nullptr)) return r;
  return 0;
}

// The two gauss zooms, made on first use and kept for the process.
std::mutex gLock;
ILzoom* gZoom[2];

int zooms() {
  for (ILzoom*& z : gZoom) {
    if (z) continue;
    flerrno = 0;
    z = ILnewzoom("gauss");
    if (!z) return flerrno;
    if (flerrno) {
      int r = flerrno;
      ILdelzoom(z);
      z = nullptr;
      return r;
    }
  }
  return 0;
}

}  // namespace

extern "C" int ILqblur(void* out, const void* in, int width, int height, float percent) {
  if (!out || !in || width < 1 || height < 1) return vora::toFlerrno(FL_ESTATE);
  const unsigned char* src = static_cast<const unsigned char*>(in);
  unsigned char* dst = static_cast<unsigned char*>(out);
  if (percent <= 0) {
    if (dst != src) memmove(dst, src, size_t(width) * height * 4);
    return 0;
  }
  std::lock_guard<std::mutex> lock(gLock);
  if (int r = zooms()) return r;
  double sx = width * percent * 0.01, sy = height * percent * 0.01;
  // the zooms read lines as they write others: work from a copy when in and out are one buffer
  std::vector<unsigned char> copy;
  if (dst == src) {
    copy.assign(src, src + size_t(width) * height * 4);
    src = copy.data();
  }
  if (sx < 1.5 && sy < 1.5) {
    ILsetzoomblur(gZoom[0], percent, percent);
    return run(gZoom[0], dst, src, width, height, width, height);
  }
  sx = std::clamp(sx, 1.0, 4096.0);
  sy = std::clamp(sy, 1.0, 4096.0);
  const int iw = std::max(4, int(width / sx)), ih = std::max(4, int(height / sy));
  std::vector<unsigned char> small(size_t(iw) * ih * 4);
  ILsetzoomblur(gZoom[0], 0, 0);
  if (int r = run(gZoom[0], small.data(), src, width, height, iw, ih)) return r;
  ILsetzoomblur(gZoom[1], percent, percent);
  return run(gZoom[1], dst, small.data(), iw, ih, width, height);
}
