// Test helper: Photoshop documents byte by byte, with every field in the test's hands (layer
// records, channel data, the 16-bit "Lr16" section, the composite). Shared by the
// tests and the PSD benchmark. Lengths are computed from the contents.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vora/photoshop.h>

#include "support/bytes.h"

namespace vt::psd {

using vt::Bytes;
using vt::append;
using vt::be16;
using vt::be32;

inline void put4(Bytes& b, const std::string& s) {
  for (size_t i = 0; i < 4; ++i) b.push_back(i < s.size() ? uint8_t(s[i]) : uint8_t(' '));
}

struct Channel {
  int16_t id = 0;
  uint16_t compression = 0;
  Bytes data;  // after the compression word
};

struct Layer {
  int32_t top = 0, left = 0, bottom = 0, right = 0;
  std::vector<Channel> channels;
  std::string blendSignature = "8BIM", blendKey = "norm";
  uint8_t opacity = 255, clipping = 0, flags = 0, filler = 0;
  Bytes mask;    // after the mask length
  Bytes ranges;  // after the blending ranges length
  std::string name;
  std::optional<size_t> namePad;  // pad bytes after the name (default: Photoshop's multiple of 4)
  std::vector<std::pair<uint32_t, Bytes>> blocks;  // key, data (written exactly, length = size)
};

// Photoshop's own (unsigned) rule: length byte and name fill a multiple of 4.
inline size_t photoshopNamePad(size_t n) { return (4 - (n + 1) % 4) % 4; }

inline Bytes layerRecord(const Layer& l) {
  Bytes b;
  be32(b, uint32_t(l.top)), be32(b, uint32_t(l.left)), be32(b, uint32_t(l.bottom)), be32(b, uint32_t(l.right));
  be16(b, uint32_t(l.channels.size()));
  for (const Channel& c : l.channels) {
    be16(b, uint16_t(c.id));
    be32(b, uint32_t(2 + c.data.size()));
  }
  put4(b, l.blendSignature);
  if (!l.blendKey.empty()) put4(b, l.blendKey);
  b.push_back(l.opacity), b.push_back(l.clipping), b.push_back(l.flags), b.push_back(l.filler);
  Bytes extra;
  be32(extra, uint32_t(l.mask.size()));
  append(extra, l.mask);
  be32(extra, uint32_t(l.ranges.size()));
  append(extra, l.ranges);
  extra.push_back(uint8_t(l.name.size()));
  extra.insert(extra.end(), l.name.begin(), l.name.end());
  extra.resize(extra.size() + (l.namePad ? *l.namePad : photoshopNamePad(l.name.size())), 0);
  for (size_t i = 0; i < l.blocks.size(); ++i) {
    put4(extra, "8BIM");
    be32(extra, l.blocks[i].first);
    be32(extra, uint32_t(l.blocks[i].second.size()));
    append(extra, l.blocks[i].second);
  }
  be32(b, uint32_t(extra.size()));
  append(b, extra);
  return b;
}

inline Bytes channelData(const Layer& l) {
  Bytes b;
  for (const Channel& c : l.channels) {
    be16(b, c.compression);
    append(b, c.data);
  }
  return b;
}

// Count, records and channel data of a layer list (the content of a layer info section).
inline Bytes layerInfo(const std::vector<Layer>& layers, int16_t countSign = 1) {
  Bytes b;
  be16(b, uint16_t(int16_t(layers.size()) * countSign));
  for (const Layer& l : layers) append(b, layerRecord(l));
  for (const Layer& l : layers) append(b, channelData(l));
  return b;
}

struct Document {
  uint16_t version = 1, channels = 3, depth = 8, mode = 3;
  uint32_t width = 4, height = 2;
  Bytes colorModeData;
  Bytes resources;  // the resource list (see resource())
  std::vector<Layer> layers;
  int16_t countSign = 1;  // -1: the negative count Photoshop writes when the composite has alpha
  bool layersInLr16 = false;
  Bytes globalMask;  // after its length
  std::vector<std::pair<uint32_t, Bytes>> globalBlocks;
  bool noLayerSection = false;  // layer and mask length 0
  uint16_t compositeCompression = 0;
  Bytes composite;  // after the compression word; default: raw zeros of the image
};

inline Bytes resource(uint16_t id, const std::string& name, const Bytes& data) {
  Bytes b;
  put4(b, "8BIM");
  be16(b, id);
  b.push_back(uint8_t(name.size()));
  b.insert(b.end(), name.begin(), name.end());
  if ((name.size() + 1) % 2) b.push_back(0);
  be32(b, uint32_t(data.size()));
  append(b, data);
  if (data.size() % 2) b.push_back(0);
  return b;
}

// A global block as the reader expects it: 16-bit documents pad to 4 - length % 4 (4 for a multiple).
inline Bytes globalBlock(uint32_t key, const Bytes& data, bool sixteen) {
  Bytes b;
  put4(b, "8BIM");
  be32(b, key);
  be32(b, uint32_t(data.size()));
  append(b, data);
  if (sixteen) b.resize(b.size() + 4 - data.size() % 4, 0);
  return b;
}

inline Bytes build(const Document& d) {
  Bytes b;
  put4(b, "8BPS");
  be16(b, d.version);
  b.resize(b.size() + 6, 0);
  be16(b, d.channels), be32(b, d.height), be32(b, d.width), be16(b, d.depth), be16(b, d.mode);
  be32(b, uint32_t(d.colorModeData.size()));
  append(b, d.colorModeData);
  be32(b, uint32_t(d.resources.size()));
  append(b, d.resources);
  const bool sixteen = d.depth == 16;
  Bytes section;
  if (!d.noLayerSection) {
    Bytes info = d.layers.empty() || d.layersInLr16 ? Bytes() : layerInfo(d.layers, d.countSign);
    be32(section, uint32_t(info.size()));
    append(section, info);
    be32(section, uint32_t(d.globalMask.size()));
    append(section, d.globalMask);
    if (d.layersInLr16) {
      Bytes lr = layerInfo(d.layers, d.countSign);
      put4(section, "8BIM"), put4(section, "Lr16"), be32(section, uint32_t(lr.size()));
      append(section, lr);
      section.resize(section.size() + 4 - lr.size() % 4, 0);  // as the reader's seek expects
    }
    for (const auto& [key, data] : d.globalBlocks) append(section, globalBlock(key, data, sixteen));
  }
  be32(b, uint32_t(section.size()));
  append(b, section);
  be16(b, d.compositeCompression);
  if (d.composite.empty() && d.compositeCompression == 0)
    b.resize(b.size() + size_t(d.width) * d.height * d.channels * (sixteen ? 2 : 1), 0);
  else
    append(b, d.composite);
  return b;
}

// A layer channel of 8-bit samples in PackBits rows (table in front), as Photoshop stores it.
inline Channel rleChannel(int16_t id, uint32_t width, uint32_t height, const Bytes& samples) {
  Channel c;
  c.id = id;
  c.compression = 1;
  Bytes rows;
  std::vector<uint8_t> packed((width + 4) / 5 + width + 4);
  for (uint32_t y = 0; y < height; ++y) {
    size_t n = ktPhotoshop::codec::packBitsRow(samples.data() + size_t(y) * width, width, packed.data());
    be16(c.data, uint32_t(n));
    rows.insert(rows.end(), packed.begin(), packed.begin() + long(n));
  }
  append(c.data, rows);
  return c;
}

inline Channel rawChannel(int16_t id, const Bytes& samples) {
  Channel c;
  c.id = id;
  c.data = samples;
  return c;
}

// Big-endian words, then "8BIM" and key when given (block and resource bodies).
inline Bytes words(std::initializer_list<uint32_t> v, const char* key = nullptr) {
  Bytes b;
  for (uint32_t x : v) be32(b, x);
  if (key) put4(b, "8BIM"), put4(b, key);
  return b;
}

}  // namespace vt::psd
