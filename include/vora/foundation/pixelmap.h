// Foundation: in-memory pictures. TpixelMap holds 32-bit pixels (bytes blue, green, red, alpha),
// rows bottom first as the image library delivers them, owned or borrowed, with an optional depth
// buffer; TgenericPixelMap<T> holds interleaved samples of any count (HDR pictures as floats).
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <vora/export.h>

struct Tpixel32 {
  uint8_t b = 0, g = 0, r = 0, a = 0;  // memory order: blue, green, red, alpha
  bool operator==(const Tpixel32&) const = default;
};

// A rectangle of pixels: x0, y0 inclusive, x1, y1 exclusive (so (0, 0, w, h) is a whole w x h map).
struct TportRect {
  uint16_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  unsigned width() const { return x1 > x0 ? unsigned(x1 - x0) : 0u; }
  unsigned height() const { return y1 > y0 ? unsigned(y1 - y0) : 0u; }
  bool operator==(const TportRect&) const = default;
};

// One float a pixel, rows as in the map it belongs to.
struct TdepthBuffer {
  unsigned width = 0, height = 0;
  std::vector<float> values;
};

class VORA_API TpixelMap {
 public:
  TpixelMap() = default;
  TpixelMap(const TpixelMap& o);
  TpixelMap& operator=(const TpixelMap& o);
  ~TpixelMap();

  // Owned pixels of the given size, zero; false (the map unchanged) for sizes over 32768 or
  // memory the allocation limit refuses.
  bool create(unsigned width, unsigned height);
  // Borrowed pixels: the map shows `pixels` (rect's size, rows rect.width() apart) without
  // copying or freeing them. A later create() owns pixels again.
  void setPixelPtr(Tpixel32* pixels, const TportRect& rect);
  bool borrowed() const { return borrowed_ != nullptr; }

  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  TportRect rect() const { return {0, 0, uint16_t(width_), uint16_t(height_)}; }
  Tpixel32* pixels() { return borrowed_ ? borrowed_ : owned_.data(); }
  const Tpixel32* pixels() const { return borrowed_ ? borrowed_ : owned_.data(); }
  Tpixel32* row(unsigned y) { return pixels() + size_t(y) * width_; }
  Tpixel32 pixel(unsigned x, unsigned y) const { return pixels()[size_t(y) * width_ + x]; }
  void setPixel(unsigned x, unsigned y, Tpixel32 p) { pixels()[size_t(y) * width_ + x] = p; }

  // The depth buffer, made at the map's size on first asking; null when none was made.
  TdepthBuffer* depth() { return depth_.values.empty() ? nullptr : &depth_; }
  TdepthBuffer& makeDepth();

  // The map resampled to the rectangle's size (the library's zoom, its "auto" filter), owned.
  // False (the map unchanged) for an empty rectangle or map.
  bool zoom(const TportRect& rect);
  // What a reader is asked for: the size to deliver (an empty rectangle: the file's own) and
  // whether to fill the depth buffer.
  void requestSize(const TportRect& rect) { requested_ = rect; }
  const TportRect& requestedRect() const { return requested_; }
  void setWantDepthMap(bool on) { wantDepth_ = on; }
  bool wantDepthMap() const { return wantDepth_; }
  // Blue and red exchanged in every pixel: to and from red, green, blue, alpha order.
  void rgbaSwitch();
  void flipVertical();

 private:
  unsigned width_ = 0, height_ = 0;
  std::vector<Tpixel32> owned_;
  Tpixel32* borrowed_ = nullptr;
  TdepthBuffer depth_;
  TportRect requested_;
  bool wantDepth_ = false;
};

template <class T>
class TgenericPixelMap {
 public:
  // Samples of the given size and channel count, zero; false (unchanged) for a zero or too large
  // size (width and height are 16-bit).
  bool create(unsigned width, unsigned height, unsigned channels) {
    if (width == 0 || height == 0 || channels == 0 || width > 65535 || height > 65535 || channels > 64) return false;
    samples_.assign(size_t(width) * height * channels, T());
    width_ = uint16_t(width), height_ = uint16_t(height), channels_ = channels;
    return true;
  }
  void clear() { samples_.clear(), samples_.shrink_to_fit(), width_ = height_ = 0, channels_ = 0; }
  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  unsigned channels() const { return channels_; }
  T* data() { return samples_.data(); }
  const T* data() const { return samples_.data(); }
  size_t size() const { return samples_.size(); }
  T* pixel(unsigned x, unsigned y) { return samples_.data() + (size_t(y) * width_ + x) * channels_; }
  const T* pixel(unsigned x, unsigned y) const { return samples_.data() + (size_t(y) * width_ + x) * channels_; }
  void swap(TgenericPixelMap& o) {
    samples_.swap(o.samples_);
    std::swap(width_, o.width_), std::swap(height_, o.height_), std::swap(channels_, o.channels_);
  }

 private:
  uint16_t width_ = 0, height_ = 0;
  uint32_t channels_ = 0;
  std::vector<T> samples_;
};

// A picture at 8 or 16 bits a channel (blue, green, red, alpha; 16-bit channels in the machine's
// order), rows bottom first, with an optional depth buffer: what the image library's lines hold,
// kept at their full depth where a TpixelMap would keep 8 bits.
class VORA_API Timage {
 public:
  // False (unchanged) for sizes over 32768, channel sizes other than 1 and 2, or memory the
  // allocation limit refuses.
  bool create(unsigned width, unsigned height, unsigned bytesPerChannel, bool withDepth = false);
  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  unsigned bytesPerChannel() const { return bytes_; }
  size_t rowBytes() const { return size_t(width_) * 4 * bytes_; }
  uint8_t* row(unsigned y) { return pixels_.data() + y * rowBytes(); }
  const uint8_t* row(unsigned y) const { return pixels_.data() + y * rowBytes(); }
  float* depthRow(unsigned y) { return depth_.empty() ? nullptr : depth_.data() + size_t(y) * width_; }
  // The 8-bit pixels (the high byte of 16-bit channels) and the depth, as a TpixelMap.
  bool toPixelMap(TpixelMap& out) const;

 private:
  unsigned width_ = 0, height_ = 0, bytes_ = 1;
  std::vector<uint8_t> pixels_;
  std::vector<float> depth_;
};
