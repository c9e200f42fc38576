// The image handle: the FL stream record followed by the image fields.
#pragma once

#include <cstdint>

#include <vora/foundation/fl.h>
#include <vora/ilib.h>

#include "foundation/status.h"

namespace vora::il {

// One optional field (FLDS): host byte order in memory; malloc'd with its data behind it.
struct Field {
  FLnode node;  // first: the list links
  uint32_t tag;
  uint32_t count;
  unsigned char data[1];
};

// Zero-filled by FLsopen; everything here is plain data so that FLreopen keeps it.
struct Handle {
  FLfile fl;  // first: every FL call takes the handle directly
  uint32_t version;
  ILheader hdr;  // header block, width first (as in TBHD)
  uint32_t state;
  uint32_t twidth, theight;
  uint32_t chanmask;
  uint32_t bpp;
  uint32_t pstride;
  uint32_t linebytes;
  float resolution;
  unsigned char** lookups;
  FLlist fields;
  ILzoom* zoom;  // the bound zoom (resampling while reading)
  FLlist lines;    // line buffers
  int cimgDepth;   // FLdepth of the open CIMG group while reading
  char* auth;      // AUTH text read after the header (malloc'd), with its length
  uint32_t authlen;
  char* date;
  uint32_t datelen;
  // The colour band (tile-height lines of line bytes) and the depth band (lines of
  // width x 4 bytes), grown with FLgrow and freed at close; line counts.
  unsigned char* band;
  size_t bandCap;
  unsigned char* zband;
  size_t zbandCap;
  uint32_t inband;   // writing: lines in the band
  uint32_t done;     // writing: lines already written; reading: lines handed out
  unsigned char* line;  // reading: a widened line (state 0x80) or a zero depth line
  size_t lineCap;
  struct ReadState* rs;  // reading: tiles met, pending tiles, current band (il_read_tiles.cpp)
  int64_t hdrpos;        // writing: where ILputheader began (the header is rewritten there)
};

inline Handle* H(ILimage* i) { return reinterpret_cast<Handle*>(i); }
inline ILimage* I(Handle* h) { return &h->fl; }

constexpr FLid kFOR4 = FL_ID('F', 'O', 'R', '4');
constexpr FLid kCIMG = FL_ID('C', 'I', 'M', 'G');
constexpr FLid kFORM = FL_ID('F', 'O', 'R', 'M');
constexpr FLid kFVER = FL_ID('F', 'V', 'E', 'R');
constexpr FLid kTBHD = FL_ID('T', 'B', 'H', 'D');
constexpr FLid kFLDS = FL_ID('F', 'L', 'D', 'S');
constexpr FLid kAUTH = FL_ID('A', 'U', 'T', 'H');
constexpr FLid kDATE = FL_ID('D', 'A', 'T', 'E');
constexpr uint32_t kDPI = FL_ID('D', 'P', 'I', ' ');
constexpr uint32_t kVersionWritten = 0x00010001;
constexpr uint32_t kVersionDefault = 0x00010000;

// The edge of the IL calls: they report through both flerrno and their answer.
inline int fail(int code) { return vora::toFlerrno(vora::Status(code)); }

// The form check of native images, given to FLparse.
int formCheck(FLfile* f, FLid group, FLid type);
// Accepts the group FLparse stopped in: removes the form check, state := exactly 0x1000.
void accept(Handle* h);
// Frees what the record owns beyond the stream (release hook of FLclose).
void releaseHandle(FLfile* f);
void clearTexts(Handle* h);
// Field list without the header-done check (readers and ILputheader).
int putField(Handle* h, uint32_t tag, uint32_t count, const void* data);
void clearFields(Handle* h);

constexpr FLid kTBMP = FL_ID('T', 'B', 'M', 'P');
constexpr FLid kRGBA = FL_ID('R', 'G', 'B', 'A');
constexpr FLid kZBUF = FL_ID('Z', 'B', 'U', 'F');

// The tile size by image size (the table of ILputheader) and the tile count for it.
void defaultTiling(Handle* h);
void countTiles(Handle* h);

// Checks that a header can carry pixels (106 size, 108 codec) and sets up ILinitio.
int pixelSetup(Handle* h);
// Whether a read handle's declared image could come from its file (ILcanload).
bool decodable(Handle* h);
inline bool sizeInRange(uint32_t w, uint32_t h) { return w >= 1 && w <= IL_MAXSIZE && h >= 1 && h <= IL_MAXSIZE; }
// Elements of 1 and 2 bytes always; 32-bit (float) elements only read, at their full size, in the
// packed layout (IL_ST_READ16 | IL_ST_PACKED) and without a zoom: no filler or resampler of this
// library knows what their bits mean.
inline bool elementSizeServed(const Handle* h) {
  if (h->hdr.bytes == 1 || h->hdr.bytes == 2) return true;
  const uint32_t floats = IL_ST_READ16 | IL_ST_PACKED;
  return h->hdr.bytes == 4 && (h->fl.flags & FL_READ) && (h->state & floats) == floats && !h->zoom;
}
// The size lines are delivered at: the zoom's when one is bound, else the image's.
void outputSize(Handle* h, uint32_t* width, uint32_t* height);
// Deletes the bound zoom (close, reopen, next image).
void dropZoom(Handle* h);
// Binds the handle's zoom again after the delivered depth changed (ILsetbpp).
int rebindZoom(Handle* h);
// The next line as decoded, 8 or 16 bits as stored; depth null when the image has none (the
// line source of a handle's zoom).
int rawLine(void* handle, void** colour, void** depth);
// Frees the line and tile buffers and the read state.
void releasePixels(Handle* h);

}  // namespace vora::il
