// TiffImageFile: the object face of one native image file (iff_image_file.h).
#include <vora/iff_image_file.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

#include "ilib/il_handle.h"

using vora::il::H;
using vora::il::Handle;

TiffImageFile::TiffImageFile(const char* name, const char* mode) { open(name, mode); }

TiffImageFile::~TiffImageFile() { close(); }

bool TiffImageFile::open(const char* name, const char* mode) {
  close();
  img_ = ILopen(name, mode);
  initInheritance();
  if (img_ && (H(img_)->fl.flags & FL_READ)) ILgetheader(img_);
  return img_ != nullptr;
}

bool TiffImageFile::reopen(const char* name, const char* mode) {
  if (!img_) return open(name, mode);
  img_ = ILreopen(name, mode, img_);  // frees the handle when it fails
  initInheritance();
  return img_ != nullptr;
}

int TiffImageFile::close() {
  if (!img_) return -1;
  const int r = ILclose(img_);
  img_ = nullptr;
  initInheritance();
  return r;
}

unsigned TiffImageFile::width() const {
  int w = 0, h = 0;
  return getSize(w, h) == 0 ? unsigned(w) : 0u;
}

unsigned TiffImageFile::height() const {
  int w = 0, h = 0;
  return getSize(w, h) == 0 ? unsigned(h) : 0u;
}

int TiffImageFile::getSize(int& width, int& height) const { return img_ ? ILgetsize(img_, &width, &height) : -1; }

// ILgetsize already answers the bound zoom's size.
int TiffImageFile::getNewSize(int& width, int& height) const { return getSize(width, height); }

int TiffImageFile::getOrigin(int& x, int& y) const { return img_ ? ILgetorigin(img_, &x, &y) : -1; }
int TiffImageFile::getRatio(int& num, int& den) const { return img_ ? ILgetratio(img_, &num, &den) : -1; }
int TiffImageFile::type() const { return img_ ? ILgettype(img_) : 0; }
int TiffImageFile::bytesPerPixel() const { return img_ ? ILgetbpp(img_) : 0; }
int TiffImageFile::pages() const { return img_ ? ILgetpages(img_) : 0; }
int TiffImageFile::setSize(int width, int height) { return img_ ? ILsetsize(img_, width, height) : -1; }
int TiffImageFile::setOrigin(int x, int y) { return img_ ? ILsetorigin(img_, x, y) : -1; }
int TiffImageFile::setType(int type) { return img_ ? ILsettype(img_, type) : -1; }
int TiffImageFile::setRatio(int num, int den) { return img_ ? ILsetratio(img_, num, den) : -1; }
int TiffImageFile::setBytesPerPixel(int bytes) { return img_ ? ILsetbpp(img_, bytes) : -1; }
int TiffImageFile::setPages(int count) { return img_ ? ILsetpages(img_, count) : -1; }
int TiffImageFile::setPageSize(int width, int height) { return img_ ? ILsetpagesize(img_, width, height) : -1; }

int TiffImageFile::setCompression(TfileCompression c) {
  if (unsigned(c) > unsigned(kQr4)) return 0;
  return img_ ? ILsetcompress(img_, int(c)) : -1;
}

TiffImageFile::TfileCompression TiffImageFile::compression() const {
  const int code = img_ ? ILgetcompress(img_) : 0;
  return code >= IL_NONE && code <= IL_QR4 ? TfileCompression(code) : kNoCompression;
}

int TiffImageFile::getField(TiffTag tag, const void** data) const {
  return img_ ? ILgetfield(img_, tag.value(), data) : -1;
}

int TiffImageFile::setField(TiffTag tag, unsigned count, const void* data) {
  return img_ ? ILsetfield(img_, tag.value(), int(count), data) : -1;
}

int TiffImageFile::copyFields(const TiffImageFile& from) {
  return img_ && from.img_ ? ILcopyfields(img_, from.img_) : -1;
}

int TiffImageFile::setZoom(int width, int height, float blurx, float blury, float offx, float offy) {
  return img_ ? ILsetzoom(img_, "auto", width, height, blurx, blury, offx, offy) : -1;
}

