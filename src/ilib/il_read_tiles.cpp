// Reading pixels: the TBMP group's tiles, decoded into bands of lines (ILreadline,
// ILgetline) or straight into a whole-image buffer (ILloadbm). Tiles may arrive in any order:
// those that belong to a later band wait, still packed, until it is read.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <vora/foundation/kt.h>

#include "foundation/byteorder.h"
#include "ilib/il_compressors.h"
#include "ilib/il_handle.h"

using namespace vora::il;

namespace vora::il {
struct ReadState {
  struct Tile {
    uint32_t x0, y0, x1, y1;
    bool depth;
    kt::ByteBuffer packed;  // filled by the read right after each resize
    const unsigned char* data = nullptr;  // the packed bytes: packed's, or the stream's (a view)
    uint32_t size = 0;
    bool viewed = false;  // data is in the stream's buffer and the chunk is still entered
  };
  bool entered = false;    // inside the TBMP group
  bool exhausted = false;  // no further tile in the file
  uint32_t bandH = 0;      // band height: the height of the first tile met
  int64_t bandY0 = -1, bandY1 = -1;
  std::vector<Tile> pending;
  std::vector<unsigned char> scratch;  // a tile decoded whole when it spans several bands
};
}  // namespace vora::il

namespace {

bool topDown(const Handle* h) { return h->state & IL_ST_TOPDOWN; }

// Enters the TBMP group: chunks and other groups before it are skipped.
int enterPixels(Handle* h, ReadState& rs) {
  if (rs.entered || rs.exhausted) return 0;
  FLid id, type;
  uint32_t size;
  for (;;) {
    int r = FLbgnget(I(h), &id, &size);
    if (r == FL_END) {
      rs.exhausted = true;  // an image without pixel data reads as zeros
      return 0;
    }
    if (r) return fail(r == FL_EREAD ? int(FL_EREAD) : int(IL_EDAMAGED));
    if (id == kFOR4 && FLbgnrgroup(I(h), &type) == 0) {
      if (type == kTBMP) {
        rs.entered = true;
        return 0;
      }
      if (FLendrgroup(I(h)) != 0) return fail(IL_EDAMAGED);
    } else if (FLendget(I(h)) != 0) {
      return fail(IL_EDAMAGED);
    }
  }
}

// Reads the next RGBA or ZBUF chunk of the TBMP group; false at its end (or on error, *err set).
// With view, the packed bytes may stay in the stream's buffer (viewed): the caller decodes them
// and then ends the chunk, as ending it may read past them into that buffer.
bool nextTile(Handle* h, ReadState& rs, ReadState::Tile& t, int* err, bool view = false) {
  *err = 0;
  if (!rs.entered || rs.exhausted) return false;
  FLid id;
  uint32_t size;
  for (;;) {
    int r = FLbgnget(I(h), &id, &size);
    if (r == FL_END) {
      rs.exhausted = true;
      return false;
    }
    if (r) {
      *err = fail(r == FL_EREAD ? int(FL_EREAD) : int(IL_EDAMAGED));
      return false;
    }
    if ((id == kRGBA || id == kZBUF) && size >= 8) break;
    if (FLendget(I(h)) != 0) {
      *err = fail(IL_EDAMAGED);
      return false;
    }
  }
  unsigned char rect[8];
  if (FLget(I(h), rect, 8) != 8) {
    *err = fail(IL_EDAMAGED);
    return false;
  }
  t.x0 = vora::be16(rect);
  t.y0 = vora::be16(rect + 2);
  t.x1 = vora::be16(rect + 4);
  t.y1 = vora::be16(rect + 6);
  t.depth = id == kZBUF;
  if (t.x0 > t.x1 || t.y0 > t.y1 || t.x1 >= h->hdr.width || t.y1 >= h->hdr.height) {
    *err = fail(IL_ERECT);
    return false;
  }
  // What the chunk holds (checked against the file); on a pipe, grow only as data arrives.
  uint32_t n = FLgetleft(I(h));
  t.size = n;
  t.packed.clear();
  if (view && (t.data = static_cast<const unsigned char*>(FLgetview(I(h), n)))) return t.viewed = true;
  t.viewed = false;
  while (t.packed.size() < n) {
    size_t at = t.packed.size();
    size_t step = std::min<size_t>(n - at, size_t(1) << 22);
    t.packed.resize(at + step);
    if (FLget(I(h), t.packed.data() + at, step) != int64_t(step)) {
      *err = fail(IL_EDAMAGED);
      return false;
    }
  }
  t.data = t.packed.data();
  if (FLendget(I(h)) != 0) {
    *err = fail(IL_EDAMAGED);
    return false;
  }
  return true;
}

// Decodes a tile into dest (its first row, rows pitch pixels apart); options for the decoder
// (IL_UNPACK_STREAM).
int decodeTile(Handle* h, const ReadState::Tile& t, unsigned char* dest, uint32_t pitch, uint32_t options = 0) {
  ILpackdesc d{};
  d.width = t.x1 - t.x0 + 1;
  d.rows = t.y1 - t.y0 + 1;
  d.pitch = pitch;
  d.packed = t.size;
  d.options = options;
  ILunpacker unpack;
  if (t.depth) {
    d.bytes = 4;
    d.mask = 1;
    d.epp = 1;
    unpack = h->hdr.compress ? ILunpackrle : ILunpack;
  } else {
    unpack = compressorFor(h->hdr.compress).unpack;
    if (!unpack) return fail(IL_ENOCODEC);
    d.bytes = h->hdr.bytes;
    d.mask = h->chanmask;
    d.epp = h->bpp;
    d.byteelems = (h->state & IL_ST_READ16) ? 0 : 1;
    d.lookups = h->lookups;
    if (d.mask == 0) return 0;
  }
  if (unpack(&d, t.data, dest) == 0) return fail(FL_EOVERRUN);
  return 0;
}

// What ILloadbm has written of a whole-image buffer, by cells of the tile grid. Missing tiles read
// as zeros: zeroing, at the end, only the cells no tile reached saves a pass over the whole buffer.
// The grid is the first tile's size from the origin, as writers lay tiles out; a tile off it, or a
// grid of too many cells, zeroes everything not yet written at once and stops the tracking. Tiles
// that leave slots of their pixels unwritten (no channel there) need the whole buffer zeroed first.
class Coverage {
 public:
  Coverage(unsigned char* buf, uint32_t width, uint32_t height, size_t px, bool wholePixels)
      : buf_(buf), width_(width), height_(height), px_(px) {
    if (!wholePixels) stopTracking();
  }
  void before(const ReadState::Tile& t) {
    if (!tracking_) return;
    if (done_.empty()) {  // the first tile sets the grid
      tw_ = t.x1 - t.x0 + 1, th_ = t.y1 - t.y0 + 1;
      cols_ = (width_ + tw_ - 1) / tw_, rows_ = (height_ + th_ - 1) / th_;
      if (uint64_t(cols_) * rows_ > (uint64_t(1) << 20)) return stopTracking();
      done_.assign(size_t(cols_) * rows_, 0);
    }
    if (t.x0 % tw_ || t.y0 % th_ || t.x1 != std::min(t.x0 + tw_, width_) - 1 ||
        t.y1 != std::min(t.y0 + th_, height_) - 1)
      stopTracking();
  }
  void written(const ReadState::Tile& t) {
    if (tracking_) done_[size_t(t.y0 / th_) * cols_ + t.x0 / tw_] = 1;
  }
  // Zeroes what no tile wrote; also after a failure, so that a refused read leaves whole tiles or
  // zeros.
  void finish() {
    if (tracking_) stopTracking();
  }

