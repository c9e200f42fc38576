// TpixelData16, the channels of one Photoshop image (the composite or a layer).
#include <algorithm>
#include <cstring>

#include <vora/photoshop.h>

#include "platform/platform.h"

namespace ktPhotoshop {

namespace {

// A raw buffer of width x height samples at the default value.
void fillDefault(Tchannel& c) {
  requireKnownFormat(c);
  c.raw.resize(size_t(c.sampleCount) * c.bytesPerSample());
  if (c.format == 0) {
    std::fill(c.raw.begin(), c.raw.end(), uint8_t(c.defaultValue));
  } else {
    auto* s = reinterpret_cast<uint16_t*>(c.raw.data());
    std::fill(s, s + c.sampleCount, c.defaultValue);
  }
  c.hasRaw = true;
}

void ensureRaw(Tchannel& c) {
  if (c.hasRaw) return;
  if (c.hasCompressed) codec::decode(c);
  if (!c.hasRaw) fillDefault(c);
}

// Copies the rectangle {left, top, right, bottom} (right and bottom exclusive) of s to d with its
// corner at point, clipped to both channels, row by row.
void copyClipped(Tchannel& d, Tchannel& s, const int32_t rect[4], const int32_t point[2]) {
  if (s.format != d.format) throw TpsdException("Channel format mismatch in copy");
  ensureRaw(s);
  ensureRaw(d);
  const int64_t bps = d.bytesPerSample();
  // Source span: inside the source, and landing inside the destination.
  int64_t x0 = std::max<int64_t>({rect[0], 0, int64_t(rect[0]) - point[0]});
  int64_t y0 = std::max<int64_t>({rect[1], 0, int64_t(rect[1]) - point[1]});
  int64_t x1 = std::min<int64_t>({rect[2], int64_t(s.width), int64_t(rect[0]) - point[0] + int64_t(d.width)});
  int64_t y1 = std::min<int64_t>({rect[3], int64_t(s.height), int64_t(rect[1]) - point[1] + int64_t(d.height)});
  if (x1 <= x0) return;
  for (int64_t sy = y0; sy < y1; ++sy) {
    int64_t dy = sy - rect[1] + point[1], dx = x0 - rect[0] + point[0];
    memcpy(d.raw.data() + (dy * int64_t(d.width) + dx) * bps, s.raw.data() + (sy * int64_t(s.width) + x0) * bps,
           size_t((x1 - x0) * bps));
  }
}

}  // namespace

TpixelData16::TpixelData16(TdataFormat format) : format_(format) {}

TpixelData16::TpixelData16(TdataFormat format, uint32_t width, uint32_t height, bool allocStandardChannels)
    : format_(format) {
  if (allocStandardChannels) allocChannels(width, height, true);
}

void TpixelData16::allocChannels(uint32_t width, uint32_t height, bool withTransparency) {
  for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE}) addChannel(id, width, height, 0);
  if (withTransparency) addChannel(TRANSPARENCY, width, height, uint16_t(getMaxColor()));
}

Tchannel& TpixelData16::addChannel(PHOTOSHOP_CHANNEL id, uint32_t width, uint32_t height, uint16_t defaultValue) {
  Tchannel c;
  c.width = width;
  c.height = height;
  c.sampleCount = width * height;
  c.format = uint32_t(format_);
  c.defaultValue = defaultValue;
  return channels_[id] = std::move(c);
}

Tchannel* TpixelData16::channel(PHOTOSHOP_CHANNEL id) {
  auto it = channels_.find(id);
  return it == channels_.end() ? nullptr : &it->second;
}

const Tchannel* TpixelData16::channel(PHOTOSHOP_CHANNEL id) const {
  auto it = channels_.find(id);
  return it == channels_.end() ? nullptr : &it->second;
}

uint32_t TpixelData16::width(PHOTOSHOP_CHANNEL id) const { return channel(id) ? channel(id)->width : 0; }
uint32_t TpixelData16::height(PHOTOSHOP_CHANNEL id) const { return channel(id) ? channel(id)->height : 0; }
uint32_t TpixelData16::size(PHOTOSHOP_CHANNEL id) const { return channel(id) ? channel(id)->sampleCount : 0; }

void TpixelData16::setCompressionMethod(PHOTOSHOP_CHANNEL id, TCompressionMethod m) {
  if (Tchannel* c = channel(id)) c->method = m;
}
TCompressionMethod TpixelData16::compressionMethod(PHOTOSHOP_CHANNEL id) const {
  return channel(id) ? channel(id)->method : RAW;
}

void TpixelData16::setChannelCompressedPixels(PHOTOSHOP_CHANNEL id, TsampleBuffer bytes) {
  Tchannel* c = channel(id);
  if (!c) return;
  c->compressedLength = uint32_t(bytes.size());
  c->compressed = std::move(bytes);
  c->hasCompressed = true;
  c->raw.clear();
  c->hasRaw = false;
}
const TsampleBuffer* TpixelData16::channelCompressedPixels(PHOTOSHOP_CHANNEL id) const {
  const Tchannel* c = channel(id);
  return c && c->hasCompressed ? &c->compressed : nullptr;
}

void TpixelData16::setChannelDataLength(PHOTOSHOP_CHANNEL id, uint32_t n) {
  if (Tchannel* c = channel(id)) c->dataLength = n;
}
uint32_t TpixelData16::channelDataLength(PHOTOSHOP_CHANNEL id) const {
  return channel(id) ? channel(id)->dataLength : 0;
}

