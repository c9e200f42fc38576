// TimageFile: reading pixels (image_file.h): native files through the image library, SGI images
// row by row, the mapped view as it is, and the fast load of common formats through Qt or the
// TGA plug-in.
#include <vora/image_file.h>

#include <QImage>
#include <QString>
#include <algorithm>
#include <cstring>

#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>
#include <vora/sgi.h>

#include "convert/convert_report.h"

namespace {

// Read when the library loads: setting it later changes nothing.
const int fastLoadDisabled = [] {
  const char* v = VoraGetEnv("VORA_NO_FAST_TEXTURE_LOAD");
  return v ? atoi(v) : 0;
}();

}  // namespace

int TimageFile::readSGI(Tpixel32* pixels, int first, int last) { return readSGI(pixels, first, last, 4); }

// bytesPerPixel 4: Tpixel32 (blue, green, red, alpha); 8: the same order in 16-bit samples,
// full values.
int TimageFile::readSGI(void* pixels, int first, int last, int bytesPerPixel) {
  if (!sgi_ || !pixels || first < 0 || last > int(sgi_->ysize) || (bytesPerPixel != 4 && bytesPerPixel != 8)) return -1;
  const unsigned w = sgi_->xsize, channels = std::min<unsigned>(sgi_->zsize, 4);
  const bool wide = (sgi_->type & 0xFF) == 2;
  std::vector<unsigned short> rows(size_t(w) * 4);
  for (int y = first; y < last; ++y) {
    for (unsigned z = 0; z < channels; ++z)
      if (getrow(sgi_, rows.data() + size_t(z) * w, unsigned(y), z) < int(w)) return -1;
    for (unsigned x = 0; x < w; ++x) {
      auto value = [&](unsigned z) -> unsigned { return rows[size_t(z) * w + x]; };
      // Grey fills the three colours; alpha is the fourth channel, else opaque.
      const unsigned r = value(0), g = channels >= 3 ? value(1) : r, b = channels >= 3 ? value(2) : r;
      const unsigned a = channels == 4 ? value(3) : (wide ? 65535 : 255);
      const size_t at = size_t(y - first) * w + x;
      if (bytesPerPixel == 8) {
        uint16_t* p = static_cast<uint16_t*>(pixels) + at * 4;
        p[0] = uint16_t(b), p[1] = uint16_t(g), p[2] = uint16_t(r), p[3] = uint16_t(a);
      } else {
        // The low byte of 8-bit samples, the high byte of 16-bit ones.
        auto byte = [wide](unsigned v) { return uint8_t(wide ? v >> 8 : v); };
        static_cast<Tpixel32*>(pixels)[at] = {byte(b), byte(g), byte(r), byte(a)};
      }
    }
  }
  return 0;
}

// Prepares the native file for 8-bit reading: -1 (reported) when it has no colour or cannot.
int TimageFile::prepareNativeRead() {
  if (!isActive()) return -1;
  if (!(type() & IL_COLOR)) return reportFormatted("s_TimageFileStrings.rImageFileLoadError1", filename_), -1;
  if (bytesPerPixel() == 4) modifyControlFlags(IL_ST_READ16 | IL_ST_PACKED, true);  // how float pixels are read
  else if (setBytesPerPixel(1) != 0) return reportFormatted("s_TimageFileStrings.rImageFileLoadError2", filename_), -1;
  if (ILcanload(handle()) != 0) return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FLerror())), -1;
  return 0;
}

int TimageFile::readPixelMap(TpixelMap& map) {
  if (sgi_) {
    const int r = map.create(sgi_->xsize, sgi_->ysize) ? readSGI(map.pixels(), 0, sgi_->ysize) : -1;
    if (r != 0) reportFormatted("s_TimageFileStrings.rSGIFileLoadError", filename_);
    return r;
  }
  if (mappedPixels_) {
    map.setPixelPtr(mappedPixels_, {0, 0, mappedWidth_, mappedHeight_});
    return 0;
  }
  if (prepareNativeRead() != 0) return -1;
  const TportRect want = map.requestedRect();
  unsigned w = width(), h = height();
  if (want.width() && want.height() && (want.width() != w || want.height() != h)) {
    w = want.width(), h = want.height();
    // Refused for float pixels: the lines would come at the file's size, not the map's.
    if (setZoom(int(w), int(h), 0.0f, 0.0f, 0.5f, 0.5f) != 0)
      return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FLerror())), -1;
  }
  const bool wantDepth = map.wantDepthMap();
  if (!map.create(w, h)) return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FL_ENOMEM)), -1;
  float* depth = nullptr;
  if (!(type() & IL_ZBUFFER)) map.setWantDepthMap(false);
  else if (wantDepth) depth = map.makeDepth().values.data();
  const int r = bytesPerPixel() == 4 ? loadFloatToByte(map.pixels(), depth) : load(map.pixels(), depth);
  if (r != 0) return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FLerror())), -1;
  if (queryControlFlags(IL_ST_TOPDOWN)) map.flipVertical();
  return 0;
}