 private:
  void stopTracking() {
    tracking_ = false;
    if (!buf_) return;
    if (done_.empty()) return (void)memset(buf_, 0, size_t(height_) * width_ * px_);  // nothing written yet
    for (uint32_t r = 0; r < rows_; ++r)
      for (uint32_t c = 0; c < cols_; ++c) {
        if (done_[size_t(r) * cols_ + c]) continue;
        const uint32_t x0 = c * tw_, x1 = std::min(x0 + tw_, width_), y1 = std::min((r + 1) * th_, height_);
        for (uint32_t y = r * th_; y < y1; ++y) memset(buf_ + (size_t(y) * width_ + x0) * px_, 0, (x1 - x0) * px_);
      }
  }
  unsigned char* buf_;
  uint32_t width_, height_;
  size_t px_;
  uint32_t tw_ = 0, th_ = 0, cols_ = 0, rows_ = 0;
  bool tracking_ = true;
  std::vector<unsigned char> done_;
};

// Places the rows of a tile that fall in the current band; returns the pixels placed.
int placeInBand(Handle* h, ReadState& rs, const ReadState::Tile& t, uint64_t* placed) {
  uint32_t y0 = std::max<uint32_t>(t.y0, uint32_t(rs.bandY0));
  uint32_t y1 = std::min<uint32_t>(t.y1, uint32_t(rs.bandY1));
  if (y0 > y1) return 0;
  const uint32_t width = h->hdr.width;
  size_t px = t.depth ? 4 : h->pstride;
  unsigned char* band = t.depth ? h->zband : h->band;
  size_t bandRow = t.depth ? size_t(width) * 4 : h->linebytes;
  if (!band) return 0;
  if (t.y0 >= rs.bandY0 && t.y1 <= rs.bandY1) {
    unsigned char* dest = band + (t.y0 - rs.bandY0) * bandRow + t.x0 * px;
    if (int r = decodeTile(h, t, dest, width)) return r;
  } else {  // spans several bands: decode whole, copy the rows of this band
    uint32_t tw = t.x1 - t.x0 + 1, th = t.y1 - t.y0 + 1;
    rs.scratch.resize(size_t(tw) * th * px);
    if (int r = decodeTile(h, t, rs.scratch.data(), tw)) return r;
    for (uint32_t y = y0; y <= y1; ++y)
      memcpy(band + (y - rs.bandY0) * bandRow + t.x0 * px,
             rs.scratch.data() + size_t(y - t.y0) * tw * px, tw * px);
  }
  if (!t.depth && !(h->state & IL_ST_PACKED))
    ILfill(band + (y0 - rs.bandY0) * bandRow + t.x0 * px, int(t.x1 - t.x0 + 1), int(y1 - y0 + 1),
           (h->state & IL_ST_READ16) ? 2 : 1, int(width), int(h->hdr.type));
  *placed += uint64_t(t.x1 - t.x0 + 1) * (y1 - y0 + 1);
  return 0;
}

// True when the tile still has rows in bands not yet read (in the reading direction).
bool neededLater(const Handle* h, const ReadState& rs, const ReadState::Tile& t) {
  return topDown(h) ? int64_t(t.y0) < rs.bandY0 : int64_t(t.y1) > rs.bandY1;
}

// Fills the band that holds line y with every tile (part) that belongs to it.
int fillBand(Handle* h, ReadState& rs, uint32_t y) {
  int err = 0;
  if (rs.bandH == 0) {  // learn the band height from the first tile
    ReadState::Tile t;
    if (nextTile(h, rs, t, &err)) {
      rs.bandH = t.y1 - t.y0 + 1;
      rs.pending.push_back(std::move(t));
    } else if (err) {
      return err;
    } else {
      rs.bandH = std::min<uint32_t>(64, h->hdr.height);
    }
  }
  const uint32_t height = h->hdr.height, width = h->hdr.width;
  rs.bandY0 = int64_t(y / rs.bandH) * rs.bandH;
  rs.bandY1 = std::min<int64_t>(rs.bandY0 + rs.bandH, height) - 1;
  uint32_t rows = uint32_t(rs.bandY1 - rs.bandY0 + 1);
  void* band = h->band;
  if (!FLgrow(&band, &h->bandCap, size_t(rs.bandH) * h->linebytes)) return flerrno;
  h->band = static_cast<unsigned char*>(band);
  memset(h->band, 0, size_t(rows) * h->linebytes);
  bool depth = h->hdr.type & IL_ZBUFFER;
  if (depth) {
    void* zb = h->zband;
    if (!FLgrow(&zb, &h->zbandCap, size_t(rs.bandH) * width * 4)) return flerrno;
    h->zband = static_cast<unsigned char*>(zb);
    memset(h->zband, 0, size_t(rows) * width * 4);
  }
  const uint64_t need = uint64_t(width) * rows * (depth ? 2 : 1);
  uint64_t placed = 0;
  std::vector<ReadState::Tile> keep;
  for (ReadState::Tile& t : rs.pending) {
    if (int r = placeInBand(h, rs, t, &placed)) return r;
    if (neededLater(h, rs, t)) keep.push_back(std::move(t));
  }
  rs.pending.swap(keep);
  ReadState::Tile t;
  while (placed < need && nextTile(h, rs, t, &err)) {
    if (int r = placeInBand(h, rs, t, &placed)) return r;
    if (neededLater(h, rs, t)) rs.pending.push_back(std::move(t));
  }
  return err;
}

ReadState* readState(Handle* h) {
  if (!h->rs) h->rs = new (std::nothrow) ReadState;
  if (!h->rs) fail(FL_ENOMEM);
  return h->rs;
}

// The first pixel call of a read handle: header, layout, the TBMP group.
int beginReading(Handle* h, ReadState** rs) {
  if (!(h->fl.flags & FL_READ)) return fail(FL_EMODE);
  if (!ILgetheader(I(h))) return flerrno;
  if (h->state & IL_ST_FINISHED) return fail(IL_EFINISHED);
  if (!(*rs = readState(h))) return flerrno;
  if (!(*rs)->entered && !(*rs)->exhausted) {
    if (int r = pixelSetup(h)) return r;
    if (!compressorFor(h->hdr.compress).unpack) return fail(IL_ENOCODEC);
    h->state |= IL_ST_TILEGROUP | IL_ST_LINEMODE;
    return enterPixels(h, **rs);
  }
  return 0;
}

// All lines handed out: the group is left, further reads give 107.
void finishReading(Handle* h, ReadState& rs) {
  h->state &= ~uint32_t(IL_ST_TILEGROUP | IL_ST_LINEMODE);
  h->state |= IL_ST_FINISHED;
  if (rs.entered && !rs.exhausted) FLendrgroup(I(h));
  rs.entered = false;
  rs.exhausted = true;
  rs.pending.clear();
}

// The band rows of the next line to hand out.
int nextLine(Handle* h, unsigned char** colour, unsigned char** depth) {
  ReadState* rs;
  if (int r = beginReading(h, &rs)) return r;
  uint32_t y = topDown(h) ? h->hdr.height - 1 - h->done : h->done;
  if (rs->bandY0 < 0 || y < rs->bandY0 || y > rs->bandY1)
    if (int r = fillBand(h, *rs, y)) return r;
  *colour = h->band + size_t(y - rs->bandY0) * h->linebytes;
  *depth = h->zband && (h->hdr.type & IL_ZBUFFER) ? h->zband + size_t(y - rs->bandY0) * h->hdr.width * 4
                                                  : nullptr;
  if (++h->done >= h->hdr.height) finishReading(h, *rs);
  return 0;
}

}  // namespace

