// Compositing a list of layers bottom to top (a document's or one layer set's), with visibility,
// user masks, opacity and clipping groups, and the document calls built on it.
#include <algorithm>
#include <cstring>
#include <string>

#include <vora/foundation/fl.h>
#include <vora/photoshop.h>

#include "platform/platform.h"
#include "psd_read.h"

namespace ktPhotoshop {

namespace {

const PHOTOSHOP_CHANNEL kColour[3] = {RED, GREEN, BLUE};

bool contributes(const TpsdLayer& l) { return l.top != l.bottom && l.isVisible(); }

// Document-sized colour channels and a transparency channel, all 0.
TpixelData16 documentPixels(TdataFormat format, uint32_t width, uint32_t height) {
  TpixelData16 p(format);
  p.allocChannels(width, height, false);
  p.addChannel(TRANSPARENCY, width, height, 0);
  return p;
}

// Rows and columns {first row, first column, end row, end column} of the document a layer touches.
struct Area {
  int32_t r[4] = {0, 0, 0, 0};
  void unite(const int32_t o[4]) {
    if (o[0] >= o[2] || o[1] >= o[3]) return;
    if (r[0] >= r[2] || r[1] >= r[3]) {
      std::copy(o, o + 4, r);
      return;
    }
    r[0] = std::min(r[0], o[0]), r[1] = std::min(r[1], o[1]), r[2] = std::max(r[2], o[2]), r[3] = std::max(r[3], o[3]);
  }
};

// Zeroes an area of every channel (what the previous layer left in the scratch).
void clear(TpixelData16& p, const Area& a, uint32_t width) {
  if (a.r[0] >= a.r[2] || a.r[1] >= a.r[3]) return;
  const size_t bytes = p.bytesPerChannel();
  for (PHOTOSHOP_CHANNEL id : p.channelListArray()) {
    uint8_t* base = p.getChannelPixPtr(id);
    for (int32_t y = a.r[0]; y < a.r[2]; ++y)
      memset(base + (size_t(y) * width + size_t(a.r[1])) * bytes, 0, size_t(a.r[3] - a.r[1]) * bytes);
  }
}

// The layer's pixels at its rectangle in document-sized scratch, whose other values are 0. A grey
// layer's one colour channel goes to all three.
void place(TpixelData16& scratch, const TpsdLayer& layer) {
  TpixelData16& px = const_cast<TpixelData16&>(layer.pixels);
  if (px.channel(RED) && !px.channel(GREEN) && !px.channel(BLUE)) {
    const Tchannel& g = *px.channel(RED);
    TpixelData16 rgb(px.format());
    for (PHOTOSHOP_CHANNEL id : kColour) {
      if (g.sampleCount == 0) break;
      rgb.addChannel(id, g.width, g.height);
      memcpy(rgb.getChannelPixPtr(id), px.getChannelPixPtr(RED), size_t(g.sampleCount) * px.bytesPerChannel());
      scratch.copyChannel(id, layer.left, layer.top, rgb);
    }
  } else {
    for (PHOTOSHOP_CHANNEL id : kColour) scratch.copyChannel(id, layer.left, layer.top, px);
  }
  scratch.copyChannel(TRANSPARENCY, layer.left, layer.top, px);
}

// The user mask (unless disabled: mask flags bit 1) ANDed bytewise into the scratch transparency.
void applyMask(TpixelData16& scratch, const TpsdLayer& layer, uint32_t width, uint32_t height) {
  const Tchannel* m = layer.pixels.channel(USER_MASK);
  if (!m || (layer.mask.flags & 2)) return;
  const uint16_t fill = uint16_t(layer.mask.defaultColor * (scratch.getMaxColor() / 255));
  TpixelData16 mask(scratch.format());
  mask.addChannel(USER_MASK, width, height, fill);
  mask.copyChannel(USER_MASK, layer.mask.left, layer.mask.top, layer.pixels);
  const Tchannel* mc = mask.channel(USER_MASK);
  TpixelData16::memAND(scratch.getTransparencyPixelPtr(), mask.getChannelPixPtr(USER_MASK),
                       size_t(mc->sampleCount) * scratch.bytesPerChannel());
}

// Whether placing the layer writes every value of its rectangle: its colour and transparency
// channels are all there, at the rectangle's size.
bool fillsItsRectangle(const TpsdLayer& l) {
  const TpixelData16& px = l.pixels;
  if (!px.channel(RED) || !px.channel(TRANSPARENCY) || !px.channel(GREEN) != !px.channel(BLUE)) return false;
  for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY}) {
    const Tchannel* c = px.channel(id);
    if (c && (c->width != l.width() || c->height != l.height() || c->sampleCount == 0)) return false;
  }
  return true;
}

