// The document handles (TphotoshopFile, TpsdFile), the public reading calls and the
// free functions.
#include <cstring>

#include <vora/photoshop.h>

#include "psd_read.h"

namespace ktPhotoshop {

TphotoshopFile::~TphotoshopFile() = default;

void TphotoshopFile::setColorDepth(unsigned depth) {
  if (depth == 8) depth_ = k8Bits;
  else if (depth == 16) depth_ = k16Bits;
  else throw TpsdException("Invalid color depth");
}

// The first colour or transparency channel; null when there is none.
static const Tchannel* firstPlaced(const TpixelData16& samples) {
  for (PHOTOSHOP_CHANNEL id : samples.channelListArray())
    if (id >= TRANSPARENCY) return samples.channel(id);  // the masks have rectangles of their own
  return nullptr;
}

bool TpsdLayer::fitsOneRectangle(const TpixelData16& samples) {
  const Tchannel* first = firstPlaced(samples);
  for (PHOTOSHOP_CHANNEL id : samples.channelListArray()) {
    const Tchannel* c = samples.channel(id);
    if (id >= TRANSPARENCY && (c->width != first->width || c->height != first->height)) return false;
  }
  return true;
}

bool TpsdLayer::setPixels(TpixelData16 samples) {
  if (!fitsOneRectangle(samples)) return false;
  const Tchannel* first = firstPlaced(samples);
  right = left + int32_t(first ? first->width : 0), bottom = top + int32_t(first ? first->height : 0);
  pixels = std::move(samples);
  return true;
}

const TpsdInfoBlock* TpsdLayer::block(uint32_t key) const {
  for (const TpsdInfoBlock& b : additionalInfo)
    if (b.key == key) return &b;
  return nullptr;
}

TpsdFile::TpsdFile() = default;
TpsdFile::~TpsdFile() = default;

int TpsdFile::open(const TfilePath& path, bool editMode) {
  editMode_ = saveNeeded_ = editMode;
  PsdStream in(path);
  if (in.isOpen()) readPsdHeader(in);
  path_ = path;
  return 0;  // also when the header is not accepted: isFilePsd is the test
}

int TpsdFile::close() {
  layers_.clear();
  return 0;
}

TpsdLayer* TpsdFile::findLayer(const Tstring& name) {
  for (auto& layer : layers_)
    if (layer->name == name) return layer.get();
  return nullptr;
}

void TpsdFile::addWarningMessage(const Tstring& layerName, TpsdFileWarning::TpsdWarningMsg bit) {
  // Only names other than the divider's: the header's empty name is recorded once a divider name
  // is known, i.e. from the second reading of a document with a layer set on (required).
  if (layerName == dividerName_) return;
  TpsdFileWarning::instance().addWarning(bit, layerName, path_.baseName());
}

void TpsdFile::setError(int code, const Tstring& text) {
  lastError_ = text;
  lastErrorCode_ = code;
  vora::keepStatus(vora::Status(code, text.str()));
}

void TpsdFile::noMemory() {
  setError(FL_ENOMEM, "out of memory");
  TpsdFileWarning::instance().addWarning(TpsdFileWarning::rFileNoMemoryPSDfile, Tstring(), path_.baseName());
}

TpsdFile::Reading TpsdFile::readWhole() {
  clearError();
  return guard(Reading::kNoMemory, Reading::kCorrupt, [&] {
    PsdStream in(path_);
    Reading r = readStructure(in);
    if (r == Reading::kCannotOpen) setError(FL_EOPEN, "the file cannot be opened");
    if (r == Reading::kBadHeader) setError(IL_ENOTIMAGE, "not a Photoshop document of version 1 with 8 or 16 bits");
    return r;
  });
}

bool TpsdFile::readAllLayerRecordInformation() {
  switch (readWhole()) {
    case Reading::kOk:
      return layerMaskLength_ != 0;
    case Reading::kNoMemory:
      return true;  // deliberate: after the warning
    default:
      return false;
  }
}

int TpsdFile::getAllLayerNames(TstringArray& names) {
  if (readWhole() != Reading::kOk) return -1;
  for (const auto& layer : layers_)
    if (layer->sectionType == 0) names.push_back(layer->name);
  return 0;
}

int TpsdFile::readLayerSetNames(TstringArray& names) {
  if (readWhole() != Reading::kOk) return -1;
  for (const auto& layer : layers_)
    if (layer->isLayerSet()) names.push_back(layer->name);
  return 0;
}

bool isFilePsd(const TfilePath& path) {
  FILE* f = fopen(path.asChar(), "rb");
  if (!f) return false;
  uint8_t b[6];
  bool ok = fread(b, 1, 6, f) == 6 && memcmp(b, "8BPS", 4) == 0 && b[4] == 0 && b[5] == 1;
  fclose(f);
  return ok;
}

statusCode openPsdFile(const TfilePath& path, TphotoshopFile*& out, bool editMode) {
  if (!isFilePsd(path)) return kFailure;
  out = new TpsdFile();
  out->open(path, editMode);
  return kSuccess;
}

bool closePsdFile(TphotoshopFile*& file) {
  auto* psd = dynamic_cast<TpsdFile*>(file);
  if (!psd) return false;
  // A failed save leaves its reason in lastReadError(); closing goes on.
  if (!psd->isFileEditMode() && psd->isCreated() && psd->saveNeeded()) savePsdFile(psd, TfilePath(std::string()));
  psd->close();
  return true;
}

statusCode getLayerNames(TphotoshopFile* file, TstringArray& names) {
  auto* psd = dynamic_cast<TpsdFile*>(file);
  if (!psd) return kFailure;
  psd->getAllLayerNames(names);
  return names.empty() ? kFailure : kSuccess;
}

statusCode getLayerSetNames(TphotoshopFile* file, TstringArray& names) {
  auto* psd = dynamic_cast<TpsdFile*>(file);
  if (!psd) return kFailure;
  psd->readLayerSetNames(names);
  return names.empty() ? kFailure : kSuccess;
}

}  // namespace ktPhotoshop
