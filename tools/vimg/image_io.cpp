// vimg: whole images in memory and their files: native IFF, SGI, plug-ins, then QImage.
#include "image_io.h"

#include "image_plugins.h"

#include <QImage>
#include <QImageReader>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>

#include <vora/iff_image_file.h>
#include <vora/ilib.h>
#include <vora/imf.h>
#include <vora/sgi.h>

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

// 32-bit float pixels, clamped to 0..1, as 8 bits (colour images: the only float files written).
bool readNativeFloats(const std::string& path, TiffImageFile& f, Image& img, std::string& error) {
  if (!(f.type() & IL_COLOR)) {
    error = path + ": 32-bit float pixels are read only for colour images";
    return false;
  }
  f.loadFloatToByte(img.pixels.data(), nullptr);
  // The conversion ends silently at the first unreadable line: only the finished state tells.
  if (f.queryControlFlags(IL_ST_FINISHED)) return true;
  error = ilError(path, f.handle());
  return false;
}

bool readNative(const std::string& path, Image& img, std::string& error) {
  TiffImageFile f(path.c_str(), "r");  // closed on every return
  ILimage* in = f.handle();
  const ILheader* h = in ? ILgetheader(in) : nullptr;
  if (!h) {
    error = ilError(path, in);
    // Files that are no native image go to the conversion program: say so rather than only that
    // the program failed.
    if ((flerrno == IL_ENOCONVERTER || flerrno == IL_ECONVERT) && !isFileIff(path.c_str()))
      error = path + ": not a format read here (no native image, no plug-in or reader claims it), and " +
              FLstrerror(flerrno) + " (error " + std::to_string(flerrno) + ")";
    return false;
  }
  img.width = int(h->width);
  img.height = int(h->height);
  img.bytes = h->bytes == 2 ? 2 : 1;
  img.alpha = h->type & IL_ALPHA;
  img.channels = std::max(ILtypechannels(h->type & ~uint32_t(IL_ALPHA)), 1) + (img.alpha ? 1 : 0);
  const bool floats = h->bytes == 4;
  if (floats) ILctrl(in, IL_ST_READ16 | IL_ST_PACKED, 1);  // the only way float pixels are read
  else if (img.bytes == 2) ILsetbpp(in, 2);
  // Refused before allocating: sizes out of range, or more than the file could hold.
  if (ILcanload(in) != 0 || !FLallocok(uint64_t(img.rowBytes()) * img.height)) {
    if (flerrno != IL_ESIZE) flerrno = IL_ETOOLARGE;
    error = ilError(path);
    return false;
  }
  img.pixels.assign(img.rowBytes() * size_t(img.height), 0);
  if (floats) return readNativeFloats(path, f, img, error);
  int r = ILload(in, img.pixels.data(), nullptr);
  if (r) error = ilError(path, in);
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
  img.channels = (q.isGrayscale() ? 1 : 3) + (img.alpha ? 1 : 0);
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
  if (img.channels == 1 && !img.alpha) {  // grey stays grey: one channel, taken from green
    q = QImage(img.width, img.height, bytes == 2 ? QImage::Format_Grayscale16 : QImage::Format_Grayscale8);
    for (int y = 0; y < img.height; ++y) {
      const uint8_t* s = &img.pixels[size_t(img.height - 1 - y) * img.rowBytes()];
      uint8_t* d = q.scanLine(y);
      for (int x = 0; x < img.width; ++x)
        if (bytes == 2) memcpy(d + 2 * x, s + (size_t(x) * 4 + 1) * 2, 2);
        else d[x] = s[size_t(x) * 4 + 1];
    }
  } else if (bytes == 2) {
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

// SGI rows: bottom row first like ours; channel z of a row is one getrow.
bool readSgi(const std::string& path, Image& img, std::string& error) {
  IMAGE* in = iopen(path.c_str(), "r", 0, 0, 0, 0, 0);
  if (!in) {
    error = path + ": not a readable SGI image";
    return false;
  }
  img.width = in->xsize;
  img.height = in->ysize;
  img.bytes = SGI_BPC(in) == 2 ? 2 : 1;
  int z = in->zsize;
  img.channels = z >= 4 ? 4 : z;
  img.alpha = z == 2 || z >= 4;
  if (img.width < 1 || img.height < 1 || z < 1 || !FLallocok(uint64_t(img.rowBytes()) * img.height)) {
    error = path + ": SGI image of no or too many pixels";
    iclose(in);
    return false;
  }
  img.pixels.assign(img.rowBytes() * size_t(img.height), 0);
  std::vector<unsigned short> row(size_t(img.width));
  // Channel c of the file goes to element: grey to B, G, R; RGB to R, G, B; alpha to A.
  if (img.bytes == 1) {  // each channel narrowed into a plane, the planes joined into the row
    const size_t w = size_t(img.width);
    std::vector<uint8_t> planes(w * 5, 255);  // four channels, then an opaque alpha
    uint8_t* p[5] = {&planes[0], &planes[w], &planes[2 * w], &planes[3 * w], &planes[4 * w]};
    const bool grey = img.channels <= 2, alpha = img.channels == 2 || img.channels == 4;
    const void* bgra[4] = {grey ? p[0] : p[2], grey ? p[0] : p[1], p[0], alpha ? p[img.channels - 1] : p[4]};
    for (int y = 0; y < img.height; ++y) {
      for (int c = 0; c < img.channels; ++c) {
        if (getrow(in, row.data(), unsigned(y), unsigned(c)) < 0) {
          error = path + ": damaged SGI image (row " + std::to_string(y) + ", channel " + std::to_string(c) + ")";
          iclose(in);
          return false;
        }
        for (size_t x = 0; x < w; ++x) p[c][x] = uint8_t(row[x]);
      }
      IMF_planes_join(bgra, 4, 1, img.width, &img.pixels[size_t(y) * w * 4]);
    }
    iclose(in);
    return true;
  }
  for (int y = 0; y < img.height; ++y)
    for (int c = 0; c < img.channels; ++c) {
      if (getrow(in, row.data(), unsigned(y), unsigned(c)) < 0) {
        error = path + ": damaged SGI image (row " + std::to_string(y) + ", channel " + std::to_string(c) + ")";
        iclose(in);
        return false;
      }
      bool grey = img.channels <= 2;
      for (int x = 0; x < img.width; ++x) {
        unsigned v = row[size_t(x)];
        size_t px = (size_t(y) * img.width + x) * 4;
        auto put = [&](int e) {
          if (img.bytes == 2) memcpy(&img.pixels[(px + e) * 2], &row[size_t(x)], 2);
          else img.pixels[px + e] = uint8_t(v);
        };
        if (grey && c == 0) put(0), put(1), put(2);
        else if (grey || c == 3) put(3);
        else put(2 - c);
      }
    }
  if (!img.alpha)
    for (size_t i = 0; i < size_t(img.width) * img.height; ++i) {
      if (img.bytes == 2) img.pixels[(i * 4 + 3) * 2] = img.pixels[(i * 4 + 3) * 2 + 1] = 0xFF;
      else img.pixels[i * 4 + 3] = 0xFF;
    }
  iclose(in);
  return true;
}

bool writeSgi(const std::string& path, const Image& src, const WriteOptions& opt, std::string& error) {
  Image img = withBytes(src, opt.bits == 16 ? 2 : opt.bits == 8 ? 1 : src.bytes);
  std::string ext = lowerExtension(path);
  int z = ext == "bw" ? 1 : ext == "rgb" ? 3 : ext == "rgba" ? 4 : img.channels;
  unsigned type = (opt.compress == 0 ? 0x000u : 0x100u) | unsigned(img.bytes);
  IMAGE* out = iopen(path.c_str(), "w", type, 3, unsigned(img.width), unsigned(img.height), unsigned(z));
  if (!out) {
    error = path + ": cannot create the SGI image";
    return false;
  }
  std::vector<unsigned short> row(size_t(img.width));
  const size_t w = size_t(img.width);
  std::vector<uint8_t> planes(img.bytes == 1 ? w * 4 : 0);  // 8-bit rows split into blue, green, red, alpha
  void* p[4] = {planes.data(), planes.data() + w, planes.data() + 2 * w, planes.data() + 3 * w};
  bool ok = true;
  for (int c = 0; c < z && ok; ++c)
    for (int y = 0; y < img.height && ok; ++y) {
      // Grey from green; RGB from R, G, B; alpha from A.
      int e = z <= 2 ? (c == 0 ? 1 : 3) : c == 3 ? 3 : 2 - c;
      if (img.bytes == 1) {
        IMF_line_split(&img.pixels[size_t(y) * w * 4], 4, 1, img.width, p);
        for (size_t x = 0; x < w; ++x) row[x] = static_cast<const uint8_t*>(p[e])[x];
        ok = putrow(out, row.data(), unsigned(y), unsigned(c)) >= 0;
        continue;
      }
      for (int x = 0; x < img.width; ++x) {
        size_t at = (size_t(y) * img.width + x) * 4 + size_t(e);
        if (img.bytes == 2) memcpy(&row[size_t(x)], &img.pixels[at * 2], 2);
        else row[size_t(x)] = img.pixels[at];
      }
      ok = putrow(out, row.data(), unsigned(y), unsigned(c)) >= 0;
    }
  if (iclose(out) != 0 || !ok) {
    error = path + ": error writing the SGI image";
    return false;
  }
  return true;
}

bool isSgiExtension(const std::string& ext) {
  return ext == "sgi" || ext == "rgb" || ext == "rgba" || ext == "bw" || ext == "int" || ext == "inta";
}

}  // namespace

std::string ilError(const std::string& path, ILimage* handle) {
  const int code = flerrno;
  return path + ": " + FLstrerror(code) + stoppedAt(handle) + " (error " + std::to_string(code) + ")";
}

std::string stoppedAt(FLfile* handle) {
  const int code = flerrno;
  const bool damage = code == FL_EOVERRUN || code == IL_EDAMAGED || code == IL_ERECT || code == IL_ENOHEADER ||
                      code == IL_EHEADER;
  const int64_t at = handle && damage ? FLtell(handle) : -1;
  return at >= 0 ? ", reading stopped at offset " + std::to_string(at) : std::string();
}

bool isNativeFile(const std::string& path) {
  std::string ext = lowerExtension(path);
  return ext == "iff" || ext == "gz" || isFileIff(path.c_str());
}

bool isAviFile(const std::string& path) {
  char h[12] = {};
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return false;
  size_t n = fread(h, 1, sizeof h, f);
  fclose(f);
  return n == sizeof h && !memcmp(h, "RIFF", 4) && !memcmp(h + 8, "AVI ", 4);
}

bool readImage(const std::string& path, Image& img, std::string& error) {
  // Native images and anything Qt does not know go through ILopen (and its converter programs).
  if (isNativeFile(path)) return readNative(path, img, error);
  if (isFileSgi(path.c_str())) return readSgi(path, img, error);
  if (const char* key = pluginFor(path, false)) return readPlugin(path, key, img, error);
  QImageReader probe(QString::fromStdString(path));
  if (probe.canRead()) return readQt(path, img, error);
  return readNative(path, img, error);
}

bool writeImage(const std::string& path, const Image& img, const WriteOptions& opt,
                std::string& error) {
  std::string ext = lowerExtension(path);
  if (ext == "iff" || ext.empty()) return writeNative(path, img, opt, error);
  if (isSgiExtension(ext)) return writeSgi(path, img, opt, error);
  if (const char* key = pluginFor(path, true, ext)) return writePlugin(path, key, img, opt, error);
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
