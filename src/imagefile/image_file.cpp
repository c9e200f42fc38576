// TimageFile: identifying, opening (directly or through a temporary native file), writing and
// closing (image_file.h). Reading is in image_file_read.cpp.
#include <vora/image_file.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include <vora/convert.h>
#include <vora/foundation/env.h>
#include <vora/foundation/messages.h>
#include <vora/plugins.h>
#include <vora/psd_document.h>
#include <vora/psd_texture.h>
#include <vora/sgi.h>

#include "convert/convert_report.h"
#include "platform/platform.h"

namespace {

std::atomic<bool> reportingEnabled{true};

// The writer formats that are the native file itself.
bool writesNative(const char* format) {
  return !format || !strcasecmp(format, "vora") || !strcasecmp(format, "kbn") || !strcasecmp(format, "psdLayered");
}

}  // namespace

TimageFile::TimageFile() = default;

TimageFile::~TimageFile() {
  if (sgi_) iclose(sgi_);
  unmap();
  TiffImageFile::close();
  dropTemporary();
}

TmtRecursiveCS& TimageFile::imageLock() {
  static TmtRecursiveCS lock;
  return lock;
}

void TimageFile::setErrorReportingEnabled(bool on) { reportingEnabled = on; }
bool TimageFile::errorReportingEnabled() { return reportingEnabled; }

void TimageFile::report(const char* key, const Tstring& added) const {
  if (!theErrorHandler || !reportingEnabled) return;
  theErrorHandler->reportError((std::string(TstringId(key).text()) + added.str()).c_str());
}

void TimageFile::reportFormatted(const char* key, const char* arg1, const char* arg2) const {
  if (reportingEnabled) reportErrorf(TstringId(key).text(), arg1, arg2 ? arg2 : "");
}

bool TimageFile::isOpen() const { return isActive() || sgi_ || mappedPixels_; }

TimageFile::TfileFormat TimageFile::format() const {
  if (sgi_) return kSgiFormat;
  if (mappedPixels_) return kMappedFormat;
  if (!isActive()) return kNoFormat;
  return temporaryPath_ ? kConvertedFormat : kNativeFormat;
}

bool TimageFile::hasRGB() const { return sgi_ ? true : isActive() && (type() & IL_COLOR); }
bool TimageFile::hasDepthMap() const { return !sgi_ && isActive() && (type() & IL_ZBUFFER); }

void TimageFile::setMapped(bool on, unsigned short width, unsigned short height) {
  mapped_ = on, mappedWidth_ = width, mappedHeight_ = height;
}

Tstring TimageFile::getImageType(const Tstring& name, bool sceneTypes) const {
  if (name.str().empty()) return Tstring();
  const int fd = vora::platform::openRead(name);
  if (fd < 0) return Tstring();
  unsigned char b[12];
  size_t got = 0;
  for (long n; got < sizeof b && (n = vora::platform::readSome(fd, b + got, sizeof b - got)) > 0;) got += size_t(n);
  vora::platform::closeFd(fd);
  Tstring key;
  if (got == sizeof b) {
    if (b[0] == 0x01 && b[1] == 0xDA) return "sgi";
    if (memcmp(b, "FOR4", 4) == 0) {
      for (const char* scene : {"Vora", "MPLE", "VORA", "CACH"})
        if (memcmp(b + 8, scene, 4) == 0) return sceneTypes ? "VoraBinary" : "";
      return "vora";
    }
    if (memcmp(b, "II*\0", 4) == 0 || memcmp(b, "MM\0*", 4) == 0) return loadImfPlugins(), "tif";
    if (memcmp(b, "\xFF\xD8\xFF\xE0", 4) == 0 && b[6] == 'J' && b[7] == 'F') return loadImfPlugins(), "jpg";
    if (memcmp(b, "//Vora ASCII", 12) == 0) return sceneTypes ? "VoraASCII" : "";
    // A Photoshop document is named so only when no plug-in claims it.
    if (ktPhotoshop::TpsdTextureFile::isFilePsd(name)) key = "psd";
  }
  loadImfPlugins();
  TmtLock<TmtRecursiveCS> lock(imageLock());
  const char* claimed = identify(name);
  if (!claimed) report("s_TimageFileStrings.rImageFileIdentifyError");
  else if (strcmp(claimed, "__none_") != 0) key = claimed;
  return key;
}

bool TimageFile::nativeReady() const {
  const int bytes = bytesPerPixel();
  return type() != 0 && (bytes == 1 || bytes == 4) && !queryControlFlags(IL_ST_TOPDOWN);
}

