// Truevision TGA, our own: colour-mapped, true-colour and grey pictures, raw or run-length, 8,
// 15/16, 24 and 32 bits, either origin; written as 8-bit grey, RGB or RGBA, run-length
// ("compression=none" for raw), top line first, with the version 2 footer.
#include <cstdio>

#include "common/bytes_in.h"
#include "common/whole_image.h"

namespace {

using vplug::BytesIn;
using vplug::Picture;

struct TgaCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  // TGA has no signature: a header whose every field is one the format allows.
  static bool probe(const unsigned char* h, size_t n) {
    if (n < 18) return false;
    const int mapType = h[1], type = h[2], bits = h[16], mapBits = h[7];
    const int w = h[12] | h[13] << 8, ht = h[14] | h[15] << 8;
    const bool mapped = type == 1 || type == 9;
    if (mapType > 1 || (mapped && mapType != 1) || w == 0 || ht == 0 || (h[17] & 0xC0)) return false;
    if (mapped) return bits == 8 && (mapBits == 15 || mapBits == 16 || mapBits == 24 || mapBits == 32);
    if (type == 3 || type == 11) return bits == 8 || bits == 16;
    return (type == 2 || type == 10) && (bits == 15 || bits == 16 || bits == 24 || bits == 32);
  }

  // A stored pixel of `bits` to red, green, blue, alpha.
  static void colour(const uint8_t* s, int bits, bool grey, uint8_t out[4]) {
    if (grey) out[0] = out[1] = out[2] = s[0], out[3] = bits == 16 ? s[1] : 255;
    else if (bits >= 24) out[0] = s[2], out[1] = s[1], out[2] = s[0], out[3] = bits == 32 ? s[3] : 255;
    else {
      const unsigned v = s[0] | s[1] << 8;
      out[0] = uint8_t((v >> 10 & 31) * 255 / 31), out[1] = uint8_t((v >> 5 & 31) * 255 / 31), out[2] = uint8_t((v & 31) * 255 / 31);
      out[3] = 255;  // the attribute bit is rarely alpha in files in the wild: kept opaque
    }
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    BytesIn in{file.data(), file.size()};
    if (!probe(file.data(), file.size())) return why = "not a TGA picture", false;
    const int type = int(in.u8(2)), bits = int(in.u8(16)), descriptor = int(in.u8(17));
    const int w = int(in.u16(12)), h = int(in.u16(14)), mapFirst = int(in.u16(3)), mapCount = int(in.u16(5)), mapBits = int(in.u8(7));
    const bool mapped = type == 1 || type == 9, grey = type == 3 || type == 11, rle = type >= 9;
    const int pixelBytes = (bits + 7) / 8, mapBytes = (mapBits + 7) / 8;
    size_t at = 18 + in.u8(0);
    std::vector<uint8_t> map;
    if (in.u8(1) == 1) {
      if (!in.has(at, size_t(mapCount) * mapBytes)) return why = "the colour map ends past the file", false;
      map.assign(file.begin() + long(at), file.begin() + long(at + size_t(mapCount) * mapBytes));
      at += map.size();
    }
    const bool alpha = grey ? bits == 16 : mapped ? mapBits == 32 : bits == 32 && (descriptor & 15) != 0;
    frames.resize(1);
    Picture& p = frames[0];
    // Run-length packets of 1 byte repeat a pixel at most 128 times.
    if (!p.create(w, h, grey ? 1 : 3, alpha, 8, IMF_TYPE_INT, int64_t(file.size()), 128 * 4, why)) return false;
    const bool topDown = descriptor & 0x20, rightToLeft = descriptor & 0x10;
    const int n = p.channels();
    int run = 0, literal = 0;
    const uint8_t* repeat = nullptr;
    for (int i = 0; i < w * h; ++i) {
      const uint8_t* s;
      if (rle) {
        if (run == 0 && literal == 0) {
          const uint32_t head = in.u8(at++);
          (head & 0x80 ? run : literal) = int(head & 0x7F) + 1;
          if (head & 0x80) {
            if (!in.has(at, size_t(pixelBytes))) return why = "the pixels end past the file", false;
            repeat = &file[at], at += size_t(pixelBytes);
          }
        }
        if (run) s = repeat, --run;
        else {
          if (!in.has(at, size_t(pixelBytes))) return why = "the pixels end past the file", false;
          s = &file[at], at += size_t(pixelBytes), --literal;
        }
      } else {
        if (!in.has(at, size_t(pixelBytes))) return why = "the pixels end past the file", false;
        s = &file[at], at += size_t(pixelBytes);
      }
      uint8_t rgba[4];
      if (mapped) {
        const int index = (s[0] | (pixelBytes > 1 ? s[1] << 8 : 0)) - mapFirst;
        if (index < 0 || index >= mapCount) return why = "a colour index outside the map", false;
        colour(&map[size_t(index) * mapBytes], mapBits, false, rgba);
      } else {
        colour(s, bits, grey, rgba);
      }
      const int x = rightToLeft ? w - 1 - i % w : i % w, y = topDown ? i / w : h - 1 - i / w;
      uint8_t* d = p.row(y) + size_t(x) * n;
      if (grey) d[0] = rgba[0];
      else d[0] = rgba[0], d[1] = rgba[1], d[2] = rgba[2];
      if (alpha) d[n - 1] = rgba[3];
    }
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* s, std::string& why) {
    const Picture& p = frames[0];
    if (p.image.colorBits != 8 || p.image.colorChannels == 0) return why = "TGA holds 8-bit grey or RGB pictures", false;
    const bool rle = vplug::setting(s, "compression", "rle") != "none", grey = p.image.colorChannels == 1;
    const int n = p.channels(), bits = 8 * n;
    std::vector<uint8_t> out = {0, 0, uint8_t((grey ? 3 : 2) + (rle ? 8 : 0)), 0, 0, 0, 0, 0, 0, 0, 0, 0};
    vplug::put16(out, uint32_t(p.width())), vplug::put16(out, uint32_t(p.height()));
    out.push_back(uint8_t(bits)), out.push_back(uint8_t(0x20 | (p.image.matteChannels ? 8 : 0)));
    const int pixelBytes = n;
    auto stored = [&](int y, int x, uint8_t* d) {  // blue, green, red, alpha order of the format
      const uint8_t* s0 = p.row(y) + size_t(x) * n;
      if (grey) d[0] = s0[0];
      else d[0] = s0[2], d[1] = s0[1], d[2] = s0[0];
      if (p.image.matteChannels) d[n - 1] = s0[n - 1];
    };
    for (int y = 0; y < p.height(); ++y) {
      std::vector<uint8_t> row(size_t(p.width()) * pixelBytes);
      for (int x = 0; x < p.width(); ++x) stored(y, x, &row[size_t(x) * pixelBytes]);
      if (!rle) {
        out.insert(out.end(), row.begin(), row.end());
        continue;
      }
      // Packets never cross a line, as readers of the format expect.
      for (int x = 0; x < p.width();) {
        auto same = [&](int a, int b) { return memcmp(&row[size_t(a) * pixelBytes], &row[size_t(b) * pixelBytes], size_t(pixelBytes)) == 0; };
        int k = 1;
        while (x + k < p.width() && k < 128 && same(x, x + k)) ++k;
        if (k > 1) {
          out.push_back(uint8_t(0x80 | (k - 1)));
          out.insert(out.end(), &row[size_t(x) * pixelBytes], &row[size_t(x + 1) * pixelBytes]);
        } else {
          while (x + k < p.width() && k < 128 && !(x + k + 1 < p.width() && same(x + k, x + k + 1))) ++k;
          out.push_back(uint8_t(k - 1));
          out.insert(out.end(), &row[size_t(x) * pixelBytes], &row[size_t(x + k) * pixelBytes]);
        }
        x += k;
      }
    }
    out.insert(out.end(), 8, 0);  // no extension area, no developer directory
    const char footer[] = "TRUEVISION-XFILE.";
    out.insert(out.end(), footer, footer + sizeof footer);
    return vplug::writeWhole(path, out.data(), out.size(), why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(TgaCodec, "tga", "tga", "TGA", "Truevision TGA (our own)")
