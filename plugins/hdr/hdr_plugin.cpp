// Radiance RGBE pictures (.hdr): read line by line through the library's own Radiance decoder as
// float RGB; written line by line from float RGB (grey spread to the three colours, matte dropped:
// the format has none) as "32-bit_rle_rgbe", top row first, each line run-length coded per
// component as the format's readers expect, or flat where the width is outside what that coding
// can hold.
#include <vora/hdr_readers.h>

#include <bit>
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
  // v = m * 2^e with m in [0.5, 1), from the bits of a normal float (v is at least 1e-32);
  // the mantissas are the colours times 256 / 2^e.
  int e = int(std::bit_cast<uint32_t>(v) >> 23 & 0xFF) - 126;
  float scale = std::bit_cast<float>(uint32_t(127 + 8 - e) << 23);
  if (e > 127) e = 127, scale = 255.0f / v;  // beyond the exponent's range: the brightest it holds
  for (int c = 0; c < 3; ++c) out[c] = uint8_t(std::clamp(rgb[c] * scale, 0.0f, 255.0f));
  out[3] = uint8_t(e + 128);
}

// One component of a line (its w values), run-length coded into out: runs of four or more as
// (128 + count, value), the rest as (count, values...), each at most 127 and 128 long. Returns
// the bytes written, at most w + w / 128 + 1.
size_t packComponent(const uint8_t* v, int w, uint8_t* out) {
  uint8_t* o = out;
  for (int x = 0; x < w;) {
    // The next run of four or more from x, stepping over shorter ones: each value compared once.
    int at = x, run = 0;
    while (at < w) {
      run = 1;
      while (at + run < w && run < 127 && v[at + run] == v[at]) ++run;
      if (run >= 4) break;
      at += run, run = 0;
    }
    while (x < at) {  // the values before it, as literals of at most 128
      const int count = std::min(at - x, 128);
      *o++ = uint8_t(count);
      memcpy(o, v + x, size_t(count));
      o += count, x += count;
    }
    if (run >= 4) *o++ = uint8_t(128 + run), *o++ = v[at], x = at + run;
  }
  return size_t(o - out);
}

struct HdrCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 31;
  static constexpr int maxMatte = 0, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN;  // as the file stores them: streamed

  static bool probe(const unsigned char* h, size_t n) { return n >= 2 && h[0] == '#' && h[1] == '?'; }

  // Read line by line as the lines are asked for, top first: a file stored bottom line first is
  // decoded whole at the start instead.
  struct Source {
    TradianceLines lines;
    std::vector<float> whole;  // a bottom-first file's lines, top first
    unsigned next = 0;
  };

  static void* openStream(const char* path, IMF_image& image, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return nullptr;
    auto s = std::make_unique<Source>();
    if (!s->lines.open(std::move(file))) return why = "not a Radiance picture this reader takes, or damaged", nullptr;
    const unsigned w = s->lines.width(), h = s->lines.height();
    Picture shape;
    if (!shape.create(1, 1, 3, 0, 32, IMF_TYPE_FLOAT, -1, 0, why)) return nullptr;
    image = shape.image, image.xMax = int(w) - 1, image.yMax = int(h) - 1;
    if (!s->lines.topFirst()) {
      if (!FLallocok(uint64_t(w) * h * 12)) return why = "too large to be read", nullptr;
      s->whole.resize(size_t(w) * h * 3);
      for (unsigned i = 0; i < h; ++i)
        if (!s->lines.next(&s->whole[size_t(h - 1 - i) * w * 3])) return why = "damaged Radiance data", nullptr;
    }
    return s.release();
  }

  static bool readStreamLine(void* stream, uint8_t* line, std::string& why) {
    Source& s = *static_cast<Source*>(stream);
    auto* out = reinterpret_cast<float*>(line);
    if (s.whole.empty()) return s.lines.next(out) || (why = "damaged Radiance data", false);
    const size_t n = size_t(s.lines.width()) * 3;
    memcpy(out, &s.whole[size_t(s.next++) * n], n * 4);
    return true;
  }

  static void closeStream(void* stream) { delete static_cast<Source*>(stream); }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    return vplug::readByLines<HdrCodec>(path, frames, why);
  }

  // Written line by line as the lines come: no picture is held whole.
  struct Stream {
    FILE* file;
    std::string path;
    int width, channels, colour;
    std::vector<uint8_t> rgbe, out;  // a line's components one after another; its coded bytes
  };

  static void* beginStream(const char* path, const IMF_image& image, const IMF_settings*, std::string& why) {
    if (image.colorChannels == 0 || image.colorBits != 32 || image.colorType != IMF_TYPE_FLOAT)
      return why = "Radiance pictures are written from float grey or RGB", nullptr;
    const int w = image.xMax - image.xMin + 1, h = image.yMax - image.yMin + 1;
    FILE* f = fopen(path, "wb");
    if (!f) return why = std::string("cannot be created: ") + strerror(errno), nullptr;
    const std::string head = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y " + std::to_string(h) + " +X " + std::to_string(w) + "\n";
    if (fwrite(head.data(), 1, head.size(), f) != head.size()) return fclose(f), remove(path), why = "cannot be written", nullptr;
    return new Stream{f, path, w, image.colorChannels + image.matteChannels, image.colorChannels, std::vector<uint8_t>(size_t(w) * 4),
                      std::vector<uint8_t>(4 + 4 * (size_t(w) + size_t(w) / 128 + 1))};
  }

  // One line of interleaved floats: run-length coded RGBE, or flat where the width is outside
  // what that coding holds.
  static bool streamLine(void* stream, const uint8_t* line, std::string& why) {
    Stream& s = *static_cast<Stream*>(stream);
    const size_t w = size_t(s.width);
    const auto* in = reinterpret_cast<const float*>(line);
    uint8_t e[4];
    for (size_t x = 0; x < w; ++x, in += s.channels) {  // the components apart, as they are coded
      const float rgb[3] = {in[0], in[s.colour == 3 ? 1 : 0], in[s.colour == 3 ? 2 : 0]};
      toRgbe(rgb, e);
      for (size_t c = 0; c < 4; ++c) s.rgbe[c * w + x] = e[c];
    }
    size_t n = 0;
    if (w < 8 || w >= 32768) {
      for (size_t x = 0; x < w; ++x)
        for (size_t c = 0; c < 4; ++c) s.out[n++] = s.rgbe[c * w + x];
    } else {
      s.out[0] = s.out[1] = 2, s.out[2] = uint8_t(w >> 8), s.out[3] = uint8_t(w & 0xFF), n = 4;
      for (size_t c = 0; c < 4; ++c) n += packComponent(&s.rgbe[c * w], int(w), &s.out[n]);
    }
    return fwrite(s.out.data(), 1, n, s.file) == n || (why = "cannot be written", false);
  }

  static bool endStream(void* stream, bool keep, std::string& why) {
    auto* s = static_cast<Stream*>(stream);
    const bool closed = fclose(s->file) == 0;
    if (!keep || !closed) remove(s->path.c_str());
    delete s;
    return closed || (why = "cannot be finished", false);
  }

  // A picture held whole (lines given bottom first): streamed top line first all the same.
  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* settings, std::string& why) {
    return vplug::writeByLines<HdrCodec>(path, frames, settings, why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(HdrCodec, "hdr", "hdr rgbe", "Radiance", "Radiance RGBE pictures (our own coder)")