int TimageFile::identifyAndOpen(const Tstring& name, bool arg, int passOn) {
  const Tstring key = getImageType(name, false);
  if (key.str().empty()) return -1;
  // An open object is closed by close() alone, whichever path opened it.
  if (isOpen()) return report("s_TimageFileStrings.rImageFileOpenError"), -1;
  filename_ = name;
  if (key.str() == "vora") {
    bool ready;
    {
      TmtLock<TmtRecursiveCS> lock(imageLock());
      if (!TiffImageFile::open(name, "r")) return report("s_TimageFileStrings.rImageFileOpenFailed", name), -1;
      if (width() == 0 || height() == 0 || width() > 8192 || height() > 8192) {
        // The one message that cannot be switched off; the handle stays open until close().
        if (theErrorHandler)
          theErrorHandler->reportError((std::string(TstringId("s_TimageFileStrings.rImageFileCorruptError").text()) + name.str()).c_str());
        return -1;
      }
      ready = nativeReady();
      TiffImageFile::close();
    }
    if (ready) return open(name, true, arg, passOn);
  } else if (key.str() == "sgi" && (sgi_ = iopen(name, "r", 0, 0, 0, 0, 0))) {
    alpha_ = sgi_->zsize == 4;
    return 0;
  }
  return openThroughKey(name, key, passOn);
}

Tstring TimageFile::newTemporaryPath() {
  temporaryPath_.reset(new char[512]);
  snprintf(temporaryPath_.get(), 512, "%s/vora%d%p.iff", vora::platform::temporaryDirectory().c_str(),
           vora::platform::processId(), static_cast<void*>(this));
  return temporaryPath_.get();
}

void TimageFile::dropTemporary() {
  if (temporaryPath_) remove(temporaryPath_.get());
  temporaryPath_.reset();
}

void TimageFile::unmap() {
  if (mappedPixels_) vora::platform::unmapShared(mappedPixels_, int64_t(mappedWidth_) * mappedHeight_ * 4);
  mappedPixels_ = nullptr;
}

int TimageFile::open(const Tstring& name, bool iffReady, bool, int passOn) {
  if (name.str().empty() || isOpen()) return report("s_TimageFileStrings.rImageFileOpenError"), -1;
  filename_ = name;
  if (!iffReady) return openThroughKey(name, getImageType(name, false), passOn);
  TmtLock<TmtRecursiveCS> lock(imageLock());
  if (!TiffImageFile::open(name, "r")) return report("s_TimageFileStrings.rImageFileOpenFailed", name), -1;
  alpha_ = type() & IL_ALPHA;
  return 0;
}

// A file identified as key: a native one read as it is when it may be, anything else through a
// temporary native file that the plug-ins make.
int TimageFile::openThroughKey(const Tstring& name, const Tstring& key, int passOn) {
  Tstring path = newTemporaryPath();
  loadImfPlugins();
  bool ready = false;
  if (key.str() == "vora" || key.str() == "kbn") {
    TmtLock<TmtRecursiveCS> lock(imageLock());
    if (!TiffImageFile::open(name, "r")) {
      dropTemporary();
      return report("s_TimageFileStrings.rImageFileOpenFailed", name), -1;
    }
    ready = nativeReady();
    TiffImageFile::close();
  }
  if (ready) {
    temporaryPath_.reset();
    path = name;
  } else if (anytoiff(name, path, nullptr, passOn) != 0) {
    dropTemporary();
    return report("s_TimageFileStrings.rImageFileImageConversion"), -1;
  }
  return openConverted(path);
}

// Opens the file to read: mapped, or through the image library. A failure removes a temporary
// file, never the caller's own.
int TimageFile::openConverted(const Tstring& path) {
  if (mapped_) {
    const int fd = vora::platform::openReadWrite(path);
    if (fd < 0) {
      report("s_TimageFileStrings.rImageFileOpenFailed", path);
      return dropTemporary(), -1;
    }
    mappedPixels_ = static_cast<Tpixel32*>(vora::platform::mapFileShared(fd, int64_t(mappedWidth_) * mappedHeight_ * 4));
    vora::platform::closeFd(fd);
    if (!mappedPixels_) {
      if (theErrorHandler && reportingEnabled) theErrorHandler->reportError("Failed to open memory mapped region.");
      return dropTemporary(), -1;
    }
    return 0;
  }
  TmtLock<TmtRecursiveCS> lock(imageLock());
  if (!TiffImageFile::open(path, "r")) {
    report("s_TimageFileStrings.rImageFileOpenFailed", path);
    return dropTemporary(), -1;
  }
  alpha_ = type() & IL_ALPHA;
  return 0;
}

int TimageFile::getResolutionInAdvance(const Tstring& name, unsigned& width, unsigned& height) {
  const Tstring key = getImageType(name, false);
  if (key.str() == "vora") {
    TiffImageFile f;
    if (!f.open(name, "r") || f.width() == 0) return -1;
    width = f.width(), height = f.height();
    return 0;
  }
  if (key.str() == "sgi") {
    IMAGE* s = iopen(name, "r", 0, 0, 0, 0, 0);
    if (!s) return -1;
    width = s->xsize, height = s->ysize;
    iclose(s);
    return 0;
  }
  if (key.str() == "psd") {
    ktPhotoshop::TpsdFile doc;  // the header alone
    if (doc.open(TfilePath(name), false) != 0 || doc.imageWidth() == 0) return -1;
    width = doc.imageWidth(), height = doc.imageHeight();
    return 0;
  }
  int w = 0, h = 0;
  if (key.str().empty() || getResolution(name, &w, &h) != 0) return -1;
  width = unsigned(w), height = unsigned(h);
  return 0;
}

