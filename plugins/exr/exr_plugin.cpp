// OpenEXR through its library: R, G, B (or Y), A and Z channels of half, float or uint samples
// read as floats, the data window kept; written from floats or from 8 and 16-bit integers (as
// 0..1) as half ("type=float" for floats) with Z as float depth, "compression" none, rle, zips,
// zip (default), piz or pxr24.
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <half.h>

#include <vora/hdr_readers.h>

#include <algorithm>

#include "common/bytes_in.h"
#include "common/whole_image.h"

namespace {

using vplug::Picture;

struct ExrCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7 | 1u << 15 | 1u << 31;
  static constexpr int maxMatte = 1, maxDepth = 1;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) { return n >= 4 && h[0] == 0x76 && h[1] == 0x2f && h[2] == 0x31 && h[3] == 0x01; }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    const int64_t fileBytes = vplug::fileSize(path);
    why = exrHeaderRefusal(path);
    if (!why.empty()) return false;
    Imf::InputFile in(path);
    const Imath::Box2i dw = in.header().dataWindow();
    const Imf::ChannelList& ch = in.header().channels();
    const bool rgb = ch.findChannel("R") || ch.findChannel("G") || ch.findChannel("B");
    const bool matte = ch.findChannel("A"), depth = ch.findChannel("Z");
    const int64_t w = int64_t(dw.max.x) - dw.min.x + 1, h = int64_t(dw.max.y) - dw.min.y + 1;
    frames.resize(1);
    Picture& p = frames[0];
    // Half samples become floats (2x) of data zip expands 1032 times at most.
    if (w > (1 << 20) || h > (1 << 20) ||
        !p.create(int(w), int(h), rgb ? 3 : 1, matte, 32, IMF_TYPE_FLOAT, fileBytes, 1032 * 2, why))
      return why.empty() ? (why = "a data window of " + std::to_string(w) + " x " + std::to_string(h), false) : false;
    p.image.xMin = dw.min.x, p.image.xMax = dw.max.x, p.image.yMin = dw.min.y, p.image.yMax = dw.max.y;
    p.image.pixelAspect = in.header().pixelAspectRatio();
    if (depth) p.image.depthChannels = 1, p.depth.assign(size_t(w) * h * 4, 0);
    const int n = p.channels();
    // The frame buffer addresses pixel (x, y) of the data window; base is offset by its origin.
    char* base = reinterpret_cast<char*>(p.samples.data()) - (int64_t(dw.min.y) * w + dw.min.x) * n * 4;
    Imf::FrameBuffer fb;
    const char* names[] = {rgb ? "R" : "Y", "G", "B"};
    for (int c = 0; c < (rgb ? 3 : 1); ++c)
      fb.insert(names[c], Imf::Slice(Imf::FLOAT, base + c * 4, size_t(n) * 4, size_t(w) * n * 4, 1, 1, 0.0));
    if (matte) fb.insert("A", Imf::Slice(Imf::FLOAT, base + (n - 1) * 4, size_t(n) * 4, size_t(w) * n * 4, 1, 1, 1.0));
    if (depth) {
      char* z = reinterpret_cast<char*>(p.depth.data()) - (int64_t(dw.min.y) * w + dw.min.x) * 4;
      fb.insert("Z", Imf::Slice(Imf::FLOAT, z, 4, size_t(w) * 4, 1, 1, 0.0));
    }
    in.setFrameBuffer(fb);
    in.readPixels(dw.min.y, dw.max.y);
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* s, std::string& why) {
    const Picture& p = frames[0];
    if ((p.image.colorBits == 32 && p.image.colorType != IMF_TYPE_FLOAT) || (p.image.depthChannels && p.image.depthType != IMF_TYPE_FLOAT))
      return why = "OpenEXR is written from floats or 8 and 16-bit integers, depth from floats", false;
    const std::string method = vplug::setting(s, "compression", "zip");
    const Imf::Compression compression = method == "none" ? Imf::NO_COMPRESSION : method == "rle" ? Imf::RLE_COMPRESSION
                                         : method == "zips" ? Imf::ZIPS_COMPRESSION : method == "piz" ? Imf::PIZ_COMPRESSION
                                         : method == "pxr24" ? Imf::PXR24_COMPRESSION : Imf::ZIP_COMPRESSION;
    const Imf::PixelType type = vplug::setting(s, "type") == "float" ? Imf::FLOAT : Imf::HALF;
    const int w = p.width(), h = p.height(), n = p.channels();
    Imf::Header header(Imath::Box2i({0, 0}, {w - 1, h - 1}), Imath::Box2i({p.image.xMin, p.image.yMin}, {p.image.xMax, p.image.yMax}),
                       p.image.pixelAspect > 0 ? p.image.pixelAspect : 1.0f, Imath::V2f(0, 0), 1, Imf::INCREASING_Y, compression);
    header.displayWindow() = header.dataWindow() = Imath::Box2i({p.image.xMin, p.image.yMin}, {p.image.xMax, p.image.yMax});
    const char* names[] = {p.image.colorChannels == 3 ? "R" : "Y", "G", "B"};
    for (int c = 0; c < p.image.colorChannels; ++c) header.channels().insert(names[c], Imf::Channel(type));
    if (p.image.matteChannels) header.channels().insert("A", Imf::Channel(type));
    if (p.image.depthChannels) header.channels().insert("Z", Imf::Channel(Imf::FLOAT));
    // Slices of the channels' own type (the library does not convert on writing); integers go
    // through a table of their values.
    const size_t count = size_t(w) * h * n;
    std::vector<half> halves;
    std::vector<float> floats;
    const char* data = reinterpret_cast<const char*>(p.samples.data());
    if (p.image.colorBits != 32) {
      const int levels = p.image.colorBits == 8 ? 256 : 65536;
      const uint16_t* wide = reinterpret_cast<const uint16_t*>(p.samples.data());
      auto at = [&](size_t i) { return p.image.colorBits == 8 ? p.samples[i] : wide[i]; };
      if (type == Imf::HALF) {
        std::vector<half> table(static_cast<size_t>(levels));
        for (int v = 0; v < levels; ++v) table[size_t(v)] = half(float(v) / float(levels - 1));
        halves.resize(count);
        for (size_t i = 0; i < count; ++i) halves[i] = table[at(i)];
        data = reinterpret_cast<const char*>(halves.data());
      } else {
        std::vector<float> table(static_cast<size_t>(levels));
        for (int v = 0; v < levels; ++v) table[size_t(v)] = float(v) / float(levels - 1);
        floats.resize(count);
        for (size_t i = 0; i < count; ++i) floats[i] = table[at(i)];
        data = reinterpret_cast<const char*>(floats.data());
      }
    } else if (type == Imf::HALF) {
      const float* f = reinterpret_cast<const float*>(data);
      halves.assign(f, f + count);
      data = reinterpret_cast<const char*>(halves.data());
    }
    const size_t size = type == Imf::HALF ? 2 : 4;
    const char* base = data - (int64_t(p.image.yMin) * w + p.image.xMin) * n * int64_t(size);
    Imf::FrameBuffer fb;
    for (int c = 0; c < n; ++c)
      fb.insert(c < p.image.colorChannels ? names[c] : "A",
                Imf::Slice(type, const_cast<char*>(base) + c * size, size_t(n) * size, size_t(w) * n * size));
    if (p.image.depthChannels)
      fb.insert("Z", Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(const_cast<uint8_t*>(p.depth.data())) -
                                                (int64_t(p.image.yMin) * w + p.image.xMin) * 4,
                                4, size_t(w) * 4));
    Imf::OutputFile out(path, header);
    out.setFrameBuffer(fb);
    out.writePixels(h);
    return true;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(ExrCodec, "exr", "exr", "OpenEXR", "OpenEXR high dynamic range (OpenEXR library)")
