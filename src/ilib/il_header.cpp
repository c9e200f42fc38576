// Reading and writing the header (FVER, TBHD, FLDS, AUTH, DATE) and the transfer layout.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "foundation/byteorder.h"
#include "ilib/il_handle.h"
#include "platform/platform.h"

using namespace vora::il;
using vora::be16;
using vora::be32;

namespace {

// The TBHD sizes writers are known to produce: 32, and 24 from older writers (no origin).
bool acceptedHeaderSize(uint32_t size) { return size == 32 || size == 24; }

// "%s on %s" of user and computer, made once per process and kept.
const std::string& authorText() {
  static const std::string text = vora::platform::userOnHost();
  return text;
}

// Opens the accepted CIMG group when the open procedure returned without a parse (after a
// conversion program's second attempt).
int ensureParsed(Handle* h) {
  if (FLdepth(I(h)) > 0) return 0;
  FLsetform(I(h), formCheck);
  int r = FLparse(I(h));
  if (r == FL_ACCEPT) {
    accept(h);
    return 0;
  }
  FLsetform(I(h), nullptr);
  return flerrno ? IL_EDAMAGED : IL_ENOTIMAGE;
}

}  // namespace

namespace vora::il {

void defaultTiling(Handle* h) {
  uint32_t w = h->hdr.width, ht = h->hdr.height;
  if (w <= 4096) {
    h->twidth = ht <= 4096 ? 64 : 512;
    h->theight = ht <= 4096 ? 64 : 128;
  } else if (w <= 8192) {
    h->twidth = 256, h->theight = 64;
  } else if (w <= 16384) {
    h->twidth = 1024, h->theight = 32;
  } else {
    h->twidth = 2048, h->theight = 32;
  }
}

void countTiles(Handle* h) {
  uint32_t across = (h->hdr.width + h->twidth - 1) / h->twidth;
  uint32_t down = (h->hdr.height + h->theight - 1) / h->theight;
  h->hdr.tiles = uint16_t(across * down);
}

}  // namespace vora::il