int TimageFile::create(const Tstring& name, unsigned short width, unsigned short height, TfileCompression compression,
                       const char* format) {
  filename_ = name;
  if (isOpen()) return -1;
  writerFormat_ = {format ? strdup(format) : nullptr, free};
  Tstring path = name;
  if (writesNative(format)) temporaryPath_.reset();
  else path = newTemporaryPath();
  TmtLock<TmtRecursiveCS> lock(imageLock());
  if (!TiffImageFile::open(path, "w")) return report("s_TimageFileStrings.rImageFileWriteFailed", path), -1;
  setType(IL_COLOR | IL_ALPHA);
  setBytesPerPixel(1);
  setCompression(compression);
  setSize(width, height);
  return 0;
}

int TimageFile::writePixelMap(const TpixelMap& map, bool withDepth) {
  // Once lines have gone out the size is fixed: a map of another width would be read past its rows.
  if (setSize(int(map.width()), int(map.height())) != 0 && width() != map.width()) return -1;
  const TdepthBuffer* depth = const_cast<TpixelMap&>(map).depth();
  if (withDepth) {
    if (!map.wantDepthMap() || !depth || depth->width == 0 || depth->height == 0 || depth->width != map.width() ||
        depth->height != map.height())
      return -1;
    setType(type() | IL_ZBUFFER);
  }
  for (unsigned y = 0; y < map.height(); ++y)
    if (writeLine(map.pixels() + size_t(y) * map.width(), withDepth ? depth->values.data() + size_t(y) * map.width() : nullptr) != 0)
      return -1;
  return 0;
}

int TimageFile::writePixelMap(int x, int y, const TpixelMap& map) { return writePixelMap(x, y, map, int(map.height())); }

int TimageFile::writePixelMap(int x, int y, const TpixelMap& map, int rows) {
  return writePixelMapRegion(x, y, int(map.width()) - x, rows, map);
}

// Rows y .. y + height - 1 of the map, from column x on, as the next lines of the file: lines go
// out whole and in order, so the region must span the file's width.
int TimageFile::writePixelMapRegion(int x, int y, int width, int height, const TpixelMap& map) {
  if (x < 0 || y < 0 || height < 0 || width != int(this->width()) || int64_t(x) + width > int64_t(map.width()) ||
      int64_t(y) + height > int64_t(map.height()))
    return -1;
  for (int r = y; r < y + height; ++r)
    if (writeLine(map.pixels() + size_t(r) * map.width() + x, nullptr) != 0) return -1;
  return 0;
}

int TimageFile::close() {
  if (sgi_) {
    iclose(sgi_);
    sgi_ = nullptr;
    return 0;
  }
  unmap();
  {
    TmtLock<TmtRecursiveCS> lock(imageLock());
    TiffImageFile::close();
  }
  if (writerFormat_ && !writesNative(writerFormat_.get()) && temporaryPath_) {
    loadImfPlugins();
    // One picture a file: a multi-frame output is finished here, not left for more frames.
    if (ifftoany(temporaryPath_.get(), filename_, writerFormat_.get()) != 0 ||
        vora::convert::finishOutput(writerFormat_.get()) != 0) {
      temporaryPath_.reset();  // the native file is left for inspection
      return -1;
    }
    writerFormat_.reset();
  }
  dropTemporary();
  return 0;
}

int TimageFile::getDimensions(unsigned short& width, unsigned short& height, unsigned char& bytesPerPixel) const {
  if (sgi_) {
    width = sgi_->xsize, height = sgi_->ysize, bytesPerPixel = uint8_t(sgi_->type & 0xFF);
    return 0;
  }
  if (mappedPixels_) {
    width = mappedWidth_, height = mappedHeight_, bytesPerPixel = 1;
    return 0;
  }
  if (!isActive()) return -1;
  width = uint16_t(this->width()), height = uint16_t(this->height()), bytesPerPixel = uint8_t(this->bytesPerPixel());
  return 0;
}

TportRect TimageFile::size() const {
  unsigned short w = 0, h = 0;
  unsigned char b = 0;
  getDimensions(w, h, b);
  return {0, 0, w, h};
}

const TstringArray& TimageFile::availableFormats() {
  static TstringArray formats;
  static bool filled = false;
  TmtLock<TmtRecursiveCS> lock(imageLock());
  if (filled) return formats;
  filled = true;
  const char* location = VoraGetEnv("VORA_LOCATION");
  TimageFile reporter;
  if (!location) return reporter.report("s_TimageFileStrings.rImageFileENV"), formats;
  const std::string dir = std::string(location) + "/bin/plug-ins/image/";
  std::vector<std::string> names;
  if (!vora::platform::listDirectory(dir, vora::platform::sharedLibraryPattern(), names))
    return reporter.report("s_TimageFileStrings.rImageFilePluginPath", dir), formats;
  for (const std::string& n : names)
    if (!n.empty() && n[0] != '.') formats.push_back(n);
  return formats;
}

void TimageFile::getClientAddressSpace(char* dst) { sprintf(dst, "%x", unsigned(vora::platform::processId() % 0xFFFFFF)); }
