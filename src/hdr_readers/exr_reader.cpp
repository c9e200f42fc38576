// HDR readers: OpenEXR files (scan lines or tiles, half or float, RGB[A] or Y[A]) through the
// OpenEXR library. Sizes are checked before anything is allocated; whatever the library throws
// on a damaged file is a refusal.
#include <half.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfTileDescriptionAttribute.h>

#include <vora/foundation/fl.h>
#include <vora/hdr_readers.h>

#include "foundation/byteorder.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

namespace {

// Before OpenEXR sees a file: its header's data window, channels, tiling and compression say how
// large the picture is and how many chunks it has. Sides stay within 65535, the file must hold the
// offset table (8 bytes a chunk), and the samples must be what its bytes can decode to (deflate's
// 1032 to 1 at most). A small file declaring a huge picture would otherwise make the library
// allocate line buffers and tables of gigabytes before reading a pixel.
bool headerFits(const char* path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return false;
  const uint64_t fileSize = uint64_t(in.tellg());
  std::vector<char> h(size_t(std::min<uint64_t>(fileSize, 1 << 16)));
  in.seekg(0);
  if (h.size() < 8 || !in.read(h.data(), std::streamsize(h.size()))) return false;
  auto i32 = [&](size_t at) { return int32_t(vora::le32(reinterpret_cast<const uint8_t*>(&h[at]))); };
  if (i32(4) & 0x1000) return true;  // multi-part files: OpenEXR's own limits alone
  int64_t x0 = 0, y0 = 0, x1 = -1, y1 = -1, tw = 0, th = 0, pixelBytes = 0;
  int linesPerChunk = 1;
  for (size_t at = 8; at < h.size();) {
    const size_t name = at;
    while (at < h.size() && h[at]) ++at;
    if (at >= h.size()) return false;
    if (at == name) break;  // the header's end
    const std::string attr(&h[name], at - name);
    for (++at; at < h.size() && h[at];) ++at;  // the type name
    if (at + 5 > h.size()) return false;
    const int32_t size = i32(++at);
    at += 4;
    if (size < 0 || at + size_t(size) > h.size()) return false;
    if (attr == "dataWindow" && size >= 16) x0 = i32(at), y0 = i32(at + 4), x1 = i32(at + 8), y1 = i32(at + 12);
    if (attr == "channels")  // name, then type, linear flag and reserved, x and y sampling
      for (size_t c = at; c < at + size_t(size) && h[c];) {
        while (c < at + size_t(size) && h[c]) ++c;
        if (c + 17 > at + size_t(size)) return false;
        pixelBytes += i32(c + 1) == 1 ? 2 : 4;  // half, or uint and float
        c += 17;
      }
    if (attr == "tiles" && size >= 8) tw = uint32_t(i32(at)), th = uint32_t(i32(at + 4));
    if (attr == "compression" && size >= 1) {
      static const int lines[] = {1, 1, 1, 16, 32, 16, 32, 32, 32, 256};  // none, rle, zips, zip, piz, ...
      linesPerChunk = uint8_t(h[at]) < 10 ? lines[uint8_t(h[at])] : 1;
    }
    at += size_t(size);
  }
  const int64_t w = x1 - x0 + 1, ht = y1 - y0 + 1;
  if (w < 1 || ht < 1 || w > 65535 || ht > 65535 || pixelBytes < 1) return false;
  if (!FLdecodeok(uint64_t(w) * uint64_t(ht) * uint64_t(pixelBytes), int64_t(fileSize), 1032)) return false;
  const int64_t chunks = tw > 0 && th > 0 ? ((w + tw - 1) / tw) * ((ht + th - 1) / th) : (ht + linesPerChunk - 1) / linesPerChunk;
  return uint64_t(chunks) * 8 <= fileSize;
}

class ExrReader : public ThdrImageFile {
 public:
  int open(const Tstring& path, ThdrImageFileInfo& info) override {
    if (!headerFits(path.asChar())) return fail();
    try {
      // Threads as the process set them for OpenEXR (Imf::setGlobalThreadCount; none by default).
      file_ = std::make_unique<Imf::InputFile>(path.asChar());
      const Imf::Header& h = file_->header();
      const Imath::Box2i dw = h.dataWindow(), disp = h.displayWindow();
      const int64_t w = int64_t(dw.max.x) - dw.min.x + 1, ht = int64_t(dw.max.y) - dw.min.y + 1;
      const int64_t dW = int64_t(disp.max.x) - disp.min.x + 1, dH = int64_t(disp.max.y) - disp.min.y + 1;
      if (w < 1 || ht < 1 || w > 65535 || ht > 65535 || dW < 1 || dH < 1 || dW > 65535 || dH > 65535) return fail();
      const Imf::ChannelList& ch = h.channels();
      names_.clear();
      half_ = true;
      if (ch.findChannel("R") || ch.findChannel("G") || ch.findChannel("B")) names_ = {"R", "G", "B"};
      else if (ch.findChannel("Y")) names_ = {"Y", "Y", "Y"};
      else if (ch.begin() != ch.end()) names_ = {ch.begin().name()};
      else return fail();
      if (ch.findChannel("A")) names_.push_back("A");
      if (names_.size() == 3 && names_[0] == "Y") names_ = {"Y"};  // grey alone stays one channel
      for (const std::string& n : names_)
        if (const Imf::Channel* c = ch.findChannel(n.c_str())) half_ = half_ && c->type == Imf::HALF;
      info.values[0] = int32_t(dW), info.values[1] = int32_t(dH), info.values[2] = int32_t(names_.size());
      info.values[3] = dw.min.x - disp.min.x, info.values[4] = dw.min.y - disp.min.y;
      info.values[5] = int32_t(w), info.values[6] = int32_t(ht);
      info.flags[0] = h.hasTileDescription(), info.flags[1] = half_;
      info_ = info;
      return 0;
    } catch (...) {
      return fail();
    }
  }