void blendRect(const TpsdLayer& l, uint32_t width, uint32_t height, int32_t rect[4]) {
  rect[0] = std::max(l.top, 0);
  rect[1] = std::max(l.left, 0);
  rect[2] = std::min<int64_t>(l.bottom, height);
  rect[3] = std::min<int64_t>(l.right, width);
}

// The clipping group after layers[base]: each grouped layer shows only where the base layer is,
// and leaves the base's transparency as it was.
void clipLayersInSet(const std::vector<const TpsdLayer*>& layers, size_t base, TpixelData16& scratch, uint32_t width,
                     uint32_t height) {
  const size_t samples = size_t(width) * height;
  TpixelData16 clip = documentPixels(scratch.format(), width, height);
  const bool wide = scratch.is16bit();
  const uint32_t M = scratch.getMaxColor();
  std::vector<uint8_t> baseAlpha(scratch.getTransparencyPixelPtr(),
                                 scratch.getTransparencyPixelPtr() + samples * scratch.bytesPerChannel());
  for (size_t j = base + 1; j < layers.size() && layers[j]->clipping != 0; ++j) {
    const TpsdLayer& l = *layers[j];
    if (!contributes(l)) continue;
    clip.initialize(0, 0);
    place(clip, l);
    applyMask(clip, l, width, height);
    clip.applyOpacity(l.opacity);
    uint8_t* a = clip.getTransparencyPixelPtr();
    for (size_t i = 0; i < samples; ++i) {
      if (wide) {
        uint16_t* a16 = reinterpret_cast<uint16_t*>(a);
        a16[i] = uint16_t(uint32_t(a16[i]) * reinterpret_cast<const uint16_t*>(baseAlpha.data())[i] / M);
      } else {
        a[i] = uint8_t(uint32_t(a[i]) * baseAlpha[i] / M);
      }
    }
    int32_t rect[4];
    blendRect(l, width, height, rect);
    blendLayerPixels(clip, scratch, l.blendKey, rect);
    memcpy(scratch.getTransparencyPixelPtr(), baseAlpha.data(), baseAlpha.size());
  }
}

}  // namespace

void blendLayersInSet(const std::vector<const TpsdLayer*>& layers, uint32_t width, uint32_t height, TdataFormat format,
                      std::unique_ptr<TpixelData16>& destination) {
  if (width == 0 || height == 0) return;
  if (!destination) destination = std::make_unique<TpixelData16>(documentPixels(format, width, height));
  TpixelData16 scratch = documentPixels(format, width, height);
  Area dirty;  // what the last layer placed; everything else in the scratch is 0
  for (size_t i = 0; i < layers.size(); ++i) {
    const TpsdLayer& l = *layers[i];
    if (l.clipping != 0 || !contributes(l)) continue;
    int32_t rect[4];
    blendRect(l, width, height, rect);
    // a layer with every channel over all that the last one left overwrites it: nothing to clear
    const bool covers = rect[0] <= dirty.r[0] && rect[1] <= dirty.r[1] && rect[2] >= dirty.r[2] &&
                        rect[3] >= dirty.r[3] && fillsItsRectangle(l);
    if (!covers) clear(scratch, dirty, width);
    dirty = Area();
    place(scratch, l);
    applyMask(scratch, l, width, height);
    dirty.unite(rect);
    for (size_t j = i + 1; j < layers.size() && layers[j]->clipping != 0; ++j) {  // clipped layers write too
      int32_t cr[4];
      blendRect(*layers[j], width, height, cr);
      dirty.unite(cr);
    }
    if (i + 1 < layers.size() && layers[i + 1]->clipping != 0) clipLayersInSet(layers, i, scratch, width, height);
    scratch.applyOpacity(l.opacity);
    blendLayerPixels(scratch, *destination, l.blendKey, rect);
  }
}

std::vector<int> TpsdFile::setBounds() const {
  // For every set record, the index of its divider (-1 for everything else).
  std::vector<int> divider(layers_.size(), -1);
  std::vector<int> open;
  for (size_t i = 0; i < layers_.size(); ++i) {
    if (layers_[i]->sectionType == 3) open.push_back(int(i));
    else if (layers_[i]->isLayerSet() && !open.empty()) divider[i] = open.back(), open.pop_back();
  }
  return divider;
}

bool TpsdFile::isLayerSetVisible(size_t index) const {
  if (index >= layers_.size() || !layers_[index]->isVisible()) return false;
  const std::vector<int> divider = setBounds();
  for (size_t s = index + 1; s < layers_.size(); ++s)  // the sets around this one lie above it
    if (divider[s] >= 0 && size_t(divider[s]) < index && !layers_[s]->isVisible()) return false;
  return true;
}

