// Writing documents: version 1, RGB or grey, 8 or 16 bits; layers with their records, sets,
// transparency and user masks; alpha channels with names (resource 1006); the composite.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include <vora/foundation/fl.h>
#include <vora/ilib.h>
#include <vora/photoshop.h>

#include "foundation/byteorder.h"

namespace ktPhotoshop {

namespace {

using Bytes = std::vector<uint8_t>;

void u8(Bytes& b, uint32_t v) { b.push_back(uint8_t(v)); }
void u16(Bytes& b, uint32_t v) { u8(b, v >> 8), u8(b, v); }
void u32(Bytes& b, uint32_t v) { u16(b, v >> 16), u16(b, v & 0xFFFF); }
void key(Bytes& b, uint32_t k) { u32(b, k); }
void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

// A Pascal string (at most 255 bytes kept), unpadded.
void pascal(Bytes& b, const std::string& s) {
  const size_t n = std::min<size_t>(s.size(), 255);
  u8(b, uint32_t(n));
  b.insert(b.end(), s.begin(), s.begin() + long(n));
}

// The order channels stand in a record: transparency, the colours, then the masks.
std::vector<PHOTOSHOP_CHANNEL> recordOrder(const TpixelData16& px) {
  std::vector<PHOTOSHOP_CHANNEL> ids;
  for (PHOTOSHOP_CHANNEL id : {TRANSPARENCY, RED, GREEN, BLUE})
    if (px.channel(id)) ids.push_back(id);
  for (PHOTOSHOP_CHANNEL id : px.channelListArray())
    if (id >= 3 || id == USER_MASK) ids.push_back(id);  // a read document's -3 mask is not carried over
  return ids;
}

// The channel's stored bytes by its method: what a reader finds after the compression word.
Bytes stored(TpixelData16& px, PHOTOSHOP_CHANNEL id, TCompressionMethod method) {
  Tchannel& c = *px.channel(id);
  if (!c.hasCompressed || c.method != method) {
    px.getChannelPixPtr(id);  // the samples, decoded if they were only compressed
    c.hasCompressed = false;
    c.method = method;
    if (!px.compressChannel(id, false)) throw TpsdException("cannot encode a channel");
  }
  return Bytes(c.compressed.begin(), c.compressed.begin() + c.compressedLength);
}

Bytes layerSection(std::vector<std::unique_ptr<TpsdLayer>>& layers, TCompressionMethod method) {
  Bytes records, data;
  for (auto& lp : layers) {
    TpsdLayer& l = *lp;
    std::vector<PHOTOSHOP_CHANNEL> ids = recordOrder(l.pixels);
    std::vector<Bytes> channels;
    for (PHOTOSHOP_CHANNEL id : ids) {
      const Tchannel& c = *l.pixels.channel(id);
      channels.push_back(c.sampleCount ? stored(l.pixels, id, method) : Bytes());
    }
    u32(records, uint32_t(l.top)), u32(records, uint32_t(l.left)), u32(records, uint32_t(l.bottom)), u32(records, uint32_t(l.right));
    u16(records, uint32_t(ids.size()));
    for (size_t i = 0; i < ids.size(); ++i) {
      u16(records, uint16_t(int16_t(ids[i])));
      u32(records, uint32_t(2 + channels[i].size()));
    }
    key(records, fourCC("8BIM"));
    key(records, l.blendKey ? l.blendKey : fourCC("norm"));
    u8(records, l.opacity), u8(records, l.clipping), u8(records, l.flags), u8(records, 0);
    Bytes extra;
    if (l.pixels.channel(USER_MASK)) {
      u32(extra, 20);
      u32(extra, uint32_t(l.mask.top)), u32(extra, uint32_t(l.mask.left));
      u32(extra, uint32_t(l.mask.bottom)), u32(extra, uint32_t(l.mask.right));
      u8(extra, l.mask.defaultColor), u8(extra, l.mask.flags), u16(extra, 0);
    } else {
      u32(extra, 0);
    }
    u32(extra, 0);  // no blending ranges
    const size_t before = extra.size();
    const std::string name = l.name.str().substr(0, 127);  // longer names need the "luni" block
    u8(extra, uint32_t(name.size()));
    extra.insert(extra.end(), name.begin(), name.end());
    while ((extra.size() - before) % 4) u8(extra, 0);
    bool hasSection = false;
    for (const TpsdInfoBlock& b : l.additionalInfo) {
      hasSection |= b.key == fourCC("lsct");
      key(extra, b.signature ? b.signature : fourCC("8BIM")), key(extra, b.key), u32(extra, uint32_t(b.data.size()));
      append(extra, b.data);
    }
    if (l.sectionType && !hasSection) {
      key(extra, fourCC("8BIM")), key(extra, fourCC("lsct")), u32(extra, l.sectionType == 3 ? 4 : 12);
      u32(extra, l.sectionType);
      if (l.sectionType != 3) key(extra, fourCC("8BIM")), key(extra, l.sectionBlendKey ? l.sectionBlendKey : fourCC("pass"));
    }
    u32(records, uint32_t(extra.size()));
    append(records, extra);
    for (size_t i = 0; i < ids.size(); ++i) {
      u16(data, channels[i].empty() ? 0u : uint32_t(method));
      append(data, channels[i]);
    }
  }
  Bytes info;
  u16(info, uint32_t(layers.size()));
  append(info, records);
  append(info, data);
  if (info.size() % 2) u8(info, 0);
  Bytes section;
  u32(section, uint32_t(info.size()));
  append(section, info);
  u32(section, 0);  // no global layer mask
  return section;
}

}  // namespace

int TpsdFile::create(const TfilePath& path, unsigned short& width, unsigned short& height) {
  if (width == 0 || height == 0) {
    setError(FL_ESTATE, "a document needs a width and a height");
    return -1;
  }
  path_ = path;
  width_ = width, height_ = height;
  channels_ = colorMode_ == 1 ? 1 : 3;
  if (colorMode_ != 1) colorMode_ = 3;
  bitDepth_ = colorDepth() == k16Bits ? 16 : 8;
  layers_.clear();
  resources_.clear();
  alphaNames_.clear();
  alphaPixels_.clear();
  created_ = saveNeeded_ = true;
  editMode_ = false;  // a new document is written by closePsdFile
  return 0;
}

void TpsdFile::setColorMode(uint16_t mode) { colorMode_ = mode == 1 ? 1 : 3; }

TpsdLayer& TpsdFile::addLayer(const Tstring& name, int32_t left, int32_t top, TpixelData16 pixels) {
  auto layer = std::make_unique<TpsdLayer>(colorDepth());
  layer->name = name;
  layer->left = left, layer->top = top;
  layer->setPixels(std::move(pixels));
  layer->blendKey = fourCC("norm");
  layers_.push_back(std::move(layer));
  saveNeeded_ = true;
  return *layers_.back();
}

void TpsdFile::addLayerSet(const Tstring& name, size_t firstChild, bool open) {
  // Both records carry the four channels, empty, as Photoshop writes them.
  auto record = [&](const Tstring& n, uint32_t section) {
    auto l = std::make_unique<TpsdLayer>(colorDepth());
    l->name = n;
    l->sectionType = section;
    l->blendKey = fourCC(section == 3 ? "norm" : "pass");
    for (PHOTOSHOP_CHANNEL id : {TRANSPARENCY, RED, GREEN, BLUE}) l->pixels.addChannel(id, 0, 0);
    return l;
  };
  auto divider = record("</Layer group>", 3);
  auto set = record(name, open ? 1 : 2);
  layers_.insert(layers_.begin() + long(std::min(firstChild, layers_.size())), std::move(divider));
  layers_.push_back(std::move(set));
  saveNeeded_ = true;
}

void TpsdFile::addAlphaChannel(const Tstring& name, TpixelData16 pixels) {
  alphaNames_.push_back(name);
  alphaPixels_.push_back(std::move(pixels));
  saveNeeded_ = true;
}

bool TpsdFile::removeAlphaChannel(const Tstring& name) {
  const auto at = std::find(alphaNames_.begin(), alphaNames_.end(), name);
  if (at == alphaNames_.end() || !created_) return false;
  alphaPixels_.erase(alphaPixels_.begin() + (at - alphaNames_.begin()));
  alphaNames_.erase(at);
  saveNeeded_ = true;
  return true;
}

int TpsdFile::save(const TfilePath& path, TCompressionMethod layerCompression) {
  const TfilePath target = path.asChar()[0] ? path : path_;
  clearError();
  if (width_ < 1 || height_ < 1 || width_ > 30000 || height_ > 30000) {  // version 1 documents
    setError(IL_ESIZE, "a document is 1 to 30000 pixels on each side");
    return -1;
  }
  if (colorMode_ != 1 && colorMode_ != 3) {
    setError(FL_ENOTSUP, "only RGB and grey documents are written");
    return -1;
  }
  // a document read from a file: its layers come along, their channels as stored where the
  // compression is the same (its stored composite and alpha channels are not carried over)
  if (!created_ && readAllChannelData() != 0) return -1;
  try {
    const bool wide = colorDepth() == k16Bits, grey = colorMode_ == 1;
    const uint32_t colours = grey ? 1 : 3;
    Bytes out;
    key(out, fourCC("8BPS"));
    u16(out, 1);
    out.resize(out.size() + 6, 0);
    u16(out, colours + uint32_t(alphaPixels_.size())), u32(out, height_), u32(out, width_);
    u16(out, wide ? 16 : 8), u16(out, grey ? 1 : 3);
    u32(out, 0);  // no colour mode data
    Bytes resources;
    if (!alphaPixels_.empty()) {
      Bytes names;
      for (size_t k = 0; k < alphaPixels_.size(); ++k) pascal(names, k < alphaNames_.size() ? alphaNames_[k].str() : "");
      key(resources, fourCC("8BIM")), u16(resources, 1006), u16(resources, 0);  // empty name, padded
      u32(resources, uint32_t(names.size()));
      append(resources, names);
      if (names.size() % 2) u8(resources, 0);
    }
    u32(out, uint32_t(resources.size()));
    append(out, resources);
    Bytes section = layers_.empty() ? Bytes() : layerSection(layers_, layerCompression);
    u32(out, uint32_t(section.size()));
    append(out, section);

    // The composite: the layers over white (or the document left white when it has none), and
    // the alpha channels; run-length at 8 bits, raw at 16.
    std::unique_ptr<TpixelData16> flat;
    blendLayersInSet(compositeList(0, layers_.size()), width_, height_, colorDepth(), flat);
    const uint32_t M = wide ? 65535 : 255;
    const size_t samples = size_t(width_) * height_;
    TpixelData16 composite(colorDepth());
    const PHOTOSHOP_CHANNEL ids[3] = {RED, GREEN, BLUE};
    for (uint32_t c = 0; c < colours; ++c) {
      composite.addChannel(PHOTOSHOP_CHANNEL(c), width_, height_, uint16_t(M));
      if (!flat) continue;
      for (size_t i = 0; i < samples; ++i) {
        auto get = [&](PHOTOSHOP_CHANNEL id) -> uint32_t {
          const uint8_t* p = flat->getChannelPixPtr(id);
          return wide ? reinterpret_cast<const uint16_t*>(p)[i] : p[i];
        };
        const uint32_t a = get(TRANSPARENCY), v = get(ids[c]);
        composite.setChannelValue(PHOTOSHOP_CHANNEL(c), uint32_t(i), uint16_t((uint64_t(v) * a + uint64_t(M) * (M - a) + M / 2) / M));
      }
    }
    for (size_t k = 0; k < alphaPixels_.size(); ++k) {
      const PHOTOSHOP_CHANNEL id = PHOTOSHOP_CHANNEL(colours + k);
      composite.addChannel(id, width_, height_, 0);
      alphaPixels_[k].getChannelPixPtr(alphaPixels_[k].channelListArray().front());
      const Tchannel& src = *alphaPixels_[k].channel(alphaPixels_[k].channelListArray().front());
      if (src.width != width_ || src.height != height_) throw TpsdException("an alpha channel's size differs from the document's");
      memcpy(composite.getChannelPixPtr(id), src.raw.data(), samples * composite.bytesPerChannel());
    }
    const uint32_t all = colours + uint32_t(alphaPixels_.size());
    if (wide) {
      u16(out, RAW);
      for (uint32_t c = 0; c < all; ++c) append(out, stored(composite, PHOTOSHOP_CHANNEL(c), RAW));
    } else {
      u16(out, RLE);
      Bytes rows;
      for (uint32_t c = 0; c < all; ++c) {
        Tchannel& ch = *composite.channel(PHOTOSHOP_CHANNEL(c));
        ch.method = RLE;
        composite.compressChannel(PHOTOSHOP_CHANNEL(c), true);
        for (uint16_t n : ch.rowLengths) u16(out, n);
        rows.insert(rows.end(), ch.compressed.begin(), ch.compressed.begin() + ch.compressedLength);
      }
      append(out, rows);
    }
    FILE* f = fopen(target.asChar(), "wb");
    if (!f) {
      setError(FL_EOPEN, Tstring("cannot be written: ") + target.asChar());
      return -1;
    }
    const bool ok = fwrite(out.data(), 1, out.size(), f) == out.size();
    if (fclose(f) != 0 || !ok) {
      setError(FL_EWRITE, Tstring("write error: ") + target.asChar());
      return -1;
    }
    saveNeeded_ = false;
    return 0;
  } catch (const std::exception& e) {
    setError(FL_EWRITE, e.what());
    return -1;
  }
}

statusCode savePsdFile(TphotoshopFile* file, const TfilePath& path) {
  auto* psd = dynamic_cast<TpsdFile*>(file);
  return psd && psd->save(path, RLE) == 0 ? kSuccess : kFailure;
}

}  // namespace ktPhotoshop
