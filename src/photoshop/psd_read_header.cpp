// Reading the header, the colour mode data and the image resources (with the alpha
// channel names of resource 1006 and identifiers of 1053).
#include <cstring>
#include <functional>

#include <vora/photoshop.h>

#include "psd_read.h"
#include "psd_stream.h"

namespace ktPhotoshop {

bool TpsdFile::readPsdHeader(PsdStream& in) {
  try {
    in.seek(0);
    uint8_t signature[4];
    in.read(signature, 4, "the header");
    if (memcmp(signature, "8BPS", 4) != 0 || in.u16("the header") != 1) return false;
    in.read(reserved_, 6, "the header");
    channels_ = in.u16("the header");
    uint32_t height = in.u32("the header"), width = in.u32("the header");
    uint16_t depth = in.u16("the header");
    try {
      setColorDepth(depth);
    } catch (const TpsdException&) {  // "Invalid color depth", caught here: the reading fails
      return false;
    }
    bitDepth_ = depth;
    colorMode_ = in.u16("the header");
    setSize(width, height);
  } catch (const PsdReadError&) {
    return false;
  }
  static const std::pair<uint16_t, TpsdFileWarning::TpsdWarningMsg> modeWarnings[] = {
      {0, TpsdFileWarning::rFileBitmapColorMode},       {1, TpsdFileWarning::rFileGrayscaleColorMode},
      {2, TpsdFileWarning::rFileIndexedColorMode},      {4, TpsdFileWarning::rFileCMYKcolorMode},
      {7, TpsdFileWarning::rFileMultiChannelColorMode}, {8, TpsdFileWarning::rFileDuotoneColorMode},
      {9, TpsdFileWarning::rFileLabColorMode}};
  for (const auto& [mode, bit] : modeWarnings)
    if (colorMode_ == mode) addWarningMessage(Tstring(), bit);
  return true;
}

void TpsdFile::readColorModeData(PsdStream& in) {
  colorModeLength_ = in.s32("the colour mode data length");
  colorModeData_.clear();
  if (colorModeLength_ > 0) colorModeData_ = in.bytes(uint32_t(colorModeLength_), "the colour mode data");
}

namespace {

// One alpha channel name of resource 1006 (a length byte and that many bytes, no padding) when it
// lies inside the resource, which ends at end; false (nothing read past end) otherwise.
bool readAlphaName(PsdStream& in, uint64_t end, TstringArray& names) {
  if (in.tell() >= end) return false;
  uint8_t n = in.u8("an alpha channel name");
  if (in.tell() + n > end) return false;
  std::vector<uint8_t> name = in.bytes(n, "an alpha channel name");
  names.emplace_back(std::string(name.begin(), name.end()));
  return true;
}

}  // namespace

void psdReadResources(PsdStream& in, const std::function<void(TpsdImageResource&, uint64_t dataStart)>& each) {
  uint32_t signature;
  while (in.peek32(signature) && (signature == fourCC("8BIM") || signature == fourCC("MeSa"))) {
    in.skip(4);
    TpsdImageResource r;
    r.signature = signature;
    r.id = in.u16("an image resource id");
    uint8_t n = in.u8("an image resource name");
    std::vector<uint8_t> name = in.bytes(n, "an image resource name");
    r.name.assign(name.begin(), name.end());
    r.name.push_back(0);
    if (n != 0) {
      // The pad rule on the sum as a signed byte: 3 bytes for odd sums of 128 and more (kept).
      int8_t sum = int8_t(n + 1);
      if (sum % 2 != 0) in.skip(2 - sum % 2);
    } else {
      in.skip(1);
    }
    uint32_t size = in.u32("an image resource size");
    if (size & 1) {
      if (size == UINT32_MAX) in.fail("an image resource");
      ++size;
    }
    r.dataSize = size;
    each(r, in.tell());
  }
}

void TpsdFile::readImageResources(PsdStream& in) {
  if (endOfResources_) {
    in.seek(endOfResources_);
    return;
  }
  resourcesLength_ = in.s32("the image resources length");
  if (resourcesLength_ < 1) {
    endOfResources_ = uint32_t(in.tell());
    return;
  }
  resources_.clear();
  alphaNames_.clear();
  alphaIds_.clear();
  psdReadResources(in, [&](TpsdImageResource& r, uint64_t start) {
    switch (r.id) {
      case 1044:
        r.value1044 = in.u32("resource 1044");
        if (r.dataSize > 4) in.seek(start + r.dataSize);
        break;
      case 1006:
        // channels - 3 names (fewer than 3 channels: none are read),
        // each inside the resource; then the rest of the data is skipped.
        for (int i = 0; i < int(channels_) - 3; ++i)
          if (!readAlphaName(in, start + r.dataSize, alphaNames_)) break;
        in.seek(start + r.dataSize);
        break;
      case 1053:  // one identifier per alpha name; the declared size is not consulted
        for (size_t i = 0; i < alphaNames_.size(); ++i) alphaIds_.push_back(in.s32("an alpha identifier"));
        break;
      default:
        r.data = in.bytes(r.dataSize, "an image resource");
    }
    resources_.push_back(std::move(r));
  });
  endOfResources_ = uint32_t(in.tell());
}

int TpsdFile::readAlphaList(TstringArray& names) {
  clearError();
  PsdStream in(path_);
  if (!in.isOpen()) return 0;
  bool found = false;
  try {
    if (!readPsdHeader(in)) return 0;
    readColorModeData(in);
    if (in.s32("the image resources length") < 1) return 0;
    psdReadResources(in, [&](TpsdImageResource& r, uint64_t start) {
      if (r.id == 1006)
        while (readAlphaName(in, start + r.dataSize, names)) found = true;
      in.seek(start + r.dataSize);
    });
  } catch (const PsdReadError& e) {
    setError(e.status.code(), e.status.text());
  } catch (const std::bad_alloc&) {
    noMemory();
    return 0;
  }
  return found ? 1 : 0;
}

}  // namespace ktPhotoshop
