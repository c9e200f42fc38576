// Reading the layer records, the global layer mask and the additional global
// information (with the 16-bit layer section "Lr16").
#include <cstdlib>

#include <vora/photoshop.h>

#include "psd_stream.h"

namespace ktPhotoshop {

namespace {

constexpr uint32_t k8BIM = fourCC("8BIM");

// Layer block keys that raise a warning; "lev1" with the digit one and "hue" with a leading zero
// byte are the exact values (deliberate: "levl" and "hue " raise nothing).
TpsdFileWarning::TpsdWarningMsg blockWarning(uint32_t key) {
  static const uint32_t adjustments[] = {fourCC("blnc"), fourCC("brit"), fourCC("curv"), fourCC("hue2"),
                                         fourCC("nvrt"), fourCC("post"), fourCC("selc"), fourCC("thrs"),
                                         fourCC("lev1"), 0x00687565u /* "\0hue" */};
  if (key == fourCC("lrfx")) return TpsdFileWarning::rFileLayerEffects;
  if (key == fourCC("lfx2")) return TpsdFileWarning::rFileObjectBasedEffects;
  if (key == fourCC("patt")) return TpsdFileWarning::rFilePatterns;
  if (key == fourCC("Anno")) return TpsdFileWarning::rFileAnnotations;
  for (uint32_t a : adjustments)
    if (key == a) return TpsdFileWarning::rFileAdjustmentLayer;
  return TpsdFileWarning::TpsdWarningMsg(0);
}

uint32_t absCount(int16_t count) { return uint32_t(std::abs(int32_t(count))); }

}  // namespace

void TpsdFile::readLayerRecord(PsdStream& in, TpsdLayer& layer,
                               std::vector<TpsdFileWarning::TpsdWarningMsg>& warnings) {
  const char* what = "a layer record";
  layer.top = in.s32(what), layer.left = in.s32(what), layer.bottom = in.s32(what), layer.right = in.s32(what);
  layer.channelCount = in.u16(what);
  if (layer.channelCount > 56) throw TpsdException("Invalid information read from file");
  layer.channelInfo.resize(layer.channelCount);
  for (TpsdChannelInfo& c : layer.channelInfo) {
    c.id = in.s16(what);
    c.length = in.u32(what);
    c.reserved = 0;
  }
  layer.blendSignature = in.u32(what);
  // Only "8BIM" is followed by a key that is read: with another signature the rest of the record
  // is read four bytes early (deliberate).
  if (layer.blendSignature == k8BIM) layer.blendKey = in.u32(what);
  layer.opacity = in.u8(what), layer.clipping = in.u8(what), layer.flags = in.u8(what), layer.filler = in.u8(what);
  layer.extraDataLength = in.u32(what);
  const uint64_t extraStart = in.tell();

  TpsdLayer::Mask& m = layer.mask;
  m.length = in.u32("a layer mask");
  if (m.length != 0) {
    m.top = in.s32("a layer mask"), m.left = in.s32("a layer mask");
    m.bottom = in.s32("a layer mask"), m.right = in.s32("a layer mask");
    m.defaultColor = in.u8("a layer mask"), m.flags = in.u8("a layer mask");
    if (m.length == 20) {
      in.skip(2);
    } else {  // 18 further bytes, whatever the stated length
      m.realFlags = in.u8("a layer mask"), m.realUserMaskBackground = in.u8("a layer mask");
      m.realTop = in.s32("a layer mask"), m.realLeft = in.s32("a layer mask");
      m.realBottom = in.s32("a layer mask"), m.realRight = in.s32("a layer mask");
    }
  }

  // Blending ranges. A length of 0 (GIMP, ImageMagick and ag-psd write it) reads nothing further;
  // otherwise the grey pair and length / 8 - 1 channel pairs.
  TpsdLayer::BlendingRanges& b = layer.blendingRanges;
  b.length = in.u32("the blending ranges");
  if (b.length != 0) {
    b.compositeGreySource = in.u32("the blending ranges");
    b.compositeGreyDestination = in.u32("the blending ranges");
    uint32_t pairs = b.length >= 8 ? b.length / 8 - 1 : 0;
    in.need(uint64_t(pairs) * 8, "the blending ranges");
    b.channels.resize(pairs);
    for (auto& p : b.channels) p.first = in.u32("the blending ranges"), p.second = in.u32("the blending ranges");
  }

  // Name: pad so that length byte and name fill a multiple of 4, on (length + 1) as a signed byte
  // and a remainder with the dividend's sign: 5 to 7 bytes for names of 128 and more (required).
  uint8_t n = in.u8("a layer name");
  std::vector<uint8_t> name = in.bytes(n, "a layer name");
  layer.name = Tstring(std::string(name.begin(), name.end()));
  int r = int8_t(n + 1) % 4;
  if (r != 0) in.skip(4 - r);

  uint32_t signature;
  while (in.peek32(signature) && signature == k8BIM) {
    in.skip(4);
    TpsdInfoBlock block;
    block.signature = signature;
    block.key = in.u32("a layer information block");
    block.length = in.u32("a layer information block");
    if (block.key == fourCC("lsct")) {
      layer.sectionType = in.u32("a section divider");
      if (block.length == 12) {
        layer.sectionBlendSignature = in.u32("a section divider");
        layer.sectionBlendKey = in.u32("a section divider");
      }
    } else if (block.key == fourCC("lyid")) {
      layer.layerId = in.u32("a layer id");
    } else if (block.length != 0) {
      block.data = in.bytes(block.length, "a layer information block");
      if (TpsdFileWarning::TpsdWarningMsg w = blockWarning(block.key)) warnings.push_back(w);
    }
    layer.additionalInfo.push_back(std::move(block));
  }
  layer.additionalInfoCount = uint32_t(layer.additionalInfo.size());
  layer.extraDataLength = uint32_t(in.tell() - extraStart);
}

void TpsdFile::readAllLayerInfo(PsdStream& in) {
  if (startOfChannelData_ && layers_.size() == layerCount_) {
    in.seek(startOfChannelData_);
    return;
  }
  layers_.clear();
  // A count of 32767 in a small file fails at the first record past the end; nothing is reserved
  // on the count's word.
  for (uint32_t i = 0; i < layerCount_; ++i) {
    auto layer = std::make_unique<TpsdLayer>(colorDepth());
    std::vector<TpsdFileWarning::TpsdWarningMsg> warnings;  // emptied before each record
    readLayerRecord(in, *layer, warnings);
    if (dividerName_.isEmpty() && layer->sectionType == 3) dividerName_ = layer->name;
    if (layer->sectionType == 0)
      for (auto w : warnings) addWarningMessage(layer->name, w);
    layers_.push_back(std::move(layer));
  }
  if (in.tell() > UINT32_MAX) in.fail("the layer records");
  startOfChannelData_ = uint32_t(in.tell());
  recomputeLayerSize();
}

void TpsdFile::recomputeLayerSize() {
  channelDataSize_ = 0;
  for (const auto& layer : layers_)
    for (const TpsdChannelInfo& c : layer->channelInfo) channelDataSize_ += c.length;
}

bool TpsdFile::seekToEndOfChannelData(PsdStream& in) {
  if (!startOfChannelData_) return false;
  uint64_t end = uint64_t(startOfChannelData_) + channelDataSize_;
  if (colorDepth() == k16Bits) end += 4 - layerInfoLength_ % 4;  // 4 for a multiple of 4 (deliberate)
  in.seek(end);
  return true;
}

void TpsdFile::readGlobalMaskInfo(PsdStream& in) {
  if (colorDepth() == k8Bits) seekToEndOfChannelData(in);
  if (endOfGlobalMask_) {
    in.seek(endOfGlobalMask_);
    return;
  }
  // A length past the end keeps what the file holds (see readAdditionalGlobalInfo).
  globalMaskLength_ = in.u32("the global layer mask");
  globalMask_ = in.bytesUpTo(globalMaskLength_);
  endOfGlobalMask_ = uint32_t(in.tell());
}

void TpsdFile::readAdditionalGlobalInfo(PsdStream& in) {
  if (colorDepth() == k8Bits) seekToEndOfChannelData(in);
  if (endOfAdditionalInfo_) {
    if (startOfChannelData_) in.seek(startOfChannelData_);
    return;
  }
  globalBlocks_.clear();
  uint32_t signature;
  while (in.peek32(signature) && signature == k8BIM) {
    in.skip(4);
    uint32_t key = in.u32("an additional information block");
    if (key == fourCC("Lr16")) {
      layerInfoLength_ = in.u32("the 16-bit layer section");
      layerCount_ = absCount(in.s16("the 16-bit layer section"));
      readAllLayerInfo(in);
      seekToEndOfChannelData(in);
      continue;
    }
    TpsdInfoBlock block;
    block.signature = signature;
    block.key = key;
    uint64_t length = in.u32("an additional information block");
    if (colorDepth() == k16Bits) length += 4 - length % 4;  // 4 for a multiple of 4, again
    // These sections are read as a plain buffered reader would, so a length past the end gets what remains, and
    // its 16-bit rule (no seek past the channel data) points them into the channel data of
    // documents whose 16-bit layers are not in "Lr16" (ImageMagick's): those keep their layers.
    block.data = in.bytesUpTo(length);
    block.length = uint32_t(length);
    globalBlocks_.push_back(std::move(block));
  }
  endOfAdditionalInfo_ = uint32_t(in.tell());
  recomputeLayerSize();
  if (startOfChannelData_) in.seek(startOfChannelData_);
}

TpsdFile::Reading TpsdFile::readStructure(PsdStream& in) {
  if (!in.isOpen()) return Reading::kCannotOpen;
  if (!readPsdHeader(in)) return Reading::kBadHeader;
  readColorModeData(in);
  readImageResources(in);
  layerMaskLength_ = in.u32("the layer and mask information length");
  if (layerMaskLength_ == 0) return Reading::kOk;
  layerInfoLength_ = in.u32("the layer info length");
  if (layerInfoLength_ != 0) {
    layerCount_ = absCount(in.s16("the layer count"));
    readAllLayerInfo(in);
  }
  readGlobalMaskInfo(in);
  readAdditionalGlobalInfo(in);
  return Reading::kOk;
}

}  // namespace ktPhotoshop
