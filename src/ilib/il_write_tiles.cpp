// Writing pixels: tiles (ILwritetile, ILendtile), lines collected into bands of tile
// height and cut into tiles (ILbgnline, ILendline, ILwriteline), whole images (ILsave).
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "foundation/byteorder.h"
#include "ilib/il_compressors.h"
#include "ilib/il_handle.h"

using namespace vora::il;

namespace {

void putRect(unsigned char* b, const uint32_t r[4]) {
  for (int i = 0; i < 4; ++i) vora::putBe16(b + 2 * i, r[i]);
}

// Packs one tile into a chunk reserved for the raw size plus the 8-byte rectangle, closed with
// the packed size plus 8; the packer writes straight into the stream's buffer.
int writeChunk(Handle* h, FLid id, ILpacker pack, ILpackdesc& d, unsigned char* pixels,
               const uint32_t rect[4]) {
  uint32_t raw = ILrawsize(&d);
  unsigned char* b = static_cast<unsigned char*>(FLbgnwbchunk(I(h), id, raw + 8));
  if (!b) return flerrno;
  putRect(b, rect);
  uint32_t n = pack(&d, pixels, b + 8);
  return FLendwbchunk(I(h), n + 8);
}

// Sends the band's lines as tiles of the tile width, the last one ending at the image's edge.
int flushBand(Handle* h) {
  uint32_t n = h->inband;
  if (n == 0) return 0;
  bool topDown = h->state & IL_ST_TOPDOWN;
  uint32_t ymin, ymax;
  size_t firstRow;
  if (topDown) {
    ymax = h->hdr.height - h->done - 1;
    ymin = ymax - n + 1;
    firstRow = h->theight - n;  // the data sits in the band's last rows
  } else {
    ymin = h->done;
    ymax = ymin + n - 1;
    firstRow = 0;
  }
  const uint32_t width = h->hdr.width;
  unsigned char* colour = h->band + firstRow * h->linebytes;
  unsigned char* depth = h->zband ? h->zband + firstRow * width * 4 : nullptr;
  for (uint32_t x = 0; x < width; x += h->twidth) {
    uint32_t x1 = x + h->twidth - 1 < width ? x + h->twidth - 1 : width - 1;
    uint32_t rect[4] = {x, ymin, x1, ymax};
    int r = ILwritetile(I(h), colour + size_t(x) * h->pstride, depth ? depth + size_t(x) * 4 : nullptr,
                        rect, int(width));
    if (r) return r;
  }
  h->inband = 0;
  h->done += n;
  return FLflush(I(h));
}

// True when the tiles can be packed straight from the caller's picture: the codec then reads the
// pixels without rotating them in place (bytes in all four slots, no lookup tables, RLE or none).
bool packsInPlace(Handle* h) {
  if (h->state & (IL_ST_LINEMODE | IL_ST_TILEGROUP | IL_ST_FINISHED | IL_ST_PACKED) || pixelSetup(h)) return false;
  if (h->hdr.bytes != 1 || h->bpp != 4 || h->chanmask != 15) return false;
  if (h->hdr.compress != IL_RLE && h->hdr.compress != IL_NONE) return false;
  for (int k = 0; h->lookups && k < 4; ++k)
    if (h->lookups[k] && h->lookups[k] != ildeflut) return false;
  return true;
}

// A whole picture, bottom row first, as the line path would send it: bands of the tile height,
// tiles left to right, each packed from the caller's rows (pitch pixels apart) without a copy.
int saveTiles(Handle* h, const unsigned char* colour, const unsigned char* depth, uint32_t pitch) {
  const uint32_t width = h->hdr.width, height = h->hdr.height;
  for (uint32_t y = 0; y < height; y += h->theight) {
    const uint32_t y1 = std::min(y + h->theight, height) - 1;
    for (uint32_t x = 0; x < width; x += h->twidth) {
      const uint32_t rect[4] = {x, y, std::min(x + h->twidth, width) - 1, y1};
      const size_t at = size_t(y) * pitch + x;
      int r = ILwritetile(I(h), const_cast<unsigned char*>(colour + at * 4),
                         depth ? const_cast<unsigned char*>(depth + at * 4) : nullptr, rect, int(pitch));
      if (r) return r;
    }
    if (int r = FLflush(I(h))) return fail(r);
  }
  return ILendtile(I(h));
}

}  // namespace