std::vector<const TpsdLayer*> TpsdFile::compositeList(size_t from, size_t to) const {
  // Layers of hidden sets are left out; the set records and dividers carry no pixels.
  const std::vector<int> divider = setBounds();
  std::vector<bool> hidden(layers_.size(), false);
  for (size_t s = 0; s < layers_.size(); ++s)
    if (divider[s] >= 0 && !layers_[s]->isVisible())
      for (size_t i = size_t(divider[s]) + 1; i < s; ++i) hidden[i] = true;
  std::vector<const TpsdLayer*> list;
  for (size_t i = from; i < to && i < layers_.size(); ++i)
    if (!hidden[i] && layers_[i]->sectionType == 0) list.push_back(layers_[i].get());
  return list;
}

void TpsdFile::checkDocumentSize() const {
  // The document's buffers are sized by its header alone: held, as every size read from a file,
  // to what the file could hold (a document built in memory has no file to answer to).
  vora::platform::FileStatus st;
  const int64_t stored = !created_ && vora::platform::fileStatus(path_.asChar(), st) == 0 ? st.size : -1;
  const uint64_t bytes = uint64_t(width_) * height_ * 4 * (colorDepth() == k16Bits ? 2 : 1);
  if (!FLdecodeok(bytes, stored, 1032))
    throw PsdReadError(vora::Status(IL_ETOOLARGE, "the document's " + std::to_string(width_) + " x " +
                                                      std::to_string(height_) + " pixels cannot come from a file of " +
                                                      std::to_string(stored) + " bytes"));
}

int TpsdFile::compositeInto(const std::vector<const TpsdLayer*>& list, TrgbaData& out) {
  return guard(-1, -1, [&] {
    checkDocumentSize();
    std::unique_ptr<TpixelData16> dest;
    blendLayersInSet(list, width_, height_, colorDepth(), dest);
    if (!dest) dest = std::make_unique<TpixelData16>(documentPixels(colorDepth(), width_, height_));
    out = TrgbaData(width_, height_, std::move(*dest), 4);
    return 0;
  });
}

int TpsdFile::readLayerImage(const Tstring& layerName, TrgbaData& out, bool ownRectangle) {
  if (readAllChannelData() != 0) return -1;
  TpsdLayer* layer = findLayer(layerName);
  if (!layer || layer->sectionType != 0) {
    setError(FL_ESTATE, "no layer named " + layerName.str());
    return -1;
  }
  return guard(-1, -1, [&] {
    checkDocumentSize();
    const uint32_t w = ownRectangle ? layer->width() : width_, h = ownRectangle ? layer->height() : height_;
    TpixelData16 placed(colorDepth());
    for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY}) placed.addChannel(id, w, h, 0);
    const int32_t rect[4] = {0, 0, int32_t(layer->width()), int32_t(layer->height())};
    const int32_t at[2] = {ownRectangle ? 0 : layer->left, ownRectangle ? 0 : layer->top};
    placed.copyRect(rect, at, layer->pixels);
    if (colorMode_ == 1)  // grey: the one channel feeds the three colours, as in the composite
      for (PHOTOSHOP_CHANNEL id : {GREEN, BLUE})
        memcpy(placed.getChannelPixPtr(id), placed.getChannelPixPtr(RED), size_t(w) * h * placed.bytesPerChannel());
    out = TrgbaData(w, h, std::move(placed), 4);
    return 0;
  });
}

int TpsdFile::readFlattenedImage(TrgbaData& out, bool fromLayers) {
  if (!fromLayers) return readFlattenedImage(out);
  if (readAllChannelData() != 0 || decodeAllChannels() != 0) return -1;
  if (colorMode_ != 1 && colorMode_ != 3) {
    setError(FL_ENOTSUP, "only RGB and grey documents are composited from their layers");
    return -1;
  }
  return compositeInto(compositeList(0, layers_.size()), out);
}

int TpsdFile::readLayerSetImage(const Tstring& setName, TrgbaData& out) {
  if (readAllChannelData() != 0) return -1;
  const std::vector<int> divider = setBounds();
  for (size_t s = 0; s < layers_.size(); ++s) {
    if (divider[s] < 0 || layers_[s]->name != setName) continue;
    std::vector<const TpsdLayer*> list = compositeList(size_t(divider[s]) + 1, s);
    if (list.empty() || !isLayerSetVisible(s)) {
      TpsdFileWarning::instance().addWarning(TpsdFileWarning::rFileEmptyLayerSet, setName, path_.baseName());
      list.clear();
    }
    return compositeInto(list, out);
  }
  setError(FL_ESTATE, "no layer set named " + setName.str());
  return -1;
}

}  // namespace ktPhotoshop