void TpixelData16::setCompositeLengthInfo(PHOTOSHOP_CHANNEL id, std::vector<uint16_t> table) {
  Tchannel* c = channel(id);
  if (!c) return;
  c->rowLengths = std::move(table);
  c->hasRowTable = true;
}
const std::vector<uint16_t>* TpixelData16::compositeLenInfo(PHOTOSHOP_CHANNEL id) const {
  const Tchannel* c = channel(id);
  return c && c->hasRowTable ? &c->rowLengths : nullptr;
}

void TpixelData16::setChannelRawPixels(PHOTOSHOP_CHANNEL id, std::vector<uint8_t> samples) {
  Tchannel* c = channel(id);
  if (!c) return;
  samples.resize(size_t(c->sampleCount) * c->bytesPerSample(), 0);
  c->raw.assign(samples.begin(), samples.end());
  c->hasRaw = true;
}

uint8_t* TpixelData16::getChannelPixPtr(PHOTOSHOP_CHANNEL id) {
  Tchannel* c = channel(id);
  if (!c) return nullptr;
  ensureRaw(*c);
  return c->raw.data();
}

bool TpixelData16::decodeChannel(PHOTOSHOP_CHANNEL id) {
  Tchannel* c = channel(id);
  if (!c || !c->hasCompressed) return false;
  return codec::decode(*c);
}

void TpixelData16::setChannelValue(PHOTOSHOP_CHANNEL id, uint32_t index, uint16_t value) {
  Tchannel* c = channel(id);
  if (!c || index >= c->sampleCount) return;
  ensureRaw(*c);
  if (c->format == 0) c->raw[index] = uint8_t(value);
  else reinterpret_cast<uint16_t*>(c->raw.data())[index] = value;
}

void TpixelData16::initialize(uint16_t value, uint16_t transparency) {
  for (auto& [id, c] : channels_) {
    c.defaultValue = id == TRANSPARENCY ? transparency : value;
    if (id < 0 && id != TRANSPARENCY) continue;  // masks keep theirs
    fillDefault(c);
  }
}

void TpixelData16::initializeTransparency(uint16_t value) {
  if (Tchannel* c = channel(TRANSPARENCY)) {
    c->defaultValue = value;
    fillDefault(*c);
  }
}

bool TpixelData16::compressChannel(PHOTOSHOP_CHANNEL id, bool separateTable) {
  Tchannel* c = channel(id);
  if (!c) return false;
  if (c->hasCompressed) return true;  // encoded once; compressed bytes are left as they are
  ensureRaw(*c);
  return codec::encode(*c, separateTable);
}

void TpixelData16::copyChannel(PHOTOSHOP_CHANNEL id, const TpixelData16& source) {
  const Tchannel* s = source.channel(id);
  Tchannel* d = channel(id);
  if (!s || !d) return;
  if (s->format != d->format) throw TpsdException("Channel format mismatch in copy");
  Tchannel& src = const_cast<Tchannel&>(*s);
  ensureRaw(src);
  ensureRaw(*d);
  memcpy(d->raw.data(), src.raw.data(), std::min(d->raw.size(), src.raw.size()));
}

void TpixelData16::copyChannel(PHOTOSHOP_CHANNEL id, int32_t x, int32_t y, const TpixelData16& source) {
  const Tchannel* s = source.channel(id);
  Tchannel* d = channel(id);
  if (!s || !d) return;
  const int32_t rect[4] = {0, 0, int32_t(s->width), int32_t(s->height)};
  const int32_t point[2] = {x, y};
  copyClipped(*d, const_cast<Tchannel&>(*s), rect, point);
}

void TpixelData16::copyRect(const int32_t rect[4], const int32_t point[2], const TpixelData16& source) {
  for (const auto& [id, sc] : source.channels_)
    if (Tchannel* d = channel(id)) copyClipped(*d, const_cast<Tchannel&>(sc), rect, point);
}

void TpixelData16::applyOpacity(uint8_t opacity) {
  if (opacity == 255) return;
  const float scale = float(opacity) / 255.0f;
  for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY}) {
    Tchannel* c = channel(id);
    if (!c) continue;
    ensureRaw(*c);
    if (c->format == 0) {
      for (uint8_t& v : c->raw) v = uint8_t(float(v) * scale);
    } else {
      auto* s = reinterpret_cast<uint16_t*>(c->raw.data());
      for (size_t i = 0; i < c->sampleCount; ++i) s[i] = uint16_t(float(s[i]) * scale);
    }
  }
}

void TpixelData16::memAND(uint8_t* destination, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) destination[i] &= source[i];
}

std::vector<PHOTOSHOP_CHANNEL> TpixelData16::channelListArray() const {
  std::vector<PHOTOSHOP_CHANNEL> ids;
  for (const auto& [id, c] : channels_) ids.push_back(id);
  return ids;
}

}  // namespace ktPhotoshop

namespace ktPhotoshop {

void* psdAllocateSamples(size_t bytes) {
  void* p = vora::platform::allocateLarge(bytes);
  if (!p) throw std::bad_alloc();
  return p;
}

void psdReleaseSamples(void* p, size_t bytes) { vora::platform::releaseLarge(p, bytes); }

}  // namespace ktPhotoshop
