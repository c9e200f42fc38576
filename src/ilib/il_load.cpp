// Whole-image loading (ILload, ILcload) and completing missing channels (ILfill).
#include <cstdlib>
#include <cstring>

#include "ilib/il_handle.h"

using namespace vora::il;

namespace {

// Memory order of a pixel: blue, green, red, alpha. A grey image keeps its value in green (the
// rotated slot 2 of the channel mask 4), copied to blue and red.
template <typename T>
void fillPixels(T* buf, int width, int height, int pitch, int type) {
  const T maxv = T(~T(0));
  const bool colour = type & IL_COLOR, alpha = type & IL_ALPHA, matte = type & IL_MATTE;
  for (int y = 0; y < height; ++y) {
    T* p = buf + size_t(y) * size_t(pitch) * 4;
    for (int x = 0; x < width; ++x, p += 4) {
      if (matte && alpha) {
        p[0] = p[1] = p[2] = 0;
      } else if (!colour) {
        p[0] = p[2] = p[1];
      }
      if (!alpha) p[3] = maxv;
    }
  }
}

}  // namespace

extern "C" {

void ILfill(void* buffer, int width, int height, int bytes, int pitch, int type) {
  if (!buffer || width < 1 || height < 1) return;
  if ((type & 3) == 3) return;  // colour and alpha: nothing to complete
  if (pitch < 1) pitch = width;
  if (bytes == 2) fillPixels(static_cast<uint16_t*>(buffer), width, height, pitch, type);
  else fillPixels(static_cast<unsigned char*>(buffer), width, height, pitch, type);
}

int ILload(ILimage* handle, void* colour, void* depth) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!ILgetheader(handle)) return flerrno;
  if (!(h->state & (IL_ST_WIDEN | IL_ST_TOPDOWN)) && !h->zoom) {
    if (int r = ILloadbm(handle, colour, depth)) return r;
    if (colour && !(h->state & IL_ST_PACKED)) {
      int type = int(h->hdr.type) | ((h->state & IL_ST_LOADALPHA) ? IL_ALPHA : 0);
      ILfill(colour, int(h->hdr.width), int(h->hdr.height), (h->state & IL_ST_READ16) ? 2 : 1,
             int(h->hdr.width), type);
    }
    if (depth && !(h->hdr.type & IL_ZBUFFER)) memset(depth, 0, size_t(h->hdr.width) * h->hdr.height * 4);
    return 0;
  }
  // Line by line: the buffers advance by one line each, colour widened at full depth.
  ILinitio(handle);
  uint32_t width, height;
  outputSize(h, &width, &height);
  size_t per = (h->state & IL_ST_PACKED) ? size_t(width) * h->bpp : size_t(width) * 4;
  if (h->state & IL_ST_WIDEN) per *= 2;
  else if (h->state & IL_ST_READ16) per *= h->hdr.bytes;
  unsigned char* c = static_cast<unsigned char*>(colour);
  unsigned char* z = static_cast<unsigned char*>(depth);
  for (uint32_t y = 0; y < height; ++y) {
    if (int r = ILreadline(handle, c, z)) return r;
    if (c) c += per;
    if (z) z += size_t(width) * 4;
  }
  return 0;
}

int ILcload(ILimage* handle, void** colour, void** depth) {
  if (colour) *colour = nullptr;
  if (depth) *depth = nullptr;
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!ILgetheader(handle)) return flerrno;
  if (int r = pixelSetup(h)) return r;
  uint32_t width, height;
  outputSize(h, &width, &height);
  size_t lines = height;
  size_t per = (h->state & IL_ST_WIDEN) ? h->linebytes * 2 : h->linebytes;
  if (h->zoom) per = size_t(width) * 4 * ((h->state & (IL_ST_WIDEN | IL_ST_READ16)) ? 2 : 1);
  if (!FLallocok(uint64_t(lines) * (per + size_t(width) * 4))) return fail(IL_ETOOLARGE);
  void* c = colour ? malloc(lines * per) : nullptr;
  bool hasDepth = depth && (h->hdr.type & IL_ZBUFFER);
  void* z = hasDepth ? malloc(lines * width * 4) : nullptr;
  if ((colour && !c) || (hasDepth && !z)) {
    free(c);
    free(z);
    return fail(FL_ENOMEM);
  }
  if (int r = ILload(handle, c, z)) {
    free(c);
    free(z);
    return r;
  }
  if (colour) *colour = c;
  if (depth) *depth = z;
  return 0;
}

}  // extern "C"
