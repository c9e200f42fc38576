// The texture facade's pixels: the composite, a layer and the alpha channels handed out as
// interleaved samples of either depth or as the library's pictures.
#include <vora/psd_texture.h>

namespace ktPhotoshop {

namespace {

// The samples of the channels listed, interleaved, top row first, at T's depth: 8-bit samples
// widen by 257, 16-bit ones keep their high byte. A channel that is not there: the fill.
template <typename T>
void interleave(TrgbaData& data, std::initializer_list<PHOTOSHOP_CHANNEL> ids, uint16_t fill, std::vector<T>& out) {
  TpixelData16& px = data.pixelData();
  const size_t n = size_t(data.width()) * data.height(), k = ids.size();
  out.assign(n * k, T(fill >> (16 - 8 * sizeof(T))));
  size_t e = 0;
  for (PHOTOSHOP_CHANNEL id : ids) {
    const Tchannel* c = px.channel(id);
    if (const uint8_t* s = c && size_t(c->width) * c->height == n ? px.getChannelPixPtr(id) : nullptr) {
      const uint16_t* wide = reinterpret_cast<const uint16_t*>(s);
      for (size_t i = 0; i < n; ++i) {
        const uint16_t v = px.is16bit() ? wide[i] : uint16_t(s[i] * 257);
        out[i * k + e] = T(v >> (16 - 8 * sizeof(T)));
      }
    }
    ++e;
  }
}

// Interleaved 8-bit samples (4, or 1 for grey) into a picture: bottom row first, blue first.
void toPixelMap(const std::vector<uint8_t>& s, uint32_t w, uint32_t h, bool grey, TpixelMap& out) {
  out.create(w, h);
  for (uint32_t y = 0; y < h; ++y) {
    Tpixel32* row = out.row(h - 1 - y);
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = &s[(size_t(y) * w + x) * (grey ? 1 : 4)];
      row[x] = grey ? Tpixel32{p[0], p[0], p[0], 255} : Tpixel32{p[2], p[1], p[0], p[3]};
    }
  }
}

}  // namespace

int TpsdTextureFile::readAllLayersInformation() { return psd() && psd()->readAllLayerRecordInformation() ? 0 : -1; }
int TpsdTextureFile::readAllChannelData() { return psd() ? psd()->readAllChannelData() : -1; }

int TpsdTextureFile::readPixels(const Tstring& layerName, TrgbaData& out) {
  return psd() ? psd()->readLayerImage(layerName, out) : -1;
}

int TpsdTextureFile::readLayerPixels(const Tstring& layerName, TrgbaData& out) {
  return psd() ? psd()->readLayerImage(layerName, out, true) : -1;
}

// The composite (no name) or one layer, interleaved.
template <typename T>
static int rgbaOf(TpsdTextureFile& f, const Tstring* layerName, std::vector<T>& rgba) {
  TrgbaData d;
  if ((layerName ? f.readPixels(*layerName, d) : f.readPixels(d)) != 0) return -1;
  interleave(d, {RED, GREEN, BLUE, TRANSPARENCY}, 65535, rgba);
  return 0;
}

int TpsdTextureFile::readPixels8(std::vector<uint8_t>& rgba) { return rgbaOf(*this, nullptr, rgba); }
int TpsdTextureFile::readPixels16(std::vector<uint16_t>& rgba) { return rgbaOf(*this, nullptr, rgba); }
int TpsdTextureFile::readPixels8Layer(const Tstring& n, std::vector<uint8_t>& rgba) { return rgbaOf(*this, &n, rgba); }
int TpsdTextureFile::readPixels16Layer(const Tstring& n, std::vector<uint16_t>& rgba) { return rgbaOf(*this, &n, rgba); }

int TpsdTextureFile::readPixelMap(TpixelMap& out) {
  std::vector<uint8_t> rgba;
  if (readPixels8(rgba) != 0) return -1;
  toPixelMap(rgba, document_->imageWidth(), document_->imageHeight(), false, out);
  return 0;
}

int TpsdTextureFile::readPixelMap(const Tstring& layerName, TpixelMap& out) {
  std::vector<uint8_t> rgba;
  if (readPixels8Layer(layerName, rgba) != 0) return -1;
  toPixelMap(rgba, document_->imageWidth(), document_->imageHeight(), false, out);
  return 0;
}

// The names read with the document, the ones readAlphaChannel finds (readAlphaList would also
// hand out the pad byte of an odd-sized name resource as an empty name).
int TpsdTextureFile::alphaList(TstringArray& names) {
  if (!psd() || (!built() && readAllLayersInformation() != 0)) return -1;
  names = psd()->alphaNames();
  return 0;
}

int TpsdTextureFile::readAlphaChannel(const Tstring& name, TrgbaData& out) {
  return psd() ? psd()->readAlphaChannel(name, out) : -1;
}

template <typename T>
static int samplesOf(TpsdTextureFile& f, const Tstring& name, std::vector<T>& samples) {
  TrgbaData d;
  if (f.readAlphaChannel(name, d) != 0) return -1;
  interleave(d, {RED}, 0, samples);
  return 0;
}

int TpsdTextureFile::readAlphaChannel8(const Tstring& name, std::vector<uint8_t>& s) { return samplesOf(*this, name, s); }
int TpsdTextureFile::readAlphaChannel16(const Tstring& name, std::vector<uint16_t>& s) { return samplesOf(*this, name, s); }

int TpsdTextureFile::readAlphaChannelPixMap(const Tstring& name, TpixelMap& out) {
  std::vector<uint8_t> s;
  if (readAlphaChannel8(name, s) != 0) return -1;
  toPixelMap(s, document_->imageWidth(), document_->imageHeight(), true, out);
  return 0;
}

}  // namespace ktPhotoshop
