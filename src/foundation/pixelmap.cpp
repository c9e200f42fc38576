// Foundation: TpixelMap's storage, borrowing, byte-order switch and flip (its zoom is the image
// library's, in src/ilib/il_pixelmap_zoom.cpp), and Timage.
#include <vora/foundation/fl.h>
#include <vora/foundation/pixelmap.h>

#include <algorithm>
#include <cstring>

TpixelMap::TpixelMap(const TpixelMap& o) { *this = o; }

TpixelMap& TpixelMap::operator=(const TpixelMap& o) {
  if (this == &o) return *this;
  width_ = o.width_, height_ = o.height_, depth_ = o.depth_, borrowed_ = nullptr;
  requested_ = o.requested_, wantDepth_ = o.wantDepth_;
  owned_.assign(o.pixels(), o.pixels() + size_t(o.width_) * o.height_);  // a copy owns its pixels
  return *this;
}

TpixelMap::~TpixelMap() = default;

bool TpixelMap::create(unsigned width, unsigned height) {
  if (width > 32768 || height > 32768 || !FLallocok(uint64_t(width) * height * sizeof(Tpixel32))) return false;
  owned_.assign(size_t(width) * height, Tpixel32());
  borrowed_ = nullptr, width_ = width, height_ = height;
  depth_ = TdepthBuffer();
  return true;
}

void TpixelMap::setPixelPtr(Tpixel32* pixels, const TportRect& rect) {
  owned_.clear(), owned_.shrink_to_fit();
  borrowed_ = pixels, width_ = rect.width(), height_ = rect.height();
  depth_ = TdepthBuffer();
}

TdepthBuffer& TpixelMap::makeDepth() {
  if (depth_.values.size() != size_t(width_) * height_) {
    depth_.width = width_, depth_.height = height_;
    depth_.values.assign(size_t(width_) * height_, 0.0f);
  }
  return depth_;
}

void TpixelMap::rgbaSwitch() {
  Tpixel32* p = pixels();
  for (size_t i = 0, n = size_t(width_) * height_; i < n; ++i) std::swap(p[i].b, p[i].r);
}

void TpixelMap::flipVertical() {
  for (unsigned y = 0; y < height_ / 2; ++y) std::swap_ranges(row(y), row(y) + width_, row(height_ - 1 - y));
  if (!depth_.values.empty())
    for (unsigned y = 0; y < height_ / 2; ++y)
      std::swap_ranges(depth_.values.begin() + long(y) * width_, depth_.values.begin() + long(y + 1) * width_,
                       depth_.values.begin() + long(height_ - 1 - y) * width_);
}

bool Timage::create(unsigned width, unsigned height, unsigned bytesPerChannel, bool withDepth) {
  if (width > 32768 || height > 32768 || (bytesPerChannel != 1 && bytesPerChannel != 2)) return false;
  const uint64_t bytes = uint64_t(width) * height * (4 * bytesPerChannel + (withDepth ? sizeof(float) : 0));
  if (!FLallocok(bytes)) return false;
  width_ = width, height_ = height, bytes_ = bytesPerChannel;
  pixels_.assign(size_t(width) * height * 4 * bytesPerChannel, 0);
  depth_.assign(withDepth ? size_t(width) * height : 0, 0.0f);
  return true;
}

bool Timage::toPixelMap(TpixelMap& out) const {
  if (!out.create(width_, height_)) return false;
  Tpixel32* o = out.pixels();
  for (size_t i = 0, n = size_t(width_) * height_; i < n; ++i) {
    uint8_t c[4];
    for (int k = 0; k < 4; ++k) {
      if (bytes_ == 1) {
        c[k] = pixels_[i * 4 + k];
      } else {
        uint16_t v;
        memcpy(&v, &pixels_[(i * 4 + k) * 2], 2);
        c[k] = uint8_t(v >> 8);
      }
    }
    o[i] = {c[0], c[1], c[2], c[3]};
  }
  if (!depth_.empty()) out.makeDepth().values = depth_;
  return true;
}