namespace vora::il {

int rawLine(void* handle, void** colour, void** depth) {
  unsigned char *c = nullptr, *z = nullptr;
  if (int r = nextLine(H(static_cast<ILimage*>(handle)), &c, &z)) return r;
  *colour = c;
  *depth = z;
  return 0;
}

void releasePixels(Handle* h) {
  delete h->rs;
  h->rs = nullptr;
  free(h->band);
  free(h->zband);
  free(h->line);
  h->band = h->zband = h->line = nullptr;
  h->bandCap = h->zbandCap = h->lineCap = 0;
}

}  // namespace vora::il

extern "C" {

int ILgetline(ILimage* handle, void** colour, void** depth) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (h->zoom) return ILgetzoom(h->zoom, colour, depth);
  unsigned char *c = nullptr, *z = nullptr;
  if (int r = nextLine(h, &c, &z)) return r;
  const size_t zbytes = size_t(h->hdr.width) * 4;
  size_t wide = (h->state & IL_ST_WIDEN) ? h->linebytes * 2 : 0;
  void* line = h->line;
  if (!FLgrow(&line, &h->lineCap, wide + zbytes)) return flerrno;
  h->line = static_cast<unsigned char*>(line);
  if (wide) {  // an 8-bit file delivered at 16 bits: each byte b becomes b, b
    for (size_t i = 0; i < h->linebytes; ++i) h->line[2 * i] = h->line[2 * i + 1] = c[i];
    c = h->line;
  }
  if (!z) {
    z = h->line + wide;
    memset(z, 0, zbytes);
  }
  if (colour) *colour = c;
  if (depth) *depth = z;
  return 0;
}

