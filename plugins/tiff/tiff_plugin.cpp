// TIFF through libtiff: grey and RGB with or without alpha at 8, 16 and 32 bits (integers or
// floats), in strips or tiles, interleaved or planar, every page a frame; other kinds (palette,
// CMYK, YCbCr, bilevel) through libtiff's own RGBA conversion at 8 bits. Written at 8 or 16 bits
// or as floats, in strips or in tiles ("tile=WxH"), with "compression" none, lzw, zip or packbits.
#include <tiffio.h>

#include <algorithm>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

thread_local std::string lastMessage;
void onError(const char*, const char* format, va_list args) {
  char b[256];
  vsnprintf(b, sizeof b, format, args);
  lastMessage = b;
}

struct Closer {
  TIFF* t;
  ~Closer() {
    if (t) TIFFClose(t);
  }
};

// One directory (page) into p; false with why.
bool readPage(TIFF* t, Picture& p, int64_t fileBytes, std::string& why) {
  uint32_t w = 0, h = 0;
  uint16_t spp = 1, bits = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG, photometric = PHOTOMETRIC_MINISBLACK;
  TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w), TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp), TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format), TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(t, TIFFTAG_PHOTOMETRIC, &photometric);
  const bool plain = (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_RGB) && spp >= 1 && spp <= 4 &&
                     (((bits == 8 || bits == 16) && format == SAMPLEFORMAT_UINT) ||
                      (bits == 32 && (format == SAMPLEFORMAT_UINT || format == SAMPLEFORMAT_IEEEFP)));
  // 1032: the largest expansion of deflate, more than LZW's and PackBits'.
  if (!plain) {  // libtiff's conversion to 8-bit RGBA
    if (!p.create(int(w), int(h), 3, 1, 8, IMF_TYPE_INT, fileBytes, 1032, why)) return false;
    std::vector<uint32_t> rgba(size_t(w) * h);
    if (!TIFFReadRGBAImageOriented(t, w, h, rgba.data(), ORIENTATION_TOPLEFT, 0))
      return why = lastMessage.empty() ? "cannot be decoded" : lastMessage, false;
    for (size_t i = 0; i < rgba.size(); ++i) {
      uint8_t* d = p.samples.data() + i * 4;
      d[0] = uint8_t(TIFFGetR(rgba[i])), d[1] = uint8_t(TIFFGetG(rgba[i])), d[2] = uint8_t(TIFFGetB(rgba[i])), d[3] = uint8_t(TIFFGetA(rgba[i]));
    }
    return true;
  }
  const int colour = photometric == PHOTOMETRIC_RGB && spp >= 3 ? 3 : 1, matte = spp > colour ? 1 : 0;
  const int type = format == SAMPLEFORMAT_IEEEFP ? IMF_TYPE_FLOAT : IMF_TYPE_INT;
  if (!p.create(int(w), int(h), colour, matte, bits, type, fileBytes, 1032, why)) return false;
  const size_t b = bits / 8, stored = spp;  // samples per pixel in the file (extra ones dropped)
  const bool tiled = TIFFIsTiled(t);
  uint32_t tw = w, th = 0;
  if (tiled) TIFFGetField(t, TIFFTAG_TILEWIDTH, &tw), TIFFGetField(t, TIFFTAG_TILELENGTH, &th);
  else TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &th);
  th = std::min(std::max(th, 1u), h);
  if (tw == 0 || tw > (1u << 20)) return why = "a tile width of " + std::to_string(tw), false;
  const int planes = planar == PLANARCONFIG_SEPARATE ? int(spp) : 1;
  const size_t perPixel = planar == PLANARCONFIG_SEPARATE ? 1 : stored;
  const tmsize_t blockBytes = tiled ? TIFFTileSize(t) : TIFFStripSize(t);
  if (blockBytes <= 0 || uint64_t(blockBytes) < uint64_t(tw) * th * perPixel * b) return why = "blocks smaller than their pixels", false;
  if (!FLallocok(uint64_t(blockBytes))) return why = "blocks of " + std::to_string(blockBytes) + " bytes", false;
  std::vector<uint8_t> block(static_cast<size_t>(blockBytes));
  const int keep = p.channels();
  for (int plane = 0; plane < planes; ++plane)
    for (uint32_t y0 = 0; y0 < h; y0 += th)
      for (uint32_t x0 = 0; x0 < w; x0 += tw) {
        const tmsize_t got = tiled ? TIFFReadTile(t, block.data(), x0, y0, 0, uint16_t(plane))
                                   : TIFFReadEncodedStrip(t, TIFFComputeStrip(t, y0, uint16_t(plane)), block.data(), blockBytes);
        if (got < 0) return why = lastMessage.empty() ? "damaged data" : lastMessage, false;
        for (uint32_t y = y0; y < std::min(h, y0 + th); ++y)
          for (uint32_t x = x0; x < std::min(w, x0 + tw); ++x)
            for (size_t c = 0; c < perPixel; ++c) {
              const size_t channel = planar == PLANARCONFIG_SEPARATE ? size_t(plane) : c;
              if (channel >= size_t(keep)) continue;
              memcpy(p.row(int(y)) + (size_t(x) * keep + channel) * b,
                     block.data() + ((size_t(y - y0) * tw + (x - x0)) * perPixel + c) * b, b);
            }
      }
  return true;
}

