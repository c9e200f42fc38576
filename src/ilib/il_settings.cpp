// Setters, getters, control and configuration words, the search path, the globals.
#include <cstring>
#include <string>

#include "ilib/il_handle.h"

using namespace vora::il;

namespace {

// Setters fail with 103 once the header is done.
bool headerDone(Handle* h) { return (h->state & IL_ST_HEADER) != 0; }
bool isRead(Handle* h) { return (h->state & IL_ST_READ) != 0; }

// Single-value getters answer all-ones when the header cannot be had.
Handle* withHeader(ILimage* handle) {
  if (!handle) {
    fail(FL_ESTATE);
    return nullptr;
  }
  return ILgetheader(handle) ? H(handle) : nullptr;
}

}  // namespace

extern "C" {

uint32_t ilconfig = 0;

const unsigned char ildeflut[256] = {
#define R4(n) n, n + 1, n + 2, n + 3
#define R16(n) R4(n), R4(n + 4), R4(n + 8), R4(n + 12)
#define R64(n) R16(n), R16(n + 16), R16(n + 32), R16(n + 48)
    R64(0), R64(64), R64(128), R64(192)
#undef R4
#undef R16
#undef R64
};

int ILsetsize(ILimage* handle, int width, int height) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!isRead(h) && headerDone(h)) return fail(IL_EHEADERDONE);
  if (width < 1 || height < 1 || !sizeInRange(uint32_t(width), uint32_t(height))) return fail(IL_ESIZE);
  if (isRead(h)) return ILsetzoom(handle, nullptr, width, height, 0, 0, 0.5f, 0.5f);
  h->hdr.width = uint32_t(width);
  h->hdr.height = uint32_t(height);
  return 0;
}

int ILsetorigin(ILimage* handle, int x, int y) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  h->hdr.orgx = uint32_t(x);
  h->hdr.orgy = uint32_t(y);
  return 0;
}

int ILsettype(ILimage* handle, int type) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  if (isRead(h)) return 0;
  // The matte flag drops the colour bit and is itself not kept.
  h->hdr.type = uint32_t(type) & ((type & IL_MATTE) ? 14u : 15u);
  return 0;
}

int ILsetratio(ILimage* handle, int num, int den) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  if (num) h->hdr.aspnum = uint16_t(num);
  if (den) h->hdr.aspden = uint16_t(den);
  return 0;
}

int ILsetbpp(ILimage* handle, int bytes) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (isRead(h)) {
    if (bytes != 2) return 0;
    if (!ILgetheader(handle)) return flerrno;
    if (h->hdr.bytes == 1) h->state |= IL_ST_WIDEN;
    else if (h->hdr.bytes == 2) h->state |= IL_ST_READ16;
    return rebindZoom(h);
  }
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  if (bytes == 1 || bytes == 2) h->hdr.bytes = uint16_t(bytes);
  return 0;
}

int ILsetcompress(ILimage* handle, int code) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  h->hdr.compress = uint32_t(code);
  return 0;
}

int ILsetpagesize(ILimage* handle, int width, int height) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  if (width > IL_MAXSIZE || height > IL_MAXSIZE) return fail(IL_ESIZE);
  uint32_t w = uint32_t(width < 16 ? 16 : width), ht = uint32_t(height < 16 ? 16 : height);
  if (w > h->hdr.width) w = h->hdr.width;
  if (ht > h->hdr.height) ht = h->hdr.height;
  h->twidth = w;
  h->theight = ht;
  countTiles(h);
  h->state |= IL_ST_TILING;
  return 0;
}

int ILsetpages(ILimage* handle, int count) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  h->hdr.tiles = uint16_t(count);
  h->state |= IL_ST_TILING;
  return 0;
}

int ILsetlookups(ILimage* handle, unsigned char** tables) {
  if (handle) H(handle)->lookups = tables;
  return 0;
}

int ILsetresolution(ILimage* handle, float dpi) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (headerDone(h)) return fail(IL_EHEADERDONE);
  h->resolution = dpi;
  return 0;
}

int ILgetsize(ILimage* handle, int* width, int* height) {
  Handle* h = withHeader(handle);
  if (!h) return flerrno;
  uint32_t w, hh;
  outputSize(h, &w, &hh);
  if (width) *width = int(w);
  if (height) *height = int(hh);
  return 0;
}

int ILgetorigin(ILimage* handle, int* x, int* y) {
  Handle* h = withHeader(handle);
  if (!h) return flerrno;
  if (x) *x = int(h->hdr.orgx);
  if (y) *y = int(h->hdr.orgy);
  return 0;
}

int ILgettype(ILimage* handle) {
  Handle* h = withHeader(handle);
  return h ? int(h->hdr.type & 31) : -1;
}

int ILgetratio(ILimage* handle, int* num, int* den) {
  Handle* h = withHeader(handle);
  if (!h) return flerrno;
  if (num) *num = h->hdr.aspnum;
  if (den) *den = h->hdr.aspden;
  return 0;
}

int ILgetbpp(ILimage* handle) {
  Handle* h = withHeader(handle);
  return h ? ((h->state & IL_ST_WIDEN) ? 2 : int(h->hdr.bytes)) : -1;
}

int ILgetcompress(ILimage* handle) {
  Handle* h = withHeader(handle);
  return h ? int(h->hdr.compress) : -1;
}

int ILgetpages(ILimage* handle) {
  Handle* h = withHeader(handle);
  return h ? int(h->hdr.tiles) : -1;
}

uint32_t ILgetstate(ILimage* handle) { return handle ? H(handle)->state : 0; }
uint32_t ILgetversion(ILimage* handle) { return handle ? H(handle)->version : 0; }
float ILgetresolution(ILimage* handle) { return handle ? H(handle)->resolution : 0.0f; }

uint32_t ILgettilesize(ILimage* handle, int* width, int* height) {
  Handle* h = handle ? H(handle) : nullptr;
  if (width) *width = h ? int(h->twidth) : 0;
  if (height) *height = h ? int(h->theight) : 0;
  return h ? h->twidth * h->theight : 0;
}

uint32_t ILctrl(ILimage* handle, uint32_t bits, int on) {
  if (!handle) return 0;
  Handle* h = H(handle);
  uint32_t mask = bits & ~0xFFFFu;
  if (h->state & IL_ST_TILEGROUP) mask &= ~uint32_t(IL_ST_PACKED | IL_ST_READ16);
  if (on) h->state |= mask;
  else h->state &= ~mask;
  return mask;
}

uint32_t ILconfig(uint32_t bits, int on) {
  if (on) ilconfig |= bits;
  else ilconfig &= ~bits;
  return ilconfig;
}

const char* ILgetpath(void) {
  // Rebuilt only when the work directory changes.
  // Freed when its thread ends: worker threads open images too.
  struct Path {
    char* text = nullptr;
    ~Path() { FLfreepath(text); }
  };
  thread_local std::string work;
  thread_local Path path;
  const char* w = FLgetwork();
  if (!path.text || work != w) {
    work = w;
    std::string text = ".;" + work + "/image;" + work + "/tex";
    FLfreepath(path.text);
    path.text = FLbuildpath(text.c_str());
  }
  return path.text;
}

}  // extern "C"
