// HDR readers: OpenEXR files (scan lines or tiles, half or float, RGB[A] or Y[A]) through the
// OpenEXR library. Headers are walked before the library opens a file (exrHeaderRefusal);
// whatever it throws on a damaged file is a refusal.
#include <half.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfTileDescriptionAttribute.h>

#include <vora/foundation/fl.h>
#include <vora/hdr_readers.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace {

class ExrReader : public ThdrImageFile {
 public:
  int open(const Tstring& path, ThdrImageFileInfo& info) override {
    if (!exrHeaderRefusal(path.asChar()).empty()) return fail();
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