struct TiffCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE | IMF_MULTIFRAME;
  static constexpr uint32_t bitsMask = 1u << 7 | 1u << 15 | 1u << 31;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) {
    return n >= 4 && ((h[0] == 'I' && h[1] == 'I' && (h[2] == 42 || h[2] == 43) && h[3] == 0) ||
                      (h[0] == 'M' && h[1] == 'M' && h[2] == 0 && (h[3] == 42 || h[3] == 43)));
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    TIFFSetErrorHandler(onError), TIFFSetWarningHandler(nullptr);
    lastMessage.clear();
    Closer c{TIFFOpen(path, "rm")};  // "m": no memory mapping, a file cut short is read, not faulted
    if (!c.t) return why = lastMessage.empty() ? "not a TIFF file" : lastMessage, false;
    const int64_t fileBytes = vplug::fileSize(path);
    do {
      frames.emplace_back();
      if (!readPage(c.t, frames.back(), fileBytes, why)) return false;
    } while (frames.size() < 10000 && TIFFReadDirectory(c.t));
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* s, std::string& why) {
    TIFFSetErrorHandler(onError), TIFFSetWarningHandler(nullptr);
    lastMessage.clear();
    const std::string method = vplug::setting(s, "compression", "zip"), tile = vplug::setting(s, "tile");
    const uint16_t compression = method == "none" ? COMPRESSION_NONE : method == "lzw" ? COMPRESSION_LZW
                                 : method == "packbits" ? COMPRESSION_PACKBITS : COMPRESSION_ADOBE_DEFLATE;
    unsigned tw = 0, th = 0;
    if (!tile.empty() && (sscanf(tile.c_str(), "%ux%u", &tw, &th) != 2 || tw % 16 || th % 16 || !tw || !th))
      return why = "tile sizes are multiples of 16", false;
    Closer c{TIFFOpen(path, "w")};
    if (!c.t) return why = lastMessage.empty() ? "cannot be created" : lastMessage, false;
    for (const Picture& p : frames) {
      TIFF* t = c.t;
      const int n = p.channels(), bits = p.image.colorBits;
      TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(p.width())), TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(p.height()));
      TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(n)), TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(bits));
      TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, p.image.colorType == IMF_TYPE_FLOAT ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
      TIFFSetField(t, TIFFTAG_PHOTOMETRIC, p.image.colorChannels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
      TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG), TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
      TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
      if (p.image.matteChannels) {
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
      }
      if (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE)
        TIFFSetField(t, TIFFTAG_PREDICTOR, p.image.colorType == IMF_TYPE_FLOAT ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
      if (frames.size() > 1) TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE), TIFFSetField(t, TIFFTAG_PAGENUMBER, uint16_t(&p - frames.data()), uint16_t(frames.size()));
      bool ok = true;
      if (tw) {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, tw), TIFFSetField(t, TIFFTAG_TILELENGTH, th);
        std::vector<uint8_t> block(size_t(TIFFTileSize(t)));
        const size_t b = size_t(bits / 8) * n;
        for (unsigned y0 = 0; ok && y0 < unsigned(p.height()); y0 += th)
          for (unsigned x0 = 0; ok && x0 < unsigned(p.width()); x0 += tw) {
            std::fill(block.begin(), block.end(), 0);
            for (unsigned y = y0; y < std::min(unsigned(p.height()), y0 + th); ++y)
              memcpy(&block[size_t(y - y0) * tw * b], p.row(int(y)) + size_t(x0) * b, size_t(std::min(tw, unsigned(p.width()) - x0)) * b);
            ok = TIFFWriteTile(t, block.data(), x0, y0, 0, 0) >= 0;
          }
      } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
        std::vector<uint8_t> row(p.rowBytes());
        for (int y = 0; ok && y < p.height(); ++y) {
          memcpy(row.data(), p.row(y), row.size());  // libtiff may code the buffer in place
          ok = TIFFWriteScanline(t, row.data(), uint32_t(y), 0) >= 0;
        }
      }
      if (!ok || !TIFFWriteDirectory(t)) return why = lastMessage.empty() ? "cannot be written" : lastMessage, false;
    }
    return true;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(TiffCodec, "tiff", "tif", "TIFF", "Tagged Image File Format (libtiff)")
