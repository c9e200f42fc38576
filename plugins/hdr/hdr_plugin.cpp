// Radiance RGBE pictures (.hdr): read through the library's own Radiance reader as float RGB;
// written from float RGB (grey spread to the three colours, matte dropped: the format has none)
// as "32-bit_rle_rgbe", top row first, each line run-length coded per component as the format's
// readers expect, or flat when the width is outside what that coding can hold.
#include <vora/hdr_readers.h>

#include <cmath>
#include <cstdio>
#include <memory>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

// A colour as its shared exponent: the largest component's, with 8 bits of mantissa each.
void toRgbe(const float* rgb, uint8_t out[4]) {
  const float v = std::max({rgb[0], rgb[1], rgb[2]});
  if (!(v >= 1e-32f) || !std::isfinite(v)) {  // black, negative, NaN and infinity: black
    out[0] = out[1] = out[2] = out[3] = 0;
    return;
  }
  int e;
  float scale = std::frexp(v, &e) * 256.0f / v;
  if (e > 127) e = 127, scale = 255.0f / v;  // beyond the exponent's range: the brightest it holds
  for (int c = 0; c < 3; ++c) out[c] = uint8_t(std::clamp(rgb[c] * scale, 0.0f, 255.0f));
  out[3] = uint8_t(e + 128);
}

// One component of a line, run-length coded: runs of four or more as (128 + count, value), the
// rest as (count, values...), each at most 127 and 128 long.
void packComponent(const uint8_t* line, int w, int c, std::vector<uint8_t>& out) {
  auto at = [&](int x) { return line[size_t(x) * 4 + c]; };
  for (int x = 0; x < w;) {
    int run = 1;
    while (x + run < w && run < 127 && at(x + run) == at(x)) ++run;
    if (run >= 4) {
      out.push_back(uint8_t(128 + run)), out.push_back(at(x));
      x += run;
      continue;
    }
    int start = x, count = 0;
    for (; x < w && count < 128; ++x, ++count) {  // up to the next run of four
      if (x + 3 < w && at(x) == at(x + 1) && at(x) == at(x + 2) && at(x) == at(x + 3)) break;
    }
    out.push_back(uint8_t(count));
    for (int k = 0; k < count; ++k) out.push_back(at(start + k));
  }
}

struct HdrCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 31;
  static constexpr int maxMatte = 0, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) { return n >= 2 && h[0] == '#' && h[1] == '?'; }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::unique_ptr<ThdrImageFile> reader(newRadianceReader());
    ThdrImageFileInfo info;
    TgenericPixelMap<float> map;
    if (reader->open(path, info) != 0) return why = "not a Radiance picture this reader takes", false;
    if (reader->read(map, 0) != 0) return why = "damaged Radiance data", false;
    frames.resize(1);
    Picture& p = frames[0];
    if (!p.create(int(map.width()), int(map.height()), 3, 0, 32, IMF_TYPE_FLOAT, -1, 0, why)) return false;
    for (int y = 0; y < p.height(); ++y)  // the map's rows stand bottom first
      memcpy(p.row(y), map.data() + size_t(p.height() - 1 - y) * map.width() * 3, p.rowBytes());
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings*, std::string& why) {
    const Picture& p = frames[0];
    if (p.image.colorChannels == 0 || p.image.colorBits != 32 || p.image.colorType != IMF_TYPE_FLOAT)
      return why = "Radiance pictures are written from float grey or RGB", false;
    const int w = p.width(), h = p.height(), n = p.channels(), colour = p.image.colorChannels;
    std::string head = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y " + std::to_string(h) + " +X " + std::to_string(w) + "\n";
    std::vector<uint8_t> out(head.begin(), head.end()), line(size_t(w) * 4);
    const bool coded = w >= 8 && w < 32768;
    for (int y = 0; y < h; ++y) {
      const auto* in = reinterpret_cast<const float*>(p.row(y));
      for (int x = 0; x < w; ++x, in += n) {
        const float rgb[3] = {in[0], in[colour == 3 ? 1 : 0], in[colour == 3 ? 2 : 0]};
        toRgbe(rgb, &line[size_t(x) * 4]);
      }
      if (!coded) {
        out.insert(out.end(), line.begin(), line.end());
        continue;
      }
      out.insert(out.end(), {2, 2, uint8_t(w >> 8), uint8_t(w & 0xFF)});
      for (int c = 0; c < 4; ++c) packComponent(line.data(), w, c, out);
    }
    return vplug::writeWhole(path, out.data(), out.size(), why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(HdrCodec, "hdr", "hdr rgbe", "Radiance", "Radiance RGBE pictures (our own coder)")
