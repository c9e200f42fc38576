// Photoshop documents: channel data and its codecs (raw, PackBits run-length, ZIP, ZIP with
// prediction) and the document model and its reader (in
// <vora/psd_document.h>, included at the end).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <stdexcept>
#include <vector>

#include <vora/export.h>
#include <vora/foundation/kt.h>

namespace ktPhotoshop {

enum TdataFormat : int { k8Bits = 0, k16Bits = 1 };

// Channel ids of the file.
typedef int16_t PHOTOSHOP_CHANNEL;
constexpr PHOTOSHOP_CHANNEL RED = 0, GREEN = 1, BLUE = 2, TRANSPARENCY = -1, USER_MASK = -2,
                            REAL_USER_MASK = -3;

enum TCompressionMethod : uint16_t { RAW = 0, RLE = 1, ZIP = 2, ZIP_PREDICTION = 3 };

// Sample buffers of several megabytes come from their own mappings in large pages where the
// system offers them: fresh memory is faulted in 2 MiB at a time, not 4 KiB.
VORA_API void* psdAllocateSamples(size_t bytes);
VORA_API void psdReleaseSamples(void* p, size_t bytes);

// The memory of sample buffers; as their allocator, new elements are left uninitialised (a resize
// without a zero fill), as the decoders write every sample or fill what they do not reach.
template <typename T>
struct TsampleMemory : std::allocator<T> {
  using value_type = T;
  T* allocate(size_t n) { return static_cast<T*>(psdAllocateSamples(n * sizeof(T))); }
  void deallocate(T* p, size_t n) noexcept { psdReleaseSamples(p, n * sizeof(T)); }
  template <typename U>
  struct rebind {  // itself, not std::allocator's
    using other = TsampleMemory<U>;
  };
};
template <typename T>
using TuninitAllocator = kt::NoFillAllocator<T, TsampleMemory<T>>;
using TsampleBuffer = std::vector<uint8_t, TuninitAllocator<uint8_t>>;

// One channel: its compressed bytes as the file holds them and its raw samples (8-bit bytes, or
// 16-bit samples in machine order), each decoded or encoded from the other on demand.
struct Tchannel {
  uint32_t compressedLength = 0;
  TCompressionMethod method = RAW;
  uint32_t sampleCount = 0;
  uint32_t width = 0, height = 0;
  uint32_t format = 0;  // 0 8-bit, 1 16-bit, anything else invalid
  std::vector<uint16_t> rowLengths;  // the separate row-length table (the composite's), if kept
  bool hasRowTable = false;
  TsampleBuffer compressed;
  bool hasCompressed = false;
  TsampleBuffer raw;
  bool hasRaw = false;
  uint16_t defaultValue = 0;
  uint32_t dataLength = 0;  // the file's channel length (it counts the 2-byte compression word)

  uint32_t bytesPerSample() const { return format == 0 ? 1 : format == 1 ? 2 : 0; }
  uint32_t rowBytes() const { return width * bytesPerSample(); }
};

// The messages the Photoshop classes throw.
struct TpsdException : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws for a channel whose sample format is neither 8 nor 16 bits.
inline void requireKnownFormat(const Tchannel& c) {
  if (c.bytesPerSample() == 0) throw TpsdException("Invalid format specification for pix format");
}

class VORA_API TpixelData16 {
 public:
  explicit TpixelData16(TdataFormat format);
  TpixelData16(TdataFormat format, uint32_t width, uint32_t height, bool allocStandardChannels);

  // Red, green, blue (and transparency) channels of the size, raw buffers at the default value.
  void allocChannels(uint32_t width, uint32_t height, bool withTransparency);
  Tchannel& addChannel(PHOTOSHOP_CHANNEL id, uint32_t width, uint32_t height, uint16_t defaultValue = 0);
  Tchannel* channel(PHOTOSHOP_CHANNEL id);
  const Tchannel* channel(PHOTOSHOP_CHANNEL id) const;
  uint32_t width(PHOTOSHOP_CHANNEL id) const;
  uint32_t height(PHOTOSHOP_CHANNEL id) const;
  uint32_t size(PHOTOSHOP_CHANNEL id) const;

  bool is8bit() const { return format_ == k8Bits; }
  bool is16bit() const { return format_ == k16Bits; }
  uint32_t bytesPerChannel() const { return is16bit() ? 2 : 1; }
  uint32_t getColorDepth() const { return 8 * bytesPerChannel(); }
  uint32_t getMaxColor() const { return is16bit() ? 65535 : 255; }
  // Half way up the scale, rounded up (128 or 32768): our choice.
  uint32_t getMidValue() const { return (getMaxColor() + 1) / 2; }

