// vimg: whole images in memory and their files (native IFF through IL, others through QImage).
#include "image_io.h"

#include <QImage>
#include <QImageReader>
#include <QString>
#include <cstdio>
#include <cstring>

#include <vora/ilib.h>

namespace vimg {

namespace {

std::string lowerExtension(const std::string& path) {
  size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string e = path.substr(dot + 1);
  for (char& c : e) c = char(tolower(static_cast<unsigned char>(c)));
  return e;
}

std::string ilError(const std::string& path) {
  return path + ": " + FLstrerror(flerrno) + " (error " + std::to_string(flerrno) + ")";
}

bool readNative(const std::string& path, Image& img, std::string& error) {
  ILimage* in = ILopen(path.c_str(), "r");
  const ILheader* h = in ? ILgetheader(in) : nullptr;
  if (!h) {
    error = ilError(path);
    if (in) ILclose(in);
    return false;
  }
  img.width = int(h->width);
  img.height = int(h->height);
  img.bytes = h->bytes == 2 ? 2 : 1;
  img.alpha = h->type & IL_ALPHA;
  if (img.bytes == 2) ILsetbpp(in, 2);
  if (img.width < 1 || img.height < 1 || img.width > 32768 || img.height > 32768) {
    flerrno = 106;
    error = ilError(path);
    ILclose(in);
    return false;
  }
  if (!FLallocok(uint64_t(img.rowBytes()) * img.height)) {
    flerrno = 110;
    error = ilError(path);
    ILclose(in);
    return false;
  }
  img.pixels.assign(img.rowBytes() * size_t(img.height), 0);
  int r = ILload(in, img.pixels.data(), nullptr);
  if (r) error = ilError(path);
  ILclose(in);
  return r == 0;
}

bool writeNative(const std::string& path, const Image& src, const WriteOptions& opt,
                 std::string& error) {
  Image img = withBytes(src, opt.bits == 16 ? 2 : opt.bits == 8 ? 1 : src.bytes);
  ILimage* out = ILopen(path.c_str(), "w");
  if (!out) {
    error = ilError(path);
    return false;
  }
  int r = ILsetsize(out, img.width, img.height);
  if (!r) r = ILsettype(out, IL_COLOR | (img.alpha ? IL_ALPHA : 0));
  if (!r) r = ILsetbpp(out, img.bytes);
  if (!r) r = ILsetcompress(out, opt.compress);
  if (!r && opt.tileWidth > 0) r = ILsetpagesize(out, opt.tileWidth, opt.tileHeight);
  if (!r && opt.topDown) ILctrl(out, IL_ST_TOPDOWN, 1);
  if (!r) r = ILsave(out, img.pixels.data(), nullptr, 0);
  int c = ILclose(out);
  if (r || c) {
    if (!r) flerrno = c;
    error = ilError(path);
    return false;
  }
  return true;
}

bool readQt(const std::string& path, Image& img, std::string& error) {
  QImageReader reader(QString::fromStdString(path));
  QImage q;
  if (!reader.read(&q)) {
    error = path + ": " + reader.errorString().toStdString();
    return false;
  }
  bool deep = q.depth() > 32 || q.format() == QImage::Format_Grayscale16;
  img.alpha = q.hasAlphaChannel();
  img.width = q.width();
  img.height = q.height();
  img.bytes = deep ? 2 : 1;
  img.pixels.resize(img.rowBytes() * size_t(img.height));
  // Qt: top line first, red green blue alpha; ours: bottom line first, blue green red alpha.
  if (deep) {
    q = q.convertToFormat(QImage::Format_RGBA64);
    for (int y = 0; y < img.height; ++y) {
      const uint16_t* s = reinterpret_cast<const uint16_t*>(q.constScanLine(y));
      uint16_t* d = reinterpret_cast<uint16_t*>(&img.pixels[size_t(img.height - 1 - y) * img.rowBytes()]);
      for (int x = 0; x < img.width; ++x, s += 4, d += 4) d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = s[3];
    }
  } else {
    q = q.convertToFormat(QImage::Format_RGBA8888);
    for (int y = 0; y < img.height; ++y) {
      const uint8_t* s = q.constScanLine(y);
      uint8_t* d = &img.pixels[size_t(img.height - 1 - y) * img.rowBytes()];
      for (int x = 0; x < img.width; ++x, s += 4, d += 4) d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = s[3];
    }
  }
  return true;
}

bool writeQt(const std::string& path, const Image& src, const WriteOptions& opt, std::string& error) {
  std::string ext = lowerExtension(path);
  bool canDeep = ext == "png" || ext == "tif" || ext == "tiff";
  int bytes = opt.bits ? opt.bits / 8 : src.bytes;
  if (!canDeep) bytes = 1;
  Image img = withBytes(src, bytes);
  QImage q;
  if (bytes == 2) {
    q = QImage(img.width, img.height, img.alpha ? QImage::Format_RGBA64 : QImage::Format_RGBX64);
    for (int y = 0; y < img.height; ++y) {
      const uint16_t* s = reinterpret_cast<const uint16_t*>(&img.pixels[size_t(img.height - 1 - y) * img.rowBytes()]);
      uint16_t* d = reinterpret_cast<uint16_t*>(q.scanLine(y));
      for (int x = 0; x < img.width; ++x, s += 4, d += 4)
        d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = img.alpha ? s[3] : 0xFFFF;
    }
  } else {
    q = QImage(img.width, img.height, img.alpha ? QImage::Format_RGBA8888 : QImage::Format_RGBX8888);
    for (int y = 0; y < img.height; ++y) {
      const uint8_t* s = &img.pixels[size_t(img.height - 1 - y) * img.rowBytes()];
      uint8_t* d = q.scanLine(y);
      for (int x = 0; x < img.width; ++x, s += 4, d += 4)
        d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = img.alpha ? s[3] : 0xFF;
    }
    if (!img.alpha) q = q.convertToFormat(QImage::Format_RGB888);
  }
  if (!q.save(QString::fromStdString(path), ext.empty() ? nullptr : ext.c_str())) {
    error = path + ": cannot write this format (" + (ext.empty() ? "no extension" : ext) + ")";
    return false;
  }
  return true;
}

}  // namespace

bool isNativeFile(const std::string& path) {
  std::string ext = lowerExtension(path);
  if (ext == "iff" || ext == "gz") return true;
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return false;
  char id[4] = {};
  size_t n = fread(id, 1, 4, f);
  fclose(f);
  return n == 4 && FLisgroup(FL_ID(id[0], id[1], id[2], id[3])) != 0;
}

bool readImage(const std::string& path, Image& img, std::string& error) {
  // Native images and anything Qt does not know go through ILopen (and its converter programs).
  if (isNativeFile(path)) return readNative(path, img, error);
  QImageReader probe(QString::fromStdString(path));
  if (probe.canRead()) return readQt(path, img, error);
  return readNative(path, img, error);
}

bool writeImage(const std::string& path, const Image& img, const WriteOptions& opt,
                std::string& error) {
  std::string ext = lowerExtension(path);
  if (ext == "iff" || ext.empty()) return writeNative(path, img, opt, error);
  return writeQt(path, img, opt, error);
}

Image withBytes(const Image& img, int bytes) {
  if (img.bytes == bytes) return img;
  Image out = img;
  out.bytes = bytes;
  size_t n = size_t(img.width) * img.height * 4;
  out.pixels.resize(n * bytes);
  if (bytes == 2) {
    for (size_t i = 0; i < n; ++i) {
      uint16_t v = uint16_t(img.pixels[i] * 257);
      memcpy(&out.pixels[2 * i], &v, 2);
    }
  } else {
    for (size_t i = 0; i < n; ++i) {
      uint16_t v;
      memcpy(&v, &img.pixels[2 * i], 2);
      out.pixels[i] = uint8_t(v >> 8);
    }
  }
  return out;
}

}  // namespace vimg