int TiffImageFile::getLine(void** colour, float** depth) {
  return img_ ? ILgetline(img_, colour, reinterpret_cast<void**>(depth)) : -1;
}
int TiffImageFile::readLine(void* colour, float* depth) { return img_ ? ILreadline(img_, colour, depth) : -1; }
int TiffImageFile::writeLine(const void* colour, const float* depth) {
  return img_ ? ILwriteline(img_, colour, depth) : -1;
}
void* TiffImageFile::beginLine(float** depth) {
  return img_ ? ILbgnline(img_, reinterpret_cast<void**>(depth)) : nullptr;
}
int TiffImageFile::endLine() { return img_ ? ILendline(img_) : -1; }
int TiffImageFile::writeTile(void* colour, float* depth, const uint32_t rect[4], int pitch) {
  return img_ ? ILwritetile(img_, colour, depth, rect, pitch) : -1;
}
int TiffImageFile::endTile() { return img_ ? ILendtile(img_) : -1; }
uint32_t TiffImageFile::modifyControlFlags(uint32_t flags, bool on) { return img_ ? ILctrl(img_, flags, on) : 0; }
uint32_t TiffImageFile::queryControlFlags(uint32_t flags) const { return img_ ? ILgetstate(img_) & flags : 0; }
int TiffImageFile::load(void* colour, float* depth) { return img_ ? ILload(img_, colour, depth) : -1; }
int TiffImageFile::loadBitmap(void* colour, float* depth) { return img_ ? ILloadbm(img_, colour, depth) : -1; }
int TiffImageFile::save(const void* colour, const float* depth, int pitch) {
  return img_ ? ILsave(img_, colour, depth, pitch) : -1;
}

uint32_t TiffImageFile::version() const { return img_ ? H(img_)->version : 0; }
void TiffImageFile::setVersion(uint32_t v) {
  if (img_) H(img_)->version = v;
}
uint32_t TiffImageFile::ictl() const { return img_ ? H(img_)->state : 0; }
void TiffImageFile::setIctl(uint32_t state) {
  if (img_) H(img_)->state = state;
}
uint32_t TiffImageFile::twidth() const { return img_ ? H(img_)->twidth : 0; }
uint32_t TiffImageFile::theight() const { return img_ ? H(img_)->theight : 0; }
void TiffImageFile::setTwidth(uint32_t w) {
  if (img_) H(img_)->twidth = w;
}
void TiffImageFile::setTheight(uint32_t h) {
  if (img_) H(img_)->theight = h;
}
float TiffImageFile::dpi() const { return img_ ? H(img_)->resolution : 0.0f; }
void TiffImageFile::setDpi(float dpi) {
  if (img_) H(img_)->resolution = dpi;
}
unsigned char** TiffImageFile::lookups() const { return img_ ? H(img_)->lookups : nullptr; }
void TiffImageFile::setLookups(unsigned char** tables) {
  if (img_) ILsetlookups(img_, tables);
}
uint32_t TiffImageFile::bitmask() const { return img_ ? H(img_)->chanmask : 0; }
uint32_t TiffImageFile::channels() const { return img_ ? H(img_)->bpp : 0; }
uint32_t TiffImageFile::pwidth() const { return img_ ? H(img_)->pstride : 0; }
uint32_t TiffImageFile::lwidth() const { return img_ ? H(img_)->linebytes : 0; }

namespace {

uint8_t floatToByte(float v) {  // NaN and negatives 0: clamped before the conversion
  return !(v > 0.0f) ? 0 : v >= 1.0f ? 255 : uint8_t(v * 255.0f);
}

}  // namespace

int TiffImageFile::loadFloatToByte(void* pixels, float* /*depth: deliberately not filled*/) {
  if (!img_ || !pixels) return 0;
  int w = 0, h = 0;
  if (getSize(w, h) != 0 || ILgetbpp(img_) != 4) return 0;
  ILctrl(img_, IL_ST_READ16 | IL_ST_PACKED, 1);
  const bool alpha = ILgettype(img_) & IL_ALPHA;
  const size_t n = alpha ? 4 : 3;
  // The packed layout of a float file holds 3 or 4 values a pixel only for colour images.
  if (size_t(ILinitio(img_)) != size_t(w) * n * 4) return 0;
  auto* out = static_cast<uint8_t*>(pixels);
  void *line, *z;
  for (int y = 0; y < h && ILgetline(img_, &line, &z) == 0; ++y) {
    const auto* src = static_cast<const unsigned char*>(line);
    for (int x = 0; x < w; ++x, src += n * 4, out += 4) {
      float v[4] = {0, 0, 0, 1};
      memcpy(v, src, n * 4);
      for (int c = 0; c < 4; ++c) out[c] = floatToByte(v[c]);
    }
  }
  return 0;
}

