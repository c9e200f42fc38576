// Windows BMP, our own: 1, 4 and 8-bit palettes (raw, RLE4, RLE8), 16, 24 and 32 bits (raw or
// bit fields, alpha when a mask gives it), either row order; written as 24-bit RGB, 32-bit RGBA
// (version 4 header with masks) or an 8-bit grey palette.
#include <cstdio>

#include "common/bytes_in.h"
#include "common/whole_image.h"

namespace {

using vplug::BytesIn;
using vplug::Picture;

// A mask's field: shift and width, to scale a field to 8 bits.
struct Field {
  uint32_t mask = 0;
  int shift = 0, width = 0;
  explicit Field(uint32_t m = 0) : mask(m) {
    if (!m) return;
    while (!(m >> shift & 1)) ++shift;
    while (shift + width < 32 && (m >> (shift + width) & 1)) ++width;
  }
  // The field to 8 bits: its top 8 bits, or its bits repeated down (5 bits abcde: abcdeabc).
  uint8_t of(uint32_t v) const {
    if (!width) return 255;
    const uint32_t x = (v & mask) >> shift;
    if (width >= 8) return uint8_t(x >> (width - 8));
    uint32_t r = 0;
    for (int have = 0; have < 8; have += width) r |= (x << (8 - width)) >> have;
    return uint8_t(r);
  }
};

struct BmpCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) {
    if (n < 18 || h[0] != 'B' || h[1] != 'M') return false;
    const uint32_t header = h[14] | h[15] << 8 | h[16] << 16 | uint32_t(h[17]) << 24;
    return header == 12 || header == 40 || header == 52 || header == 56 || header == 64 || header == 108 || header == 124;
  }

  // Run-length palette indexes (RLE8, RLE4) into one index per pixel, bottom row first.
  static bool runLength(BytesIn& in, size_t at, int w, int h, bool four, std::vector<uint8_t>& idx, std::string& why) {
    idx.assign(size_t(w) * h, 0);
    int x = 0, y = 0;
    while (y < h) {
      const uint32_t count = in.u8(at), value = in.u8(at + 1);
      at += 2;
      if (in.failed) return why = "the run-length data ends past the file", false;
      if (count) {  // a run of count pixels
        for (uint32_t k = 0; k < count && x < w; ++k, ++x)
          idx[size_t(y) * w + x] = uint8_t(four ? (k & 1 ? value & 15 : value >> 4) : value);
      } else if (value == 0) {
        x = 0, ++y;
      } else if (value == 1) {
        break;
      } else if (value == 2) {
        x += int(in.u8(at)), y += int(in.u8(at + 1)), at += 2;
      } else {  // value literal pixels, padded to a word
        const size_t bytes = four ? (value + 1) / 2 : value;
        if (!in.has(at, bytes)) return why = "the run-length data ends past the file", false;
        for (uint32_t k = 0; k < value && x < w; ++k, ++x) {
          const uint8_t b = in.data[at + (four ? k / 2 : k)];
          idx[size_t(y) * w + x] = uint8_t(four ? (k & 1 ? b & 15 : b >> 4) : b);
        }
        at += (bytes + 1) & ~size_t(1);
      }
      if (x > w) x = w;
    }
    return true;
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    BytesIn in{file.data(), file.size()};
    if (!probe(file.data(), file.size())) return why = "not a BMP picture", false;
    const uint32_t pixelsAt = in.u32(10), header = in.u32(14);
    const bool core = header == 12;
    const int32_t w = core ? int32_t(in.u16(18)) : int32_t(in.u32(18));
    int32_t h = core ? int32_t(int16_t(in.u16(20))) : int32_t(in.u32(22));
    const uint32_t bits = core ? in.u16(24) : in.u16(28), compression = core ? 0 : in.u32(30);
    const bool topDown = h < 0;
    if (h == INT32_MIN) return why = "a height of -2^31", false;
    h = topDown ? -h : h;
    if (in.failed) return why = "the header ends past the file", false;
    if (w <= 0 || h <= 0 || w > (1 << 20) || h > (1 << 20)) return why = "a picture of " + std::to_string(w) + " x " + std::to_string(h), false;
    // Masks: after a version 3 header (BI_BITFIELDS) or inside later ones.
    uint32_t masks[4] = {0, 0, 0, 0};
    const bool fields = compression == 3 || compression == 6;
    if (fields) for (int i = 0; i < (header >= 56 || compression == 6 ? 4 : 3); ++i) masks[i] = in.u32(14 + 40 + size_t(i) * 4);
    else if (bits == 16) masks[0] = 0x7C00, masks[1] = 0x3E0, masks[2] = 0x1F;
    else if (bits == 32) masks[0] = 0xFF0000, masks[1] = 0xFF00, masks[2] = 0xFF;
    if (header >= 108 && fields) masks[3] = in.u32(14 + 52);
    // Plain 32-bit pixels have no alpha by the format, but writers put it in the fourth byte:
    // taken as alpha when any pixel has a nonzero one, as readers of such files do.
    if (bits == 32 && compression == 0 && in.has(pixelsAt, size_t(w) * 4 * size_t(h)))
      for (size_t i = 3; i < size_t(w) * 4 * size_t(h) && !masks[3]; i += 4)
        if (file[pixelsAt + i]) masks[3] = 0xFF000000u;
    const bool palette = bits <= 8, alpha = !palette && masks[3] != 0;
    if (!(bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32)) return why = std::to_string(bits) + "-bit pixels", false;
    if (!(compression == 0 || (compression == 1 && bits == 8) || (compression == 2 && bits == 4) || (fields && (bits == 16 || bits == 32))))
      return why = "compression " + std::to_string(compression) + " of " + std::to_string(bits) + "-bit pixels", false;
    std::vector<uint8_t> colours;  // red, green, blue per entry
    if (palette) {
      const uint32_t entries = core ? (1u << bits) : (in.u32(46) ? std::min(in.u32(46), 256u) : 1u << bits);
      const size_t at = 14 + header, size = core ? 3 : 4;
      for (uint32_t i = 0; i < entries; ++i)
        colours.insert(colours.end(), {uint8_t(in.u8(at + i * size + 2)), uint8_t(in.u8(at + i * size + 1)), uint8_t(in.u8(at + i * size))});
      if (in.failed) return why = "the palette ends past the file", false;
    }
    frames.resize(1);
    Picture& p = frames[0];
    // Run-length pixels repeat 255 times a 2-byte code; 1-bit pixels grow 32 times into RGBA.
    if (!p.create(w, h, 3, alpha, 8, IMF_TYPE_INT, int64_t(file.size()), compression == 1 || compression == 2 ? 256 * 4 : 32, why)) return false;
    std::vector<uint8_t> idx;
    if ((compression == 1 || compression == 2) && !runLength(in, pixelsAt, w, h, compression == 2, idx, why)) return false;
    const size_t stride = (size_t(w) * bits + 31) / 32 * 4;
    if (idx.empty() && !in.has(pixelsAt, stride * size_t(h - 1) + (size_t(w) * bits + 7) / 8)) return why = "the pixels end past the file", false;
    const Field f[4] = {Field(masks[0]), Field(masks[1]), Field(masks[2]), Field(masks[3])};
    const int n = p.channels();
    for (int row = 0; row < h; ++row) {
      const uint8_t* s = file.data() + pixelsAt + stride * size_t(row);
      uint8_t* d = p.row(topDown ? row : h - 1 - row);
      for (int x = 0; x < w; ++x, d += n) {
        uint32_t v = 0;
        if (!idx.empty()) v = idx[size_t(row) * w + x];
        else if (bits < 8) v = s[x * bits / 8] >> (8 - bits - x * bits % 8) & ((1u << bits) - 1);
        else if (bits == 8) v = s[x];
        else if (bits == 16) v = uint32_t(s[2 * x] | s[2 * x + 1] << 8);
        else if (bits == 24) v = uint32_t(s[3 * x] | s[3 * x + 1] << 8 | s[3 * x + 2] << 16);
        else v = uint32_t(s[4 * x] | s[4 * x + 1] << 8 | s[4 * x + 2] << 16 | uint32_t(s[4 * x + 3]) << 24);
        if (palette) {
          if (v * 3 + 2 >= colours.size()) v = 0;  // an index past the palette: its first colour
          if (colours.empty()) d[0] = d[1] = d[2] = 0;
          else memcpy(d, &colours[v * 3], 3);
        } else if (bits == 24) {
          d[0] = uint8_t(v >> 16), d[1] = uint8_t(v >> 8), d[2] = uint8_t(v);
        } else {
          d[0] = f[0].of(v), d[1] = f[1].of(v), d[2] = f[2].of(v);
          if (alpha) d[3] = f[3].of(v);
        }
      }
    }
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings*, std::string& why) {
    const Picture& p = frames[0];
    if (p.image.colorBits != 8 || p.image.colorChannels == 0) return why = "BMP holds 8-bit grey or RGB pictures", false;
    const bool grey = p.image.colorChannels == 1 && !p.image.matteChannels, alpha = p.image.matteChannels != 0;
    const int bits = grey ? 8 : alpha ? 32 : 24, n = p.channels();
    const uint32_t header = alpha ? 108 : 40, paletteBytes = grey ? 1024 : 0;
    const size_t stride = (size_t(p.width()) * bits + 31) / 32 * 4, pixels = stride * p.height();
    const uint32_t at = 14 + header + paletteBytes;
    if (pixels + at > 0xFFFFFFFFu) return why = "too large for a BMP file", false;
    std::vector<uint8_t> out = {'B', 'M'};
    vplug::put32(out, uint32_t(at + pixels)), vplug::put32(out, 0), vplug::put32(out, at);
    vplug::put32(out, header), vplug::put32(out, uint32_t(p.width())), vplug::put32(out, uint32_t(p.height()));
    vplug::put16(out, 1), vplug::put16(out, uint32_t(bits)), vplug::put32(out, alpha ? 3 : 0), vplug::put32(out, uint32_t(pixels));
    vplug::put32(out, 2835), vplug::put32(out, 2835), vplug::put32(out, grey ? 256 : 0), vplug::put32(out, 0);  // 72 dpi
    if (alpha) {
      for (uint32_t m : {0xFF0000u, 0xFF00u, 0xFFu, 0xFF000000u}) vplug::put32(out, m);
      vplug::put32(out, 0x73524742);  // "sRGB"
      out.insert(out.end(), 48, 0);   // end points and gamma, unused with sRGB
    }
    for (uint32_t i = 0; grey && i < 256; ++i) out.insert(out.end(), {uint8_t(i), uint8_t(i), uint8_t(i), 0});
    for (int y = p.height() - 1; y >= 0; --y) {  // bottom row first
      const uint8_t* s = p.row(y);
      const size_t start = out.size();
      for (int x = 0; x < p.width(); ++x, s += n) {
        if (grey) out.push_back(s[0]);
        else out.insert(out.end(), {s[n >= 3 ? 2 : 0], s[n >= 3 ? 1 : 0], s[0]});
        if (alpha) out.push_back(s[n - 1]);
      }
      out.resize(start + stride, 0);
    }
    return vplug::writeWhole(path, out.data(), out.size(), why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(BmpCodec, "bmp", "bmp", "BMP", "Windows and OS/2 bitmaps (our own)")