  void setCompressionMethod(PHOTOSHOP_CHANNEL id, TCompressionMethod method);
  TCompressionMethod compressionMethod(PHOTOSHOP_CHANNEL id) const;
  void setChannelCompressedPixels(PHOTOSHOP_CHANNEL id, TsampleBuffer bytes);
  const TsampleBuffer* channelCompressedPixels(PHOTOSHOP_CHANNEL id) const;
  void setChannelDataLength(PHOTOSHOP_CHANNEL id, uint32_t n);
  uint32_t channelDataLength(PHOTOSHOP_CHANNEL id) const;
  void setCompositeLengthInfo(PHOTOSHOP_CHANNEL id, std::vector<uint16_t> table);
  const std::vector<uint16_t>* compositeLenInfo(PHOTOSHOP_CHANNEL id) const;

  void setChannelRawPixels(PHOTOSHOP_CHANNEL id, std::vector<uint8_t> samples);
  // The raw samples (decoded from the compressed bytes, or the default value, on first use);
  // null for a channel that does not exist. 16-bit samples are uint16_t in machine order.
  uint8_t* getChannelPixPtr(PHOTOSHOP_CHANNEL id);
  uint8_t* getRedPixelPtr() { return getChannelPixPtr(RED); }
  uint8_t* getGreenPixelPtr() { return getChannelPixPtr(GREEN); }
  uint8_t* getBluePixelPtr() { return getChannelPixPtr(BLUE); }
  uint8_t* getTransparencyPixelPtr() { return getChannelPixPtr(TRANSPARENCY); }
  void setChannelValue(PHOTOSHOP_CHANNEL id, uint32_t index, uint16_t value);
  void setRed(uint32_t index, uint16_t v) { setChannelValue(RED, index, v); }
  void setGreen(uint32_t index, uint16_t v) { setChannelValue(GREEN, index, v); }
  void setBlue(uint32_t index, uint16_t v) { setChannelValue(BLUE, index, v); }
  void setTrans(uint32_t index, uint16_t v) { setChannelValue(TRANSPARENCY, index, v); }
  // Every colour channel to value, the transparency channel (when there is one) to transparency.
  void initialize(uint16_t value, uint16_t transparency);
  void initializeTransparency(uint16_t value);

  // Encodes the raw samples by the channel's method (once: compressed bytes are kept as they are).
  // separateTable: run-length row counts go to the row-length table instead of in front of the data.
  bool compressChannel(PHOTOSHOP_CHANNEL id, bool separateTable);
  // Decodes the compressed bytes into raw samples (what getChannelPixPtr does on first use).
  // Returns the codec's answer: the run-length decoder answers false in every case.
  bool decodeChannel(PHOTOSHOP_CHANNEL id);

  // Copies the raw samples of source's channel id (formats must match, else "Channel format
  // mismatch in copy"); the span is clamped to the source's length.
  void copyChannel(PHOTOSHOP_CHANNEL id, const TpixelData16& source);
  // Copies the source channel into this one with its first sample at (x, y), clipped.
  void copyChannel(PHOTOSHOP_CHANNEL id, int32_t x, int32_t y, const TpixelData16& source);
  // Copies the rectangle {left, top, right, bottom} (right/bottom exclusive) of every channel of
  // source into this data at point {x, y}, clipped to both.
  void copyRect(const int32_t rect[4], const int32_t point[2], const TpixelData16& source);
  // Scales every value of the colour and transparency channels by opacity / 255 (single
  // precision, truncated); 255 changes nothing. The colour is scaled too: compositing relies on it.
  void applyOpacity(uint8_t opacity);
  static void memAND(uint8_t* destination, const uint8_t* source, size_t count);
  // The ids of the channels, in ascending order.
  std::vector<PHOTOSHOP_CHANNEL> channelListArray() const;

  TdataFormat format() const { return format_; }

 private:
  TdataFormat format_;
  std::map<PHOTOSHOP_CHANNEL, Tchannel> channels_;
};

// The codecs themselves, for the document reader and tests. Encoders return false
// (and leave nothing) on failure; decoders fill raw from compressed.
namespace codec {
VORA_API bool decode(Tchannel& c);
VORA_API bool encode(Tchannel& c, bool separateTable);
// One PackBits row of count bytes; returns the bytes written (capacity: (count + 4) / 5 + count).
VORA_API size_t packBitsRow(const uint8_t* src, size_t count, uint8_t* out);
// One 8-bit PackBits row of inLen bytes into want bytes (output not reached is zero); true when
// exactly want bytes came out. The plain form moves a packet at a time, the reference of the
// other, which copies in blocks.
VORA_API bool unpackBits8(const uint8_t* in, size_t inLen, uint8_t* out, size_t want);
VORA_API bool unpackBits8Plain(const uint8_t* in, size_t inLen, uint8_t* out, size_t want);
}  // namespace codec

}  // namespace ktPhotoshop

#include <vora/psd_document.h>
