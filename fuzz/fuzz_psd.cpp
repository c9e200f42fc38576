// Fuzz target: whole Photoshop documents: the structure, names, alpha list, every
// layer's channel data decoded, the composite and every alpha channel decoded, and the first
// layer placed in the document.
#include <cstdint>

#include <vora/photoshop.h>

#include "fuzz_file.h"

using namespace ktPhotoshop;

namespace {

void decodeAll(TpixelData16& px) {
  for (PHOTOSHOP_CHANNEL id : px.channelListArray()) {
    const Tchannel* c = px.channel(id);
    if (uint64_t(c->sampleCount) * c->bytesPerSample() > (64u << 20)) continue;  // bounded work
    if (const uint8_t* p = px.getChannelPixPtr(id)) {
      volatile uint8_t sink = c->sampleCount ? p[c->sampleCount * c->bytesPerSample() - 1] : 0;
      (void)sink;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  TphotoshopFile* file = nullptr;
  if (openPsdFile(fuzz::tempPath().c_str(), file, true) != kSuccess) return 0;
  auto* doc = static_cast<TpsdFile*>(file);
  try {
    TstringArray names;
    getLayerNames(doc, names);
    getLayerSetNames(doc, names);
    if (doc->readAllChannelData() == 0)
      for (auto& layer : doc->layers()) decodeAll(layer->pixels);
    TrgbaData composite;
    if (doc->readFlattenedImage(composite) == 0) decodeAll(composite.pixelData());
    TstringArray alpha;
    doc->readAlphaList(alpha);
    for (const Tstring& name : alpha)
      if (doc->readAlphaChannel(name, composite) == 0) decodeAll(composite.pixelData());
    if (!names.empty() && doc->readLayerImage(names.front(), composite) == 0) decodeAll(composite.pixelData());
  } catch (const TpsdException&) {  // the reader's documented exceptions
  }
  closePsdFile(file);
  delete doc;
  TpsdFileWarning::instance().clear();
  return 0;
}
