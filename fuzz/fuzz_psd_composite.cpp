// Fuzz target: whole Photoshop documents through compositing (the document and every set), then
// written back out and read again.
#include <cstdint>

#include <vora/photoshop.h>

#include "fuzz_file.h"

using namespace ktPhotoshop;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::writeInput(data, size)) return 0;
  TphotoshopFile* file = nullptr;
  if (openPsdFile(fuzz::tempPath().c_str(), file, true) != kSuccess) return 0;
  auto* doc = static_cast<TpsdFile*>(file);
  try {
    // bounded work: compositing touches every pixel of the document once per layer
    if (uint64_t(doc->imageWidth()) * doc->imageHeight() <= (1u << 20)) {
      TrgbaData out;
      doc->readFlattenedImage(out, true);
      TstringArray sets;
      doc->readLayerSetNames(sets);
      for (const Tstring& s : sets) doc->readLayerSetImage(s, out);
      const std::string copy = fuzz::tempPath() + ".out.psd";
      if (doc->readAllChannelData() == 0 && doc->layers().size() < 64 && doc->save(copy.c_str(), ZIP) == 0) {
        TpsdFile again;
        again.open(copy.c_str(), true);
        again.readFlattenedImage(out, true);
      }
    }
  } catch (const TpsdException&) {  // the reader's documented exceptions
  }
  delete doc;
  return 0;
}