namespace vora::il {

int pixelSetup(Handle* h) {
  if (!sizeInRange(h->hdr.width, h->hdr.height) || !elementSizeServed(h)) return fail(IL_ESIZE);
  if ((h->fl.flags & FL_READ) && !decodable(h)) return fail(IL_ETOOLARGE);
  // A caller who gave only the tile count (ILsetpages) still gets tiles of the default size.
  if (!(h->fl.flags & FL_READ) && (!h->twidth || !h->theight)) defaultTiling(h);
  ILinitio(I(h));
  return 0;
}

// The most a packed file can expand: a 2-byte RLE packet gives 128 bytes; a QRL/QR4 packet of
// one pixel gives 128 pixels. Real files stay below; a small file declaring a huge image does not.
bool decodable(Handle* h) {
  const uint64_t pixels = uint64_t(h->hdr.width) * h->hdr.height;
  const uint32_t t = h->hdr.type;
  const uint64_t elements = uint64_t(ILtypechannels(t));
  const uint64_t decoded = pixels * (elements ? elements : 1) * h->hdr.bytes + ((t & IL_ZBUFFER) ? pixels * 4 : 0);
  return FLdecodeok(decoded, FLfilesize(I(h)), h->hdr.compress == IL_NONE ? 1 : 128);
}

}  // namespace vora::il

extern "C" {

int ILcanload(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  if (!ILgetheader(handle)) return flerrno;
  return pixelSetup(H(handle));
}

int ILwritetile(ILimage* handle, void* colour, void* depth, const uint32_t rect[4], int pitch) {
  if (!handle || !rect) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (h->fl.flags & FL_READ) return fail(FL_EMODE);
  if (h->state & IL_ST_FINISHED) return fail(IL_EFINISHED);
  if (!(h->state & IL_ST_TILEGROUP)) {
    if (int r = pixelSetup(h)) return r;
    if (int r = ILputheader(handle)) return r;
    if (int r = FLbgnwgroup(handle, kFOR4, kTBMP)) return fail(r);
    h->state |= IL_ST_TILEGROUP;
  }
  uint32_t low[4] = {rect[0] & 0xFFFF, rect[1] & 0xFFFF, rect[2] & 0xFFFF, rect[3] & 0xFFFF};
  if (low[0] > low[2] || low[1] > low[3] || low[2] >= h->hdr.width || low[3] >= h->hdr.height)
    return fail(IL_ERECT);
  ILpackdesc d{};
  d.width = low[2] - low[0] + 1;
  d.rows = low[3] - low[1] + 1;
  d.pitch = uint32_t(pitch > 0 ? pitch : 0);
  if (colour && h->chanmask) {
    const Compressor& c = compressorFor(h->hdr.compress);
    if (!c.pack) return fail(IL_ENOCODEC);
    d.bytes = h->hdr.bytes;
    d.mask = h->chanmask;
    d.epp = h->bpp;
    d.lookups = h->lookups;
    if (int r = writeChunk(h, kRGBA, c.pack, d, static_cast<unsigned char*>(colour), low)) return r;
  }
  if (depth && (h->hdr.type & IL_ZBUFFER)) {
    d.bytes = 4;
    d.mask = 1;
    d.epp = 1;
    d.lookups = nullptr;
    ILpacker pack = h->hdr.compress ? ILpackrle : ILpack;
    if (int r = writeChunk(h, kZBUF, pack, d, static_cast<unsigned char*>(depth), low)) return r;
  }
  return 0;
}

int ILendtile(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!(h->state & IL_ST_TILEGROUP)) return 0;
  h->state &= ~uint32_t(IL_ST_TILEGROUP | IL_ST_LINEMODE);
  h->state |= IL_ST_FINISHED;
  int r = FLendwgroup(handle);
  return r ? fail(r) : 0;
}