  int read(TgenericPixelMap<float>& out, unsigned flags) override {
    if (!file_) return -1;
    const unsigned c = unsigned(names_.size());
    const bool display = flags & kHdrReadDisplayWindow;
    const unsigned W = unsigned(display ? info_.values[0] : info_.values[5]);
    const unsigned H = unsigned(display ? info_.values[1] : info_.values[6]);
    if (!FLallocok(uint64_t(W) * H * c * sizeof(float)) || !out.create(W, H, c)) return -1;
    try {
      const Imath::Box2i dw = file_->header().dataWindow();
      const Imath::Box2i disp = file_->header().displayWindow();
      // The slices address the picture by file coordinates; rows are turned bottom first after.
      const int ox = display ? disp.min.x : dw.min.x, oy = display ? disp.min.y : dw.min.y;
      const size_t xs = sizeof(float) * c, ys = xs * W;
      char* base = reinterpret_cast<char*>(out.data()) - ptrdiff_t(ox) * ptrdiff_t(xs) - ptrdiff_t(oy) * ptrdiff_t(ys);
      Imf::FrameBuffer fb;
      for (unsigned i = 0; i < c; ++i) {
        const double fill = names_[i] == "A" ? 1.0 : 0.0;  // a missing channel
        fb.insert(names_[i].c_str(), Imf::Slice(Imf::FLOAT, base + i * sizeof(float), xs, ys, 1, 1, fill));
      }
      if (display) {  // only the part of the data window inside the display window is read
        const int y0 = std::max(dw.min.y, disp.min.y), y1 = std::min(dw.max.y, disp.max.y);
        if (dw.min.x < disp.min.x || dw.max.x > disp.max.x) return -1;  // wider than the display: not placed
        file_->setFrameBuffer(fb);
        if (y0 <= y1) file_->readPixels(y0, y1);
      } else {
        file_->setFrameBuffer(fb);
        file_->readPixels(dw.min.y, dw.max.y);
      }
    } catch (...) {
      out.clear();
      return -1;
    }
    flipRows(out);
    return 0;
  }

  int reserved() override { return 0; }

  // Half samples straight to display pixels through tables indexed by the half's bits.
  int readExposed(TpixelMap& out, float exposure, float gamma) {
    if (!file_ || !half_) return 1;  // not this path
    const unsigned c = unsigned(names_.size()), W = unsigned(info_.values[5]), H = unsigned(info_.values[6]);
    // The tables: every half value through the exact curve, colour and alpha.
    TgenericPixelMap<float> all;
    TpixelMap levels;
    if (!all.create(256, 256, 4)) return -1;  // every half value once
    for (uint32_t b = 0; b < 65536; ++b) {
      Imath::half v;
      v.setBits(uint16_t(b));
      for (int k = 0; k < 4; ++k) all.data()[b * 4 + k] = float(v);
    }
    if (hdrExposeGamma(all, levels, exposure, gamma) != 0) return -1;
    std::vector<uint16_t> px;
    if (!FLallocok(uint64_t(W) * H * c * 2) || !out.create(W, H)) return -1;
    px.resize(size_t(W) * H * c);
    try {
      const Imath::Box2i dw = file_->header().dataWindow();
      const size_t xs = 2 * c, ys = xs * W;
      char* base = reinterpret_cast<char*>(px.data()) - ptrdiff_t(dw.min.x) * ptrdiff_t(xs) - ptrdiff_t(dw.min.y) * ptrdiff_t(ys);
      Imf::FrameBuffer fb;
      for (unsigned i = 0; i < c; ++i) {
        const double fill = names_[i] == "A" ? 1.0 : 0.0;
        fb.insert(names_[i].c_str(), Imf::Slice(Imf::HALF, base + i * 2, xs, ys, 1, 1, fill));
      }
      file_->setFrameBuffer(fb);
      file_->readPixels(dw.min.y, dw.max.y);
    } catch (...) {
      return -1;
    }
    const Tpixel32* lv = levels.pixels();
    for (unsigned y = 0; y < H; ++y) {
      const uint16_t* s = px.data() + size_t(H - 1 - y) * W * c;  // rows bottom first
      Tpixel32* o = out.row(y);
      for (unsigned x = 0; x < W; ++x, s += c) {
        const uint16_t r = s[0], g = c >= 3 ? s[1] : s[0], b = c >= 3 ? s[2] : s[0];
        o[x] = {lv[b].b, lv[g].g, lv[r].r, c >= 4 ? lv[s[3]].a : uint8_t(255)};
      }
    }
    return 0;
  }

 private:
  int fail() {
    file_.reset();
    return -1;
  }
  static void flipRows(TgenericPixelMap<float>& m) {
    const size_t row = size_t(m.width()) * m.channels();
    for (unsigned y = 0; y < m.height() / 2; ++y)
      std::swap_ranges(m.data() + y * row, m.data() + (y + 1) * row, m.data() + (m.height() - 1 - y) * row);
  }

  std::unique_ptr<Imf::InputFile> file_;
  std::vector<std::string> names_;
  bool half_ = true;
};

}  // namespace

ThdrImageFile* newOpenExrReader() { return new ExrReader(); }

int readExposedGamma(ThdrImageFile* file, TpixelMap& out, float exposure, float gamma) {
  if (!file) return -1;
  if (auto* exr = dynamic_cast<ExrReader*>(file)) {
    int r = exr->readExposed(out, exposure, gamma);
    if (r <= 0) return r;
  }
  TgenericPixelMap<float> map;
  if (file->read(map, 0) != 0) return -1;
  return hdrExposeGamma(map, out, exposure, gamma);
}