int TimageFile::readPixelMap(TpixelMap& map, unsigned short first, unsigned short count) {
  const unsigned end = unsigned(first) + count;
  if (sgi_) {
    if (map.width() != sgi_->xsize || map.height() < end) return -1;
    const int r = readSGI(map.row(first), first, int(end));
    if (r != 0) reportFormatted("s_TimageFileStrings.rSGIFileLoadError", filename_);
    return r;
  }
  if (!isActive() || mappedPixels_ || map.width() < width() || map.height() < end) return -1;
  for (unsigned y = first; y < end; ++y)
    if (readLine(map.row(y), nullptr) != 0) return -1;
  return 0;
}

int TimageFile::readImage(Timage& image) {
  if (sgi_) {
    const int r = image.create(sgi_->xsize, sgi_->ysize, 1) ? readSGI(image.row(0), 0, sgi_->ysize, 4) : -1;
    if (r != 0) reportFormatted("s_TimageFileStrings.rSGIFileLoadError", filename_);
    return r;
  }
  if (mappedPixels_ || prepareNativeRead() != 0) return -1;
  if (!image.create(width(), height(), 1, type() & IL_ZBUFFER)) return -1;
  const int r = bytesPerPixel() == 4 ? loadFloatToByte(image.row(0), image.depthRow(0)) : load(image.row(0), image.depthRow(0));
  if (r != 0) return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FLerror())), -1;
  return 0;
}

int TimageFile::readImage(Timage& image, unsigned short first, unsigned short last) {
  if (first >= last || !isActive() || image.height() < last || image.width() < width() || image.bytesPerChannel() != 1) return -1;
  for (unsigned y = first; y < last; ++y)
    if (readLine(image.row(y), image.depthRow(y)) != 0) return -1;
  return 0;
}

int TimageFile::readDepthMap(TdepthBuffer& depth) {
  if (!isActive() || mappedPixels_ || sgi_ || ILcanload(handle()) != 0) return -1;
  depth.width = width(), depth.height = height();
  depth.values.assign(size_t(depth.width) * depth.height, 0.0f);
  if (load(nullptr, depth.values.data()) != 0)
    return reportFormatted("s_TimageFileStrings.rImageFileLoadError3", filename_, FLstrerror(FLerror())), -1;
  return 0;
}

bool TimageFile::attemptFastLoad(const Tstring& name, TpixelMap& map) {
  if (fastLoadDisabled) return false;
  const std::string suffix = name.extension().toLower().str();
  for (const char* s : {"png", "jpg", "jpeg", "gif", "bmp", "xpm", "xbm", "ppm", "tif", "tiff"})
    if (suffix == s) return LoadQTImage(name, map);
  if (suffix == "tga" || suffix == "targa") return LoadTGA(name, map);
  return false;
}

bool TimageFile::LoadQTImage(const Tstring& name, TpixelMap& map) {
  QImage q;
  if (!q.load(QString::fromStdString(name.str())) || q.width() * q.height() == 0) return false;
  q = q.convertToFormat(QImage::Format_ARGB32);  // blue, green, red, alpha in memory: the map's order
  map.setWantDepthMap(false);
  if (!map.create(unsigned(q.width()), unsigned(q.height()))) return false;
  // Qt's rows run top first, the map's bottom first.
  for (unsigned y = 0; y < map.height(); ++y) memcpy(map.row(map.height() - 1 - y), q.constScanLine(int(y)), size_t(map.width()) * 4);
  return true;
}

bool TimageFile::LoadTGA(const Tstring& name, TpixelMap& map) {
  map.setWantDepthMap(false);
  return vora::convert::readPixelMap(name, "tga", map) == 0;
}