void* ILbgnline(ILimage* handle, void** depthline) {
  if (depthline) *depthline = nullptr;
  if (!handle) return nullptr;
  Handle* h = H(handle);
  if (h->fl.flags & FL_READ) {
    fail(FL_EMODE);
    return nullptr;
  }
  if (h->state & IL_ST_FINISHED) {
    fail(IL_EFINISHED);
    return nullptr;
  }
  if (!(h->state & IL_ST_LINEMODE)) {
    if (pixelSetup(h) || ILputheader(handle)) return nullptr;
    h->state |= IL_ST_LINEMODE;
    h->inband = h->done = 0;
    ILinitio(handle);
    void* band = h->band;
    void* zband = h->zband;
    if (!FLgrow(&band, &h->bandCap, size_t(h->theight) * h->linebytes)) return nullptr;
    h->band = static_cast<unsigned char*>(band);
    if (h->hdr.type & IL_ZBUFFER) {
      if (!FLgrow(&zband, &h->zbandCap, size_t(h->theight) * h->hdr.width * 4)) return nullptr;
      h->zband = static_cast<unsigned char*>(zband);
    }
  }
  // Top-down lines fill the band from its last row up; bottom-up lines from its first row down.
  size_t row = (h->state & IL_ST_TOPDOWN) ? h->theight - 1 - h->inband : h->inband;
  if (depthline && h->zband) *depthline = h->zband + row * h->hdr.width * 4;
  return h->band + row * h->linebytes;
}

int ILendline(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!(h->state & IL_ST_LINEMODE)) return fail(FL_ESTATE);
  ++h->inband;
  if (h->inband + h->done >= h->hdr.height) {
    if (int r = flushBand(h)) return r;
    // Writing the last line ends the tile group (also when no tile was needed).
    if (!(h->state & IL_ST_TILEGROUP)) return fail(FL_ESTATE);
    return ILendtile(handle);
  }
  if (h->inband == h->theight) return flushBand(h);
  return 0;
}

int ILwriteline(ILimage* handle, const void* colour, const void* depth) {
  void* zline = nullptr;
  unsigned char* line = static_cast<unsigned char*>(ILbgnline(handle, &zline));
  if (!line) return flerrno ? flerrno : fail(FL_ESTATE);
  Handle* h = H(handle);
  if (colour) memcpy(line, colour, h->linebytes);
  else memset(line, 0, h->linebytes);
  if (zline) {
    if (depth) memcpy(zline, depth, size_t(h->hdr.width) * 4);
    else memset(zline, 0, size_t(h->hdr.width) * 4);
  }
  return ILendline(handle);
}

int ILsave(ILimage* handle, const void* colour, const void* depth, int pitch) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  int width, height;
  if (int r = ILgetsize(handle, &width, &height)) return r;
  size_t p = size_t(pitch < 1 ? width : pitch);
  size_t colourStep = size_t(h->hdr.bytes) * p * 4, depthStep = p * 4;
  const unsigned char* c = static_cast<const unsigned char*>(colour);
  const unsigned char* z = static_cast<const unsigned char*>(depth);
  bool topDown = h->state & IL_ST_TOPDOWN;
  if (!topDown && c && packsInPlace(h)) return saveTiles(h, c, z, uint32_t(p));
  for (int i = 0; i < height; ++i) {
    size_t row = topDown ? size_t(height - 1 - i) : size_t(i);
    int r = ILwriteline(handle, c ? c + row * colourStep : nullptr, z ? z + row * depthStep : nullptr);
    if (r) return r;
  }
  return 0;
}

}  // extern "C"
