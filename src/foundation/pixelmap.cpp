// Foundation: TpixelMap's storage, borrowing, byte-order switch and flip (its zoom is the image
// library's, in src/ilib/il_pixelmap_zoom.cpp).
#include <vora/foundation/fl.h>
#include <vora/foundation/pixelmap.h>

#include <algorithm>

TpixelMap::TpixelMap(const TpixelMap& o) { *this = o; }

TpixelMap& TpixelMap::operator=(const TpixelMap& o) {
  if (this == &o) return *this;
  width_ = o.width_, height_ = o.height_, depth_ = o.depth_, borrowed_ = nullptr;
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
