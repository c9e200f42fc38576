// The composite image (readFlattenedImage) and its alpha channels and, for the facade, every
// layer's channel data, kept compressed in the pixel data (decoded on demand).
#include <algorithm>
#include <string>

#include <vora/foundation/fl.h>
#include <vora/photoshop.h>

#include "foundation/byteorder.h"
#include "foundation/parallel.h"
#include "psd_read.h"

namespace ktPhotoshop {

namespace {

// Refuses, before any sample buffer exists, stored bytes that cannot hold their samples (the
// library's one size check, FLdecodeok): raw needs them all; a PackBits packet of 2 bytes gives at
// most 128; deflate expands at most 1032 times. Real files pass whatever their content; a tiny
// file declaring a huge image does not. Over the allocation limit it is a memory failure instead.
// Returns the channel's sample bytes.
uint64_t checkChannelSize(PsdStream& in, uint64_t width, uint64_t height, uint32_t bytesPerSample, uint64_t stored,
                          TCompressionMethod method, const std::string& what) {
  const uint64_t samples = width * height, bytes = samples * bytesPerSample;
  const uint32_t ratio = method == RAW ? 1 : method == RLE ? 64 : 1032;
  if (samples > UINT32_MAX || (FLallocok(bytes) && !FLdecodeok(bytes, int64_t(stored), ratio)))
    throw PsdReadError(vora::Status(IL_ETOOLARGE, what + ": " + std::to_string(width) + " x " + std::to_string(height) +
                       " samples cannot come from " + std::to_string(stored) + " stored bytes (offset " +
                       std::to_string(in.tell()) + ")"));
  TmemoryException::checkAllocation(bytes);
  return bytes;
}

}  // namespace

int TpsdFile::readFlattenedImage(TrgbaData& out) { return readCompositeChannels(nullptr, out); }

int TpsdFile::readAlphaChannel(const Tstring& name, TrgbaData& out) { return readCompositeChannels(&name, out); }

int TpsdFile::readCompositeChannels(const Tstring* alphaName, TrgbaData& out) {
  clearError();
  PsdStream in(path_);
  if (!in.isOpen()) {
    setError(FL_EOPEN, "the file cannot be opened");
    return -1;
  }
  return guard(-1, -1, [&] {
    if (!readPsdHeader(in)) {
      setError(IL_ENOTIMAGE, "not a Photoshop document of version 1 with 8 or 16 bits");
      return -1;
    }
    readColorModeData(in);
    readImageResources(in);
    in.skip(in.u32("the layer and mask information length"));
    recomputeLayerSize();
    compression_ = in.u16("the composite's compression");
    if (compression_ > 1) {
      setError(IL_ENOCODEC, Tstring::tFormat("the composite's compression %u is neither raw (0) nor run-length (1)",
                                                 unsigned(compression_)));
      return -1;
    }
    // The composite: the first three channels (all when there are fewer than four). An alpha
    // channel: the names of resource 1006 belong to the last channels (a merged transparency,
    // when there is one, stands before them).
    uint32_t first = 0, count = channels_ < 4 ? channels_ : 3;
    if (alphaName) {
      const auto at = std::find(alphaNames_.begin(), alphaNames_.end(), *alphaName);
      if (at == alphaNames_.end() || alphaNames_.size() > channels_) {
        setError(FL_ESTATE, "no alpha channel named " + alphaName->str());
        return -1;
      }
      first = channels_ - uint32_t(alphaNames_.size()) + uint32_t(at - alphaNames_.begin()), count = 1;
    }
    const uint32_t w = imageWidth(), h = imageHeight();
    const uint16_t max = colorDepth() == k16Bits ? 65535 : 255;
    TpixelData16 pixels(colorDepth());
    const uint32_t bps = pixels.bytesPerChannel();
    if (compression_ == RAW) {
      in.skip(int64_t(uint64_t(w) * h * bps * first));
      for (uint32_t c = 0; c < count; ++c) {
        auto id = PHOTOSHOP_CHANNEL(c);
        checkChannelSize(in, w, h, bps, in.remaining(), RAW, "the composite");
        uint64_t length = uint64_t(w) * h * bps;
        pixels.addChannel(id, w, h, max);
        pixels.setCompressionMethod(id, RAW);
        pixels.setChannelCompressedPixels(id, in.samples(length, "the composite's raw data"));
        pixels.setChannelDataLength(id, uint32_t(length));
      }
    } else {
      // Row byte counts for every channel of the file, then each channel's rows.
      std::vector<uint8_t> table = in.bytes(uint64_t(h) * channels_ * 2, "the composite's row-length table");
      auto rowBytes = [&](uint32_t c, uint32_t y) { return vora::be16(&table[(size_t(c) * h + y) * 2]); };
      for (uint32_t c = 0; c < first; ++c)
        for (uint32_t y = 0; y < h; ++y) in.skip(rowBytes(c, y));
      for (uint32_t c = first; c < first + count; ++c) {
        auto id = PHOTOSHOP_CHANNEL(c - first);
        std::vector<uint16_t> rows(h);
        uint64_t sum = 0;
        for (uint32_t y = 0; y < h; ++y) sum += rows[y] = rowBytes(c, y);
        checkChannelSize(in, w, h, bps, sum, RLE, "the composite");
        pixels.addChannel(id, w, h, max);
        pixels.setCompressionMethod(id, RLE);
        pixels.setCompositeLengthInfo(id, std::move(rows));
        pixels.setChannelCompressedPixels(id, in.samples(sum, "the composite's run-length data"));
        pixels.setChannelDataLength(id, uint32_t(sum));
      }
    }
    // The composite's missing channels at the maximum, the default filled when asked for.
    if (!alphaName)
      for (PHOTOSHOP_CHANNEL id : {RED, GREEN, BLUE, TRANSPARENCY})
        if (!pixels.channel(id)) pixels.addChannel(id, w, h, max);
    out = TrgbaData(w, h, std::move(pixels), count);
    return 0;
  });
}

int TpsdFile::readAllChannelData() {
  if (readWhole() != Reading::kOk) return -1;
  if (!startOfChannelData_) return 0;  // no layers
  PsdStream in(path_);
  return guard(-1, -1, [&] {
    in.seek(startOfChannelData_);
    const uint16_t max = colorDepth() == k16Bits ? 65535 : 255;
    // All layers together: channels without data (and the transparency a layer is given) are
    // backed by no bytes, so the document's samples are held to what deflate could make of the
    // whole file: many empty layers with huge rectangles cannot add up to gigabytes.
    uint64_t total = 0;
    auto admit = [&](uint64_t bytes, const std::string& what) {
      total += bytes;
      if (!FLdecodeok(total, int64_t(in.size()), 1032))
        throw PsdReadError(vora::Status(IL_ETOOLARGE, what + ": the layers' samples (" + std::to_string(total) +
                           " bytes so far) cannot come from a file of " + std::to_string(in.size()) + " bytes"));
    };
    for (size_t i = 0; i < layers_.size(); ++i) {
      TpsdLayer& layer = *layers_[i];
      TpixelData16 pixels(colorDepth());
      for (const TpsdChannelInfo& info : layer.channelInfo) {
        // Masks have their own rectangles; a layer without a transparency channel is opaque.
        const TpsdLayer::Mask& m = layer.mask;
        int64_t w = int64_t(layer.right) - layer.left, h = int64_t(layer.bottom) - layer.top;
        uint16_t fill = info.id == TRANSPARENCY ? max : 0;
        if (info.id == USER_MASK) w = int64_t(m.right) - m.left, h = int64_t(m.bottom) - m.top;
        if (info.id == REAL_USER_MASK) w = int64_t(m.realRight) - m.realLeft, h = int64_t(m.realBottom) - m.realTop;
        if (info.id == USER_MASK || info.id == REAL_USER_MASK) fill = uint16_t(m.defaultColor * (max / 255));
        if (w < 0 || h < 0) w = h = 0;
        const std::string what = "layer " + std::to_string(i) + " channel " + std::to_string(info.id);
        if (info.length < 2) {  // no data: default values, for a rectangle the file can back
          admit(checkChannelSize(in, uint64_t(w), uint64_t(h), pixels.bytesPerChannel(), in.size(), ZIP, what), what);
          pixels.addChannel(info.id, uint32_t(w), uint32_t(h), fill);
          in.skip(info.length);
          continue;
        }
        uint16_t method = in.u16(what.c_str());
        if (method > ZIP_PREDICTION)
          throw PsdReadError(vora::Status(IL_ENOCODEC, what + ": unknown compression " + std::to_string(method)));
        admit(checkChannelSize(in, uint64_t(w), uint64_t(h), pixels.bytesPerChannel(), info.length - 2u,
                               TCompressionMethod(method), what), what);
        pixels.addChannel(info.id, uint32_t(w), uint32_t(h), fill);
        pixels.setCompressionMethod(info.id, TCompressionMethod(method));
        pixels.setChannelCompressedPixels(info.id, in.samples(info.length - 2u, what.c_str()));
        pixels.setChannelDataLength(info.id, info.length);
      }
      // A transparency channel for every layer, so that callers find one.
      if (!pixels.channel(TRANSPARENCY)) {
        admit(checkChannelSize(in, layer.width(), layer.height(), pixels.bytesPerChannel(), in.size(), ZIP, "a layer"),
              "a layer");
        pixels.addChannel(TRANSPARENCY, layer.width(), layer.height(), max);
      }
      layer.pixels = std::move(pixels);
    }
    return 0;
  });
}

int TpsdFile::decodeAllChannels(int threads) {
  std::vector<std::pair<TpixelData16*, PHOTOSHOP_CHANNEL>> work;
  for (auto& layer : layers_)
    for (PHOTOSHOP_CHANNEL id : layer->pixels.channelListArray()) work.emplace_back(&layer->pixels, id);
  return guard(-1, -1, [&] {
    vora::parallelEach(work.size(), threads, [&](size_t i) { work[i].first->getChannelPixPtr(work[i].second); });
    return 0;
  });
}

}  // namespace ktPhotoshop