extern "C" {

ILheader* ILgetheader(ILimage* handle) {
  if (!handle) {
    fail(FL_ESTATE);
    return nullptr;
  }
  Handle* h = H(handle);
  if (!(h->state & IL_ST_READ) || (h->state & IL_ST_HEADER)) return &h->hdr;
  flerrno = 0;
  if (int r = ensureParsed(h)) {
    fail(r);
    return nullptr;
  }
  h->version = kVersionDefault;
  FLid id = 0;
  uint32_t size = 0;
  for (;;) {
    if (FLbgnget(handle, &id, &size) != 0) {
      if (!flerrno) fail(FLlastid(handle) == kTBHD ? IL_EHEADER : IL_ENOHEADER);
      return nullptr;
    }
    if (id == kTBHD) break;
    if (id == kFVER && size >= 4) {
      uint8_t v[4];
      if (FLget(handle, v, 4) == 4) h->version = be32(v);
    }
    if (FLendget(handle) != 0) {
      if (!flerrno) fail(IL_ENOHEADER);
      return nullptr;
    }
  }
  uint8_t b[32] = {};
  if (!acceptedHeaderSize(size) || FLget(handle, b, size) != int64_t(size)) {
    if (!flerrno) fail(IL_EHEADER);
    return nullptr;
  }
  h->hdr.width = be32(b);
  h->hdr.height = be32(b + 4);
  h->hdr.aspnum = be16(b + 8);
  h->hdr.aspden = be16(b + 10);
  h->hdr.type = be32(b + 12);
  h->hdr.bytes = uint16_t(be16(b + 16) + 1);  // the file holds bytes - 1 (deliberate)
  h->hdr.tiles = be16(b + 18);
  h->hdr.compress = be32(b + 20);
  h->hdr.orgx = be32(b + 24);
  h->hdr.orgy = be32(b + 28);
  h->state |= IL_ST_HEADER;
  FLendget(handle);
  if (ILreadfields(handle) != 0) {
    fail(IL_EDAMAGED);
    return nullptr;
  }
  const void* dpi = nullptr;
  int n = ILgetfield(handle, kDPI, &dpi);
  if (n > 0) {
    char text[64];
    size_t k = size_t(n) < sizeof text - 1 ? size_t(n) : sizeof text - 1;
    memcpy(text, dpi, k);
    text[k] = 0;
    h->resolution = strtof(text, nullptr);
  } else {
    h->resolution = 72.0f;
  }
  return &h->hdr;
}

int ILputheader(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (h->state & IL_ST_HEADER) return 0;
  if (h->fl.flags & FL_READ) return fail(FL_EMODE);
  h->hdrpos = FLtell(handle);
  uint8_t v[4];
  vora::putBe32(v, h->version);
  if (FLputchunk(handle, kFVER, 4, v) != 0) return flerrno;
  uint8_t* b = static_cast<uint8_t*>(FLbgnwbchunk(handle, kTBHD, 32));
  if (!b) return flerrno;
  if (!(h->state & IL_ST_TILING)) {
    defaultTiling(h);
    countTiles(h);
  }
  vora::putBe32(b, h->hdr.width);
  vora::putBe32(b + 4, h->hdr.height);
  vora::putBe16(b + 8, h->hdr.aspnum);
  vora::putBe16(b + 10, h->hdr.aspden);
  vora::putBe32(b + 12, h->hdr.type);
  vora::putBe16(b + 16, uint32_t(h->hdr.bytes - 1));
  vora::putBe16(b + 18, h->hdr.tiles);
  vora::putBe32(b + 20, h->hdr.compress);
  vora::putBe32(b + 24, h->hdr.orgx);
  vora::putBe32(b + 28, h->hdr.orgy);
  if (h->resolution >= 1.0f && h->resolution != 72.0f) {
    char text[64];
    int n = snprintf(text, sizeof text, "%f", double(h->resolution));
    if (putField(h, kDPI, uint32_t(n), text) != 0) return flerrno;
  } else {
    putField(h, kDPI, 0, nullptr);
  }
  if (FLendwbchunk(handle, 32) != 0) return flerrno;
  if (ILwritefields(handle) != 0) return flerrno;
  const std::string& auth = authorText();
  if (FLputchunk(handle, kAUTH, uint32_t(auth.size()), auth.data()) != 0) return flerrno;
  time_t now = time(nullptr);
  char date[32] = {};
  if (!ctime_r(&now, date)) strcpy(date, "Thu Jan  1 00:00:00 1970");
  if (FLputchunk(handle, kDATE, 24, date) != 0) return flerrno;  // without ctime's newline
  h->state |= IL_ST_HEADER;
  int r = FLflush(handle);
  return r ? fail(r) : 0;
}

int ILtypechannels(uint32_t type) {
  return ((type & IL_COLOR) ? 3 : (type & IL_MATTE) ? 0 : 1) + ((type & IL_ALPHA) ? 1 : 0);
}

int ILinitio(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  uint32_t type = h->hdr.type;
  uint32_t mask;
  if (h->state & IL_ST_PACKED) {
    h->bpp = uint32_t(ILtypechannels(type));
    mask = (1u << h->bpp) - 1;  // the present channels, packed from the lowest slot
  } else {
    mask = (type & IL_COLOR) ? 14 : (type & IL_MATTE) ? 0 : 4;
    if (type & IL_ALPHA) mask += 1;
    h->bpp = 4;
  }
  h->chanmask = mask;
  bool narrowRead = (h->state & IL_ST_READ) && !(h->state & IL_ST_READ16);
  h->pstride = h->bpp * (narrowRead ? 1u : h->hdr.bytes);
  h->linebytes = h->hdr.width * h->pstride;
  return int(h->linebytes);
}

}  // extern "C"