int TiffImageFile::readZBuffer(TpixelMap& map, int width, int height) {
  int w = 0, h = 0;
  if (!img_ || width < 1 || height < 1 || getSize(w, h) != 0) return -1;
  const size_t count = size_t(width) * size_t(height), values = std::max(count, size_t(w) * size_t(h));
  if (!FLallocok(uint64_t(values) * 4)) return -1;
  std::vector<float> z(values, 0.0f);
  if (loadBitmap(nullptr, z.data()) != 0) return -1;
  if ((map.width() != unsigned(width) || map.height() != unsigned(height)) && !map.create(unsigned(width), unsigned(height)))
    return -1;
  // A value that lowers the minimum is deliberately not also compared with the maximum.
  float lo = FLT_MAX, hi = -FLT_MAX;
  bool raised = false;
  for (size_t i = 0; i < count; ++i) {
    if (z[i] == 0.0f) continue;
    if (z[i] < lo) lo = z[i];
    else if (z[i] > hi) hi = z[i], raised = true;
  }
  if (!raised) hi = lo;
  const float range = hi - lo == 0.0f ? 1.0f : hi - lo, scale = range / 200.0f;
  for (size_t i = 0; i < count; ++i) {
    uint8_t grey = 0;
    if (z[i] != 0.0f) {
      const float g = 255.0f - (z[i] - lo) / scale;
      // Truncated to an integer and kept in a byte, as the preview always was; values a float
      // cannot take to an integer (NaN, beyond the range) are pinned first.
      grey = uint8_t(std::isnan(g) ? 0 : int(std::fmax(-1e9f, std::fmin(1e9f, g))));
    }
    map.setPixel(unsigned(i % unsigned(width)), unsigned(i / unsigned(width)), Tpixel32{grey, grey, grey, grey});
  }
  return 0;
}

void TiffImageFile::setPixelRGBA(void* row, unsigned short i, unsigned char r, unsigned char g, unsigned char b,
                                 unsigned char a) {
  if (i > width()) return;
  auto* p = static_cast<unsigned char*>(row) + size_t(i) * 4;
  p[0] = b, p[1] = g, p[2] = r, p[3] = a;
}

void TiffImageFile::getPixelRGBA(const void* row, unsigned short i, unsigned char& r, unsigned char& g,
                                 unsigned char& b, unsigned char* a) const {
  if (i > width()) return;
  const auto* p = static_cast<const unsigned char*>(row) + size_t(i) * 4;
  b = p[0], g = p[1], r = p[2];
  if (a) *a = p[3];
}

void TiffImageFile::pixelRGBAswap(void* row) const {
  auto* p = static_cast<unsigned char*>(row);
  for (unsigned x = 0, w = width(); x < w; ++x, p += 4) std::swap(p[0], p[3]), std::swap(p[1], p[2]);
}

int TiffImageFile::rewriteHeaderPageCount(int pages) {
  if (!img_) return -1;
  Handle* h = H(img_);
  if (h->fl.flags & FL_READ) return FL_EMODE;
  if (!(h->state & IL_ST_HEADER)) return ILsetpages(img_, pages);  // nothing written yet
  FLflushBuffer(img_);
  FLoserror();
  const int64_t at = FLtell(img_);
  h->state &= ~uint32_t(IL_ST_HEADER);
  h->state |= IL_ST_TILING;  // the tiling stays as it is; only the count changes
  h->hdr.tiles = uint16_t(pages);
  int r = FLseek(img_, h->hdrpos);
  if (!r) r = ILputheader(img_);
  const int back = FLseek(img_, at);
  return r ? r : back;
}