int ILreadline(ILimage* handle, void* colour, void* depth) {
  if (handle && H(handle)->zoom) return ILreadzoom(H(handle)->zoom, colour, depth);
  void *c, *z;
  if (int r = ILgetline(handle, &c, &z)) return r;
  Handle* h = H(handle);
  size_t bytes = (h->state & IL_ST_WIDEN) ? h->linebytes * 2 : h->linebytes;
  if (colour) memcpy(colour, c, bytes);
  if (depth) memcpy(depth, z, size_t(h->hdr.width) * 4);
  return 0;
}

int ILloadbm(ILimage* handle, void* colour, void* depth) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  ReadState* rs;
  if (int r = beginReading(h, &rs)) return r;
  const uint32_t width = h->hdr.width, height = h->hdr.height;
  bool hasDepth = depth && (h->hdr.type & IL_ZBUFFER);
  if (depth && !hasDepth) memset(depth, 0, size_t(width) * height * 4);
  Coverage colourDone(static_cast<unsigned char*>(colour), width, height, h->pstride,
                      h->chanmask == (1u << h->bpp) - 1);
  Coverage depthDone(hasDepth ? static_cast<unsigned char*>(depth) : nullptr, width, height, 4, true);
  // A picture larger than a processor's last-level cache share is stored past the caches.
  const uint32_t stream = size_t(height) * h->linebytes > (size_t(16) << 20) ? IL_UNPACK_STREAM : 0;
  auto place = [&](const ReadState::Tile& t) -> int {
    if (t.depth ? !hasDepth : !colour) return 0;
    Coverage& done = t.depth ? depthDone : colourDone;
    done.before(t);
    unsigned char* base = static_cast<unsigned char*>(t.depth ? depth : colour);
    size_t px = t.depth ? 4 : h->pstride;
    if (int r = decodeTile(h, t, base + (size_t(t.y0) * width + t.x0) * px, width, t.depth ? 0 : stream)) return r;
    done.written(t);
    return 0;
  };
  int err = 0;
  for (const ReadState::Tile& t : rs->pending)
    if ((err = place(t))) break;
  ReadState::Tile t;
  while (!err && nextTile(h, *rs, t, &err, true)) {
    err = place(t);
    if (!err && t.viewed && FLendget(I(h)) != 0) err = fail(IL_EDAMAGED);
  }
  colourDone.finish();
  depthDone.finish();
  if (err) return err;
  h->done = height;
  finishReading(h, *rs);
  return 0;
}

}  // extern "C"
