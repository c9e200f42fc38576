// The SGI image file library: iopen, seeking, getrow, putrow, iclose.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <vora/foundation/fl.h>
#include <vora/foundation/messages.h>
#include <vora/imf.h>

#include "foundation/byteorder.h"
#include "foundation/status.h"
#include "imagefile/sgi_format.h"
#include "platform/platform.h"

namespace pf = vora::platform;

namespace vora::sgi {

namespace {
// The library's edge for the SGI calls: their message through the handler, the status kept.
void reportv(int code, const char* format, va_list ap) {
  char text[512];
  vsnprintf(text, sizeof text, format, ap);
  keepStatus(Status(code, text));
  reportErrorf("SGI image: %s", text);
}
}  // namespace

void report(int code, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  reportv(code, format, ap);
  va_end(ap);
}

}  // namespace vora::sgi

using namespace vora::sgi;
using vora::hostLittleEndian;
using vora::swap16;
using vora::swap32;

namespace {

static_assert(sizeof(IMAGE) == kHeaderBytes, "the record is the 176-byte header");

// The record and what this implementation keeps beside it: the file mapped for reading, and
// writes gathered while they are contiguous (rows are written one after another).
struct Record {
  IMAGE img;  // first: the IMAGE* handed out points here
  const uint8_t* map = nullptr;
  int64_t mapSize = 0;
  int64_t fileSize = -1;
  std::unique_ptr<uint8_t[]> pending;  // writers: kGather bytes and room for one more row
  size_t pendingBytes = 0, pendingRoom = 0;
  int64_t pendingAt = 0;
  int64_t end = 0;      // the farthest byte written: the file's size at close
  size_t tmpBytes = 0;  // size of tmpbuf
};

Record* rec(IMAGE* i) { return reinterpret_cast<Record*>(i); }

// The header fields the file holds big-endian: the six shorts, min, max, wastebytes, colormap.
void swapHeader(IMAGE* h) {
  h->imagic = swap16(h->imagic);
  h->type = swap16(h->type);
  h->dim = swap16(h->dim);
  h->xsize = swap16(h->xsize);
  h->ysize = swap16(h->ysize);
  h->zsize = swap16(h->zsize);
  h->min = swap32(h->min);
  h->max = swap32(h->max);
  h->wastebytes = swap32(h->wastebytes);
  h->colormap = swap32(h->colormap);
}

void swapWords(uint32_t* w, size_t n) {
  for (size_t i = 0; i < n; ++i) w[i] = swap32(w[i]);
}

size_t tableBytes(const IMAGE* i) { return size_t(i->ysize) * i->zsize * sizeof(uint32_t); }

// Writes at a file position, keeping the file's extent.
bool put(Record* r, const void* data, size_t n, int64_t at) {
  if (!pf::writeAt(r->img.file, data, n, at)) return false;
  r->end = std::max(r->end, at + int64_t(n));
  return true;
}

bool flush(Record* r) {
  const size_t n = r->pendingBytes;
  r->pendingBytes = 0;
  return n == 0 || put(r, r->pending.get(), n, r->pendingAt);
}

// Writes are gathered while they are contiguous (rows are appended one after another) and go to
// the file a MiB at a time.
constexpr size_t kGather = size_t(1) << 20;

// Room for n bytes at file position `at` among the pending bytes (what does not continue them is
// flushed first), to be filled and then committed; null when a flush fails. n at most the room
// left beside kGather.
uint8_t* reserveAt(Record* r, size_t n, int64_t at) {
  if (r->pendingBytes == 0 || at != r->pendingAt + int64_t(r->pendingBytes) || r->pendingBytes + n > r->pendingRoom) {
    if (!flush(r)) return nullptr;
    r->pendingAt = at;
  }
  return r->pending.get() + r->pendingBytes;
}

bool commit(Record* r, size_t n) {
  r->pendingBytes += n;
  return r->pendingBytes < kGather || flush(r);
}

bool writeAt(Record* r, const void* data, size_t n, int64_t at) {
  if (n > r->pendingRoom - kGather) return flush(r) && put(r, data, n, at);
  uint8_t* to = reserveAt(r, n, at);
  if (!to) return false;
  if (n) memcpy(to, data, n);
  return commit(r, n);
}

// Reads n bytes at a file position; false when the file holds fewer.
bool readAt(Record* r, void* out, size_t n, int64_t at) {
  if (r->map) {
    if (at < 0 || at > r->mapSize || int64_t(n) > r->mapSize - at) return false;
    if (n) memcpy(out, r->map + at, n);  // rows of no width have no buffer
    return true;
  }
  return pf::readAt(r->img.file, out, n, at) == long(n);
}

IMAGE* fail(Record* r, int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
IMAGE* fail(Record* r, int code, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  reportv(code, format, ap);
  va_end(ap);
  pf::closeFd(r->img.file);
  pf::unmapFile(r->map, r->mapSize);
  free(r->img.tmpbuf);
  free(r->img.rowstart);
  free(r->img.rowsize);
  delete r;
  return nullptr;
}

// Seeks to row y of channel z (img_seek): records the position, checks the ranges.
int64_t seekRow(IMAGE* img, unsigned y, unsigned z) {
  if (y >= img->ysize || z >= img->zsize) {
    report(FL_ESTATE, "img_seek: row number out of range\n");
    return -1;
  }
  img->x = 0;
  img->y = uint16_t(y);
  img->z = uint16_t(z);
  if (storage(img) > 1) {
    report(IL_EDAMAGED, "img_seek: weird image type\n");
    return -1;
  }
  if (img->dim < 1 || img->dim > 3) {
    report(IL_EDAMAGED, "img_seek: weird dim\n");
    return -1;
  }
  if (img->dim == 1) y = z = 0;
  if (img->dim == 2) z = 0;
  int64_t target;
  if (storage(img) == 0) {
    target = kDataStart + (int64_t(z) * img->ysize + y) * img->xsize * bpc(img);
  } else {
    target = img->rowstart[img->dim == 1 ? 0 : y + size_t(z) * img->ysize];
  }
  img->offset = uint32_t(target);
  return target;
}

}  // namespace

extern "C" {

IMAGE* iopen(const char* file, const char* mode, unsigned type, unsigned dim, unsigned xsize,
             unsigned ysize, unsigned zsize) {
  if (!file || !mode) return nullptr;
  if (mode[0] && mode[1] == '+') {
    report(FL_EMODE, "iopen: read/write mode not supported\n");
    return nullptr;
  }
  Record* r = new (std::nothrow) Record();
  if (!r) {
    report(FL_ENOMEM, "iopen: error on image struct alloc\n");
    return nullptr;
  }
  IMAGE* img = &r->img;
  img->file = -1;
  bool reading = mode[0] == 'r';
  if (reading) {
    int fd = pf::openRead(file);
    if (fd < 0) {
      delete r;
      return nullptr;  // silently, as the library has always done
    }
    img->file = fd;
    r->fileSize = pf::fileSize(fd);
    uint8_t hdr[kHeaderBytes];
    if (pf::readAt(fd, hdr, kHeaderBytes, 0) != long(kHeaderBytes))
      return fail(r, FL_EREAD, "iopen: error on read of image header\n");
    // Only the header's own fields are taken; every in-memory field is set afresh below.
    memcpy(img, hdr, offsetof(IMAGE, file));
    img->file = fd;
    // The file is big-endian: values are swapped on a little-endian machine (the data model's
    // dorev), so a file that begins DA 01 reads as 0xDA01 and is rejected (deliberate;
    // testing the swapped first value instead would take it as native order).
    img->dorev = hostLittleEndian();
    if (img->dorev) swapHeader(img);
    if (img->imagic != kMagic) {
      return fail(r, IL_ENOTIMAGE, "iopen: bad magic in image file %x\n", img->imagic);
    }
    // Refused before any table or row is allocated: more values than the file could hold
    // (a run-length packet of two units gives at most 127 values); a file declaring no channels
    // still answers for its pixels, which readers allocate before they find nothing to read.
    const uint64_t values = uint64_t(img->xsize) * img->ysize * std::max<uint64_t>(img->zsize, 1) * (bpc(img) == 2 ? 2 : 1);
    if (!FLdecodeok(values, r->fileSize, storage(img) == 1 ? 64 : 1))
      return fail(r, IL_ETOOLARGE, "iopen: image too large for its file\n");
    if (r->fileSize > 0) {
      r->map = pf::mapFile(fd, r->fileSize);
      r->mapSize = r->map ? r->fileSize : 0;
    }
  } else {
    // Run-length files are written whole from the start, header, tables and rows one after
    // another, so an existing file can be written over in place and cut at the end; verbatim
    // rows have places of their own, and rows never written must read as zeros.
    img->type = uint16_t(type);
    int fd = storage(img) == 1 ? pf::openRewrite(file, 0600) : pf::openCreate(file, 0600);
    if (fd < 0) {
      return fail(r, FL_EOPEN, "iopen: can't open output file %s\n", file);
    }
    img->file = fd;
    img->imagic = kMagic;
    img->xsize = uint16_t(xsize);
    img->ysize = 1;
    img->zsize = 1;
    if (dim > 1) img->ysize = uint16_t(ysize);
    if (dim > 2) img->zsize = uint16_t(zsize);
    // The given dim is deliberately ignored: it follows from the sizes.
    img->dim = img->zsize != 1 ? 3 : img->ysize != 1 ? 2 : 1;
    img->min = 10000000;
    img->max = 0;
    strncpy(img->name, "no name", sizeof img->name);
    img->wastebytes = 0;
    img->dorev = hostLittleEndian();
    uint8_t head[kDataStart] = {};  // the record, then zeros up to the tables
    IMAGE out = *img;
    if (img->dorev) swapHeader(&out);
    memcpy(head, &out, kHeaderBytes);
    if (!put(r, head, kDataStart, 0)) return fail(r, FL_EWRITE, "iopen: error on write of image header\n");
  }
  img->flags = reading ? kRead : kWrite;
  if (storage(img) == 1) {
    size_t tb = tableBytes(img);
    // Tables read from a file must be there: never allocate more than the file can fill.
    if (reading && r->fileSize >= 0 && int64_t(kDataStart + 2 * tb) > r->fileSize)
      return fail(r, FL_EREAD, "iopen: error on read of rowstart\n");
    img->rowstart = static_cast<uint32_t*>(malloc(tb ? tb : 4));
    img->rowsize = static_cast<uint32_t*>(malloc(tb ? tb : 4));
    if (!img->rowstart || !img->rowsize) return fail(r, FL_ENOMEM, "iopen: error on table alloc\n");
    img->rleend = uint32_t(kDataStart + 2 * tb);
    if (reading) {
      if (!readAt(r, img->rowstart, tb, kDataStart)) return fail(r, FL_EREAD, "iopen: error on read of rowstart\n");
      if (img->dorev) swapWords(img->rowstart, tb / 4);
      if (!readAt(r, img->rowsize, tb, int64_t(kDataStart + tb)))
        return fail(r, FL_EREAD, "iopen: error on read of rowsize\n");
      if (img->dorev) swapWords(img->rowsize, tb / 4);
    } else {
      memset(img->rowstart, 0, tb);
      memset(img->rowsize, 0xFF, tb);
    }
  }
  img->cnt = 0;
  img->ptr = img->base = nullptr;
  // The traditional 4 x (xsize + xsize / 64) bytes, and never less than the longest row the
  // compaction can write (a row of one value is 3 units).
  r->tmpBytes = std::max<size_t>(4 * (size_t(img->xsize) + img->xsize / 64),
                                 2 * (size_t(img->xsize) + img->xsize / 126 + 3));
  img->tmpbuf = static_cast<uint16_t*>(malloc(r->tmpBytes));
  if (!reading) {
    r->pendingRoom = kGather + r->tmpBytes + 64;  // a row and what the packer's block stores pass
    r->pending.reset(new (std::nothrow) uint8_t[r->pendingRoom]);
  }
  if (!img->tmpbuf || (!reading && !r->pending)) {
    return fail(r, FL_ENOMEM, "iopen: error on tmpbuf alloc %d\n", img->xsize);
  }
  img->x = img->y = img->z = 0;
  img->offset = kDataStart;
  return img;
}

}  // extern "C"

namespace {

// One row of one channel into `out`: values of `width` bytes (2, the interface's 16-bit values;
// 1, bytes of an 8-bit image, for the whole-picture reader).
int readRow(IMAGE* img, void* out, int width, unsigned y, unsigned z) {
  Record* r = rec(img);
  int64_t at = seekRow(img, y, z);
  if (at < 0) return -1;
  const unsigned xs = img->xsize;
  if (bpc(img) != 1 && bpc(img) != 2) {
    report(IL_EDAMAGED, "getrow: weird bpp\n");
    return -1;
  }
  auto readFailed = [img] {
    img->offset = 0xFFFFFFFFu;
    report(FL_EREAD, "getrow: error on read of row\n");
    return -1;
  };
  unsigned short* buffer = static_cast<unsigned short*>(out);
  if (storage(img) == 0) {
    if (bpc(img) == 1 && width == 1) {
      if (!readAt(r, out, xs, at)) return readFailed();
    } else if (bpc(img) == 1) {
      unsigned char* t = reinterpret_cast<unsigned char*>(img->tmpbuf);
      if (!readAt(r, t, xs, at)) return readFailed();
      for (unsigned i = 0; i < xs; ++i) buffer[i] = t[i];
    } else {
      if (!readAt(r, buffer, size_t(xs) * 2, at)) return readFailed();
      if (img->dorev)
        for (unsigned i = 0; i < xs; ++i) buffer[i] = swap16(buffer[i]);
    }
    img->offset += uint32_t(xs * bpc(img));
    return int(xs);
  }
  if (storage(img) != 1) {
    report(IL_EDAMAGED, "getrow: weird image type\n");
    return -1;
  }
  size_t index = img->dim == 1 ? 0 : img->dim == 2 ? y : y + size_t(z) * img->ysize;
  uint32_t len = img->rowsize[index];
  // A row longer than the work buffer cannot be a row of this width.
  if (len > r->tmpBytes) return readFailed();
  const unsigned char* packets;
  if (bpc(img) == 1 && r->map && at >= 0 && at <= r->mapSize && int64_t(len) <= r->mapSize - at) {
    packets = r->map + at;  // byte packets need no swapping: expanded straight from the file
  } else {
    if (!readAt(r, img->tmpbuf, len, at)) return readFailed();
    if (bpc(img) == 2 && img->dorev)
      for (uint32_t i = 0; i < len / 2; ++i) img->tmpbuf[i] = swap16(img->tmpbuf[i]);
    packets = reinterpret_cast<const unsigned char*>(img->tmpbuf);
  }
  img->offset += len;
  int n = rle_expand(packets, int(bpc(img)), buffer, width, int(xs), int(len));
  if (n < 0) return readFailed();
  // A short row: the rest is 0.
  memset(static_cast<uint8_t*>(out) + size_t(n) * unsigned(width), 0, size_t(xs - unsigned(n)) * unsigned(width));
  return int(xs);
}

// The smallest and largest of n values (in registers: the loop vectorises).
template <typename T>
std::pair<unsigned, unsigned> valueRange(const T* v, unsigned n) {
  T lo = T(~T(0)), hi = 0;
  for (unsigned i = 0; i < n; ++i) lo = std::min(lo, v[i]), hi = std::max(hi, v[i]);
  return {lo, hi};
}

// One row of one channel from `values` of `width` bytes (as readRow).
int writeRow(IMAGE* img, const void* values, int width, unsigned y, unsigned z) {
  Record* r = rec(img);
  const unsigned xs = img->xsize;
  const unsigned short* buffer = static_cast<const unsigned short*>(values);
  const uint8_t* bytes = static_cast<const uint8_t*>(values);
  const auto [lo, hi] = width == 1 ? valueRange(bytes, xs) : valueRange(buffer, xs);
  if (xs) img->min = std::min<uint32_t>(img->min, lo), img->max = std::max<uint32_t>(img->max, hi);

  int64_t at = seekRow(img, y, z);
  if (at < 0) return -1;
  auto writeFailed = [img] {
    img->offset = 0xFFFFFFFFu;
    report(FL_EWRITE, "putrow: error on write of row\n");
    return -1;
  };
  if (storage(img) == 0) {
    size_t n = size_t(xs) * bpc(img);
    const void* data = img->tmpbuf;
    if (bpc(img) == 1 && width == 1) {
      data = values;
    } else if (bpc(img) == 1) {
      unsigned char* t = reinterpret_cast<unsigned char*>(img->tmpbuf);
      for (unsigned i = 0; i < xs; ++i) t[i] = uint8_t(buffer[i]);
    } else if (bpc(img) == 2) {
      for (unsigned i = 0; i < xs; ++i) img->tmpbuf[i] = img->dorev ? swap16(buffer[i]) : buffer[i];
    } else {
      report(IL_EDAMAGED, "putrow: weird bpp\n");
      return -1;
    }
    if (!writeAt(r, data, n, at)) return writeFailed();
    img->offset += uint32_t(n);
    return int(xs);
  }
  if (storage(img) != 1) {
    report(IL_EDAMAGED, "putrow: weird image type\n");
    return -1;
  }
  if (bpc(img) != 1 && bpc(img) != 2) {
    report(IL_EDAMAGED, "putrow: weird bpp\n");
    return -1;
  }
  // Packed straight into the pending bytes, where the row goes: at the end of the rows so far.
  const int64_t where = img->rleend;
  unsigned char* packets = reserveAt(r, (size_t(xs) + xs / 126 + 3) * bpc(img) + 64, where);
  if (!packets) return writeFailed();
  int units = bpc(img) == 1 && width == 1 ? rle_compact_bytes(bytes, packets, int(xs))
                                          : rle_compact(buffer, 2, packets, int(bpc(img)), int(xs));
  uint32_t len = uint32_t(units) * bpc(img);
  if (bpc(img) == 2 && img->dorev)
    for (uint32_t i = 0; i < len; i += 2) std::swap(packets[i], packets[i + 1]);
  size_t index = img->dim == 1 ? 0 : img->dim == 2 ? y : y + size_t(z) * img->ysize;
  img->rowstart[index] = img->rleend;
  if (img->rowsize[index] != kNotWritten) img->wastebytes += img->rowsize[index];
  img->rowsize[index] = len;
  img->rleend += len;
  img->offset = uint32_t(where);
  if (!commit(r, len)) return writeFailed();
  img->offset += len;
  return int(xs);
}

// The whole picture's shape for the pixel calls: 8-bit images of 1 to 4 channels go a plane of
// bytes at a time through the interleaving kernels; others through 16-bit rows.
bool bytePlanes(const IMAGE* img) { return bpc(img) == 1 && img->zsize >= 1 && img->zsize <= 4; }

}  // namespace

extern "C" {

int getrow(IMAGE* img, unsigned short* buffer, unsigned y, unsigned z) {
  if (!img || !(img->flags & kRead)) return -1;
  return readRow(img, buffer, 2, y, z);
}

int putrow(IMAGE* img, const unsigned short* buffer, unsigned y, unsigned z) {
  if (!img || !(img->flags & kWrite)) return -1;
  return writeRow(img, buffer, 2, y, z);
}

int getpixels(IMAGE* img, void* pixels, size_t rowBytes) {
  if (!img || !(img->flags & kRead)) return -1;
  const unsigned xs = img->xsize, ys = img->ysize, zs = img->zsize, b = bpc(img) == 2 ? 2 : 1;
  // Rows of no width hold nothing: a small file declaring billions of them is not walked.
  if (size_t(xs) * ys * zs == 0) return 0;
  if (!pixels) return -1;
  uint8_t* top = static_cast<uint8_t*>(pixels);
  if (bytePlanes(img)) {
    std::vector<uint8_t> planes(size_t(xs) * zs);
    void* at[4];
    for (unsigned z = 0; z < zs; ++z) at[z] = planes.data() + size_t(z) * xs;
    for (unsigned y = 0; y < ys; ++y) {
      for (unsigned z = 0; z < zs; ++z)
        if (readRow(img, at[z], 1, y, z) < 0) return -1;
      IMF_planes_join(at, int(zs), 1, int(xs), top + size_t(ys - 1 - y) * rowBytes);
    }
    return 0;
  }
  std::vector<unsigned short> line(xs);
  for (unsigned y = 0; y < ys; ++y)
    for (unsigned z = 0; z < zs; ++z) {
      if (readRow(img, line.data(), 2, y, z) < 0) return -1;
      uint8_t* o = top + size_t(ys - 1 - y) * rowBytes + size_t(z) * b;
      for (unsigned x = 0; x < xs; ++x, o += size_t(zs) * b) {
        if (b == 1) *o = uint8_t(line[x]);
        else memcpy(o, &line[x], 2);
      }
    }
  return 0;
}

int putpixels(IMAGE* img, const void* pixels, size_t rowBytes) {
  if (!img || !(img->flags & kWrite)) return -1;
  const unsigned xs = img->xsize, ys = img->ysize, zs = img->zsize, b = bpc(img) == 2 ? 2 : 1;
  if (!pixels && size_t(xs) * ys * zs != 0) return -1;
  const uint8_t* top = static_cast<const uint8_t*>(pixels);
  if (bytePlanes(img)) {
    std::vector<uint8_t> planes(size_t(xs) * zs);
    void* at[4];
    for (unsigned z = 0; z < zs; ++z) at[z] = planes.data() + size_t(z) * xs;
    // Run-length rows are appended as they come: pixel row by pixel row, the picture read once.
    // Verbatim rows have fixed places, channel after channel: they go in file order, so the
    // writes stay contiguous, at the cost of splitting each pixel row once per channel.
    const bool rle = storage(img) == 1;
    for (unsigned pass = 0; pass < (rle ? 1 : zs); ++pass)
      for (unsigned y = 0; y < ys; ++y) {
        IMF_line_split(top + size_t(ys - 1 - y) * rowBytes, int(zs), 1, int(xs), at);
        for (unsigned z = rle ? 0 : pass; z < (rle ? zs : pass + 1); ++z)
          if (writeRow(img, at[z], 1, y, z) < 0) return -1;
      }
    return 0;
  }
  std::vector<unsigned short> line(xs);
  for (unsigned y = 0; y < ys; ++y)
    for (unsigned z = 0; z < zs; ++z) {
      const uint8_t* p = top + size_t(ys - 1 - y) * rowBytes + size_t(z) * b;
      for (unsigned x = 0; x < xs; ++x, p += size_t(zs) * b) {
        if (b == 1) line[x] = *p;
        else memcpy(&line[x], p, 2);
      }
      if (writeRow(img, line.data(), 2, y, z) < 0) return -1;
    }
  return 0;
}

// Writes what a writing handle still holds (rows, header, run-length tables); false after
// reporting the first failure.
static bool finishWriting(IMAGE* img) {
  Record* r = rec(img);
  if (!flush(r)) return report(FL_EWRITE, "putrow: error on write of row\n"), false;
  IMAGE out = *img;
  if (img->dorev) swapHeader(&out);
  if (!put(r, &out, kHeaderBytes, 0)) return report(FL_EWRITE, "iclose: error on write of image header\n"), false;
  if (storage(img) != 1) return true;
  const size_t tb = tableBytes(img);
  const uint32_t* tables[2] = {img->rowstart, img->rowsize};
  const char* names[2] = {"rowstart", "rowsize"};
  for (int i = 0; i < 2; ++i) {
    std::vector<uint32_t> t(tables[i], tables[i] + tb / 4);
    if (img->dorev) swapWords(t.data(), t.size());
    if (!put(r, t.data(), tb, int64_t(kDataStart + size_t(i) * tb)))
      return report(FL_EWRITE, "iclose: error on write of %s\n", names[i]), false;
  }
  return true;
}

int isFileSgi(const char* path) {
  uint8_t m[2];
  return pf::readStart(path, m, 2) && uint16_t(m[0] << 8 | m[1]) == kMagic;
}

int iclose(IMAGE* img) {
  if (!img) return -1;
  Record* r = rec(img);
  bool ok = !(img->flags & kWrite) || finishWriting(img);
  // A file written over in place ends where this one does, whatever happened above.
  if ((img->flags & kWrite) && !pf::truncateTo(img->file, r->end) && ok) {
    report(FL_EWRITE, "iclose: error on truncation of file\n");
    ok = false;
  }
  // Everything is released whatever happened above.
  free(img->base);
  free(img->tmpbuf);
  free(img->rowstart);
  free(img->rowsize);
  pf::unmapFile(r->map, r->mapSize);
  int fd = img->file;
  delete r;
  if (!pf::closeFd(fd) && ok) {
    report(FL_EWRITE, "iclose: error on close of file\n");
    ok = false;
  }
  return ok ? 0 : -1;
}

}  // extern "C"
