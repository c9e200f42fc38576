// The texture facade's building members: a new document's layers, sets and alpha channels.
#include <algorithm>

#include <vora/psd_texture.h>

namespace ktPhotoshop {

long TpsdTextureFile::indexOf(const Tstring& name) const {
  const TpsdLayerPtrArray& layers = psd()->layers();
  for (size_t i = 0; i < layers.size(); ++i)
    if (layers[i]->name == name && layers[i]->sectionType != 3) return long(i);
  return -1;
}

int TpsdTextureFile::create(const TfilePath& path, uint16_t width, uint16_t height, unsigned depth, bool grey) {
  if (depth != 8 && depth != 16) return -1;
  auto doc = std::make_shared<TpsdFile>();
  doc->setColorMode(grey ? 1 : 3);
  doc->setColorDepth(depth);
  unsigned short w = width, h = height;
  if (doc->create(path, w, h) != 0) return -1;
  document_ = std::move(doc);
  cached_ = false, owned_ = true;
  width_ = width, height_ = height;
  return 0;
}

int TpsdTextureFile::createLayer(const Tstring& name, int32_t left, int32_t top, TpixelData16 pixels) {
  if (!built() || pixels.format() != built()->colorDepth() || !TpsdLayer::fitsOneRectangle(pixels)) return -1;
  built()->addLayer(name, left, top, std::move(pixels));
  return 0;
}

int TpsdTextureFile::createLayerSet(const Tstring& name) {
  if (!built()) return -1;
  built()->addLayerSet(name, built()->layers().size());  // empty: its divider right below it
  return 0;
}

int TpsdTextureFile::addNewLayerToSet(const Tstring& setName, const Tstring& name, int32_t left, int32_t top,
                                      TpixelData16 pixels) {
  const long set = built() ? indexOf(setName) : -1;
  if (set < 0 || !psd()->layers()[size_t(set)]->isLayerSet() || createLayer(name, left, top, std::move(pixels)) != 0) return -1;
  TpsdLayerPtrArray& layers = psd()->layers();
  std::rotate(layers.begin() + set, layers.end() - 1, layers.end());  // the new layer just below the set record
  return 0;
}

int TpsdTextureFile::writePixels(const Tstring& layerName, TpixelData16 pixels) {
  const long i = built() ? indexOf(layerName) : -1;
  if (i < 0 || pixels.format() != psd()->colorDepth()) return -1;
  TpsdLayer& l = *psd()->layers()[size_t(i)];
  return l.sectionType == 0 && l.setPixels(std::move(pixels)) ? 0 : -1;
}

int TpsdTextureFile::deleteLayer(const Tstring& name) {
  const long i = built() ? indexOf(name) : -1;
  if (i < 0) return -1;
  TpsdLayerPtrArray& layers = psd()->layers();
  long from = i;
  if (layers[size_t(i)]->isLayerSet())  // down to its divider, past the sets inside it
    for (int level = 0; from-- > 0;) {
      if (layers[size_t(from)]->isLayerSet()) ++level;
      if (layers[size_t(from)]->sectionType == 3 && level-- == 0) break;
    }
  layers.erase(layers.begin() + std::max(from, 0L), layers.begin() + i + 1);
  return 0;
}

int TpsdTextureFile::setLayerOpacity(const Tstring& name, uint8_t opacity) {
  const long i = built() ? indexOf(name) : -1;
  if (i < 0) return -1;
  psd()->layers()[size_t(i)]->opacity = opacity;
  return 0;
}

int TpsdTextureFile::setBlendModeToLayer(const Tstring& name, uint32_t blendKey) {
  const long i = built() ? indexOf(name) : -1;
  if (i < 0) return -1;
  psd()->layers()[size_t(i)]->blendKey = blendKey;
  return 0;
}

int TpsdTextureFile::createChannel(const Tstring& name, TpixelData16 samples) {
  const Tchannel* c = samples.channel(RED);
  if (!built() || !c || c->width != built()->imageWidth() || c->height != built()->imageHeight() ||
      samples.format() != built()->colorDepth())
    return -1;
  built()->addAlphaChannel(name, std::move(samples));
  return 0;
}

int TpsdTextureFile::deleteChannel(const Tstring& name) { return built() && built()->removeAlphaChannel(name) ? 0 : -1; }

}  // namespace ktPhotoshop
