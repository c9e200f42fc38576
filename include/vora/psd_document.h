// The Photoshop document model and its reader (namespace ktPhotoshop). Included by
// <vora/photoshop.h>; include that one.
//
// Reading never throws to the caller except for its one documented exception ("Invalid information read
// from file" for a layer of more than 56 channels). A file that ends before the data it declares,
// or whose lengths cannot hold what they claim, fails the reading function with its documented failure
// result (false, -1 or 0) and lastReadError() says where; no allocation is larger than what the
// file can hold. Memory exhaustion raises the warning rFileNoMemoryPSDfile.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <vora/export.h>
#include <vora/foundation/tfilepath.h>
#include <vora/foundation/tstring.h>
#include <vora/photoshop.h>

namespace ktPhotoshop {

enum statusCode : int { kSuccess = 0, kFailure = 1 };

// Four characters as the file holds them, big-endian ('8BIM' == 0x3842494D).
constexpr uint32_t fourCC(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) << 24 | uint32_t(uint8_t(s[1])) << 16 | uint32_t(uint8_t(s[2])) << 8 |
         uint8_t(s[3]);
}
// The four characters of a key, non-printable bytes as '.' ("lsct", ".hue").
VORA_API Tstring fourCCText(uint32_t key);

// The process-wide warning collector.
class VORA_API TpsdFileWarning {
 public:
  enum TpsdWarningMsg : uint32_t {
    rFileBitmapColorMode = 1,
    rFileGrayscaleColorMode = 2,
    rFileIndexedColorMode = 4,
    rFileCMYKcolorMode = 8,
    rFileMultiChannelColorMode = 16,
    rFileDuotoneColorMode = 32,
    rFileLabColorMode = 64,
    rFileImageResources = 128,
    rFileBlendMode = 256,
    rFileClipping = 512,
    rFileBlendingRanges = 1024,
    rFileLayerEffects = 2048,
    rFileTransparencyShapeLayer = 4096,
    rFileLayerMaskAsGlobal = 8192,
    rFileVectorMaskAsGlobal = 16384,
    rFileAdjustmentLayer = 32768,
    rFileObjectBasedEffects = 65536,
    rFilePatterns = 131072,
    rFileAnnotations = 262144,
    rFileBlendClippingElements = 524288,
    rFileBlendInteriorEffects = 1048576,
    rFileKnockoutOptions = 2097152,
    rFileEmptyLayerSet = 4194304,
    rFileNoMemoryPSDfile = 8388608,
  };

  static TpsdFileWarning& instance();

  // The message key of a bit ("s_TpsdFileWarningStrings.rFileLayerEffects"), null for no bit.
  const char* key(TpsdWarningMsg bit) const;
  // Formats the key's text with (layerName, fileBaseName), or (fileBaseName) when the name is
  // empty, and appends it and the bit. Duplicates are kept.
  void addWarning(TpsdWarningMsg bit, const Tstring& layerName, const Tstring& fileBaseName);
  const TstringArray& messages() const { return messages_; }
  const std::vector<uint32_t>& warningBits() const { return bits_; }
  // The bits recorded so far, or-ed together.
  uint32_t allBits() const;
  void clear();

 private:
  TpsdFileWarning();
  std::vector<std::pair<uint32_t, const char*>> keys_;
  TstringArray messages_;
  std::vector<uint32_t> bits_;
};

// A block of additional information (a layer's or the document's): signature, key, length, data.
struct TpsdInfoBlock {
  uint32_t signature = 0, key = 0, length = 0;
  std::vector<uint8_t> data;
};

struct TpsdImageResource {
  uint32_t signature = 0;
  uint16_t id = 0;
  std::vector<char> name;  // NUL-terminated
  uint32_t dataSize = 0;   // rounded up to even
  std::vector<uint8_t> data;  // absent for 1006, 1044 and 1053
  uint32_t value1044 = 0;
};

struct TpsdChannelInfo {
  PHOTOSHOP_CHANNEL id = 0;
  uint32_t length = 0;  // counts the 2-byte compression word
  uint32_t reserved = 0;
};

// One layer record (bottom layer first in the document's list).
class VORA_API TpsdLayer {
 public:
  TpsdLayer(TdataFormat format) : pixels(format) {}

  int32_t top = 0, left = 0, bottom = 0, right = 0;
  uint16_t channelCount = 0;
  std::vector<TpsdChannelInfo> channelInfo;
  uint32_t blendSignature = 0, blendKey = 0;
  uint8_t opacity = 255, clipping = 0, flags = 0, filler = 0;
  uint32_t extraDataLength = 0;
  struct Mask {
    uint32_t length = 0;
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    uint8_t defaultColor = 0, flags = 0, realFlags = 0, realUserMaskBackground = 0;
    int32_t realTop = 0, realLeft = 0, realBottom = 0, realRight = 0;
  } mask;
  struct BlendingRanges {
    uint32_t length = 0;
    uint32_t compositeGreySource = 0, compositeGreyDestination = 0;
    std::vector<std::pair<uint32_t, uint32_t>> channels;  // source, destination per channel
  } blendingRanges;
  uint32_t additionalInfoCount = 0;
  std::vector<TpsdInfoBlock> additionalInfo;
  uint32_t sectionType = 0;  // 0 layer, 1 open set, 2 closed set, 3 bounding divider
  uint32_t sectionBlendSignature = 0, sectionBlendKey = 0;
  uint32_t layerId = 0;
  Tstring name;
  TpixelData16 pixels;  // filled by TpsdFile::readAllChannelData

  // The rectangle's size (0 for an empty or inverted one).
  uint32_t width() const { return right > left ? uint32_t(int64_t(right) - left) : 0; }
  uint32_t height() const { return bottom > top ? uint32_t(int64_t(bottom) - top) : 0; }
  bool isVisible() const { return !(flags & 2); }  // flags bit 1: hidden
  bool isLayerSet() const { return sectionType == 1 || sectionType == 2; }
  const TpsdInfoBlock* block(uint32_t key) const;
  // New samples (channels 0-2 and -1; the masks keep their own rectangles): the rectangle follows
  // their size from (left, top). False, nothing changed, when those channels differ in size.
  bool setPixels(TpixelData16 samples);
  // Whether the colour and transparency channels of samples are of one size, as setPixels needs.
  static bool fitsOneRectangle(const TpixelData16& samples);
};
using TpsdLayerPtrArray = std::vector<std::unique_ptr<TpsdLayer>>;

// An image handed out: its size, pixel data and the number of channels it holds.
class VORA_API TrgbaData {
 public:
  TrgbaData() : pixels_(k8Bits) {}
  TrgbaData(uint32_t width, uint32_t height, TpixelData16 pixels, uint32_t channelCount)
      : width_(width), height_(height), channelCount_(channelCount), pixels_(std::move(pixels)) {}
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  uint32_t channelCount() const { return channelCount_; }
  TpixelData16& pixelData() { return pixels_; }
  const TpixelData16& pixelData() const { return pixels_; }

 private:
  uint32_t width_ = 0, height_ = 0, channelCount_ = 0;
  TpixelData16 pixels_;
};

class VORA_API TphotoshopFile {
 public:
  virtual ~TphotoshopFile();
  virtual int open(const TfilePath& path, bool editMode) = 0;
  virtual int create(const TfilePath& path, unsigned short& width, unsigned short& height) = 0;
  virtual int close() = 0;

  void setSize(uint32_t width, uint32_t height) {
    width_ = width;
    height_ = height;
  }
  // 8 or 16; anything else throws TpsdException("Invalid color depth").
  void setColorDepth(unsigned depth);
  TdataFormat colorDepth() const { return depth_; }
  uint32_t imageWidth() const { return width_; }
  uint32_t imageHeight() const { return height_; }
  const TfilePath& filePath() const { return path_; }
  bool isFileEditMode() const { return editMode_; }
  void setIsFileEditMode(bool on) { editMode_ = on; }
  bool saveNeeded() const { return saveNeeded_; }

 protected:
  TfilePath path_;
  uint32_t width_ = 0, height_ = 0;
  TdataFormat depth_ = k8Bits;
  bool editMode_ = false, saveNeeded_ = false;
};

class PsdStream;

class VORA_API TpsdFile : public TphotoshopFile {
 public:
  TpsdFile();
  ~TpsdFile() override;

  // Records the edit-mode flags, reads the header only; 0 whether or not it was accepted.
  int open(const TfilePath& path, bool editMode) override;
  // Starts a new document of that size at path, in the colour mode (setColorMode) and depth
  // (setColorDepth) set before: no layers yet. 0, or -1 for an empty size.
  int create(const TfilePath& path, unsigned short& width, unsigned short& height) override;
  int close() override;

  bool readAllLayerRecordInformation();
  int getAllLayerNames(TstringArray& names);
  int readLayerSetNames(TstringArray& names);
  int readAlphaList(TstringArray& names);
  // The stored composite (raw or run-length) as TrgbaData: 0, or -1 on failure.
  int readFlattenedImage(TrgbaData& out);
  // One alpha channel of the stored composite by its name (alphaNames()), as channel 0 of a
  // one-channel TrgbaData: 0, or -1 with lastReadError().
  int readAlphaChannel(const Tstring& name, TrgbaData& out);
  // fromLayers: the document's layers composited instead (RGB and grey documents), layers of
  // hidden sets left out; 4 channels (transparency last). 0, or -1 with lastReadError().
  int readFlattenedImage(TrgbaData& out, bool fromLayers);
  // The layers of the named set composited alone. An empty or hidden set gives a transparent
  // image and the warning rFileEmptyLayerSet; -1 when no set has the name.
  int readLayerSetImage(const Tstring& setName, TrgbaData& out);
  // One layer's stored samples placed in the document at its rectangle (opacity, masks and blend
  // mode not applied), transparent around it, or only its own rectangle; 4 channels, a grey
  // layer's one in all three colours. 0, or -1 with lastReadError() (no layer of that name).
  int readLayerImage(const Tstring& layerName, TrgbaData& out, bool ownRectangle = false);
  // The set record at index and every set around it are visible.
  bool isLayerSetVisible(size_t index) const;
  // For the texture facade (readAllChannelData): reads the records, then every
  // layer's channel data into its pixels, compressed; samples decode on demand. 0 or -1.
  int readAllChannelData();
  // Decodes every channel of every layer now (what asking for the samples does one by one), the
  // channels shared out over threads (0: every core). 0, or -1 when memory runs out (warning).
  int decodeAllChannels(int threads = 0);

  // The model as read.
  uint16_t channels() const { return channels_; }
  uint16_t bitDepth() const { return bitDepth_; }
  uint16_t colorMode() const { return colorMode_; }
  const uint8_t* reserved() const { return reserved_; }
  uint16_t compression() const { return compression_; }
  int32_t colorModeDataLength() const { return colorModeLength_; }
  const std::vector<uint8_t>& colorModeData() const { return colorModeData_; }
  int32_t imageResourcesLength() const { return resourcesLength_; }
  uint32_t imageResourceCount() const { return uint32_t(resources_.size()); }
  const std::vector<TpsdImageResource>& imageResources() const { return resources_; }
  const TstringArray& alphaNames() const { return alphaNames_; }
  const std::vector<int32_t>& alphaIdentifiers() const { return alphaIds_; }
  uint32_t layerAndMaskLength() const { return layerMaskLength_; }
  uint32_t layerInfoLength() const { return layerInfoLength_; }
  uint32_t layerCount() const { return layerCount_; }
  const TpsdLayerPtrArray& layers() const { return layers_; }
  TpsdLayerPtrArray& layers() { return layers_; }
  const Tstring& sectionDividerName() const { return dividerName_; }
  uint32_t globalLayerMaskLength() const { return globalMaskLength_; }
  const std::vector<uint8_t>& globalLayerMask() const { return globalMask_; }
  uint32_t additionalGlobalInfoCount() const { return uint32_t(globalBlocks_.size()); }
  const std::vector<TpsdInfoBlock>& additionalGlobalInfo() const { return globalBlocks_; }
  // Cached stream positions (0 while not known).
  uint32_t startOfChannelData() const { return startOfChannelData_; }
  uint32_t endOfImageResources() const { return endOfResources_; }
  uint32_t endOfGlobalMask() const { return endOfGlobalMask_; }
  uint32_t endOfAdditionalInfo() const { return endOfAdditionalInfo_; }
  // Why the last reading call failed ("" after a success).
  const Tstring& lastReadError() const { return lastError_; }
  // Its code (FL_E* or IL_E*, as in <vora/ilib.h>); 0 after a success.
  int lastReadErrorCode() const { return lastErrorCode_; }
  // The layer of that name (first from the bottom), or null.
  TpsdLayer* findLayer(const Tstring& name);

  // Building a document (after create): layers go on top of the ones added before; pixels hold
  // channels 0-2 (0 alone for grey), -1 transparency, -2 user mask (placed at the layer's mask
  // rectangle). Colour and transparency channels of different sizes leave the layer empty
  // (TpsdLayer::setPixels). A set takes the layers from firstChild up. Alpha channels are
  // document-sized.
  void setColorMode(uint16_t mode);  // 1 grey, 3 RGB
  TpsdLayer& addLayer(const Tstring& name, int32_t left, int32_t top, TpixelData16 pixels);
  void addLayerSet(const Tstring& name, size_t firstChild, bool open = true);
  void addAlphaChannel(const Tstring& name, TpixelData16 pixels);
  // The alpha channel of that name added since create; false when there is none.
  bool removeAlphaChannel(const Tstring& name);
  // Writes the document to path (empty: its own): the layers' channels by layerCompression, the
  // composite made from the layers over white (run-length at 8 bits, raw at 16) with the alpha
  // channels after it. 0, or -1 with lastReadError().
  int save(const TfilePath& path, TCompressionMethod layerCompression);
  bool isCreated() const { return created_; }

 protected:
  bool readPsdHeader(PsdStream& in);
  void readColorModeData(PsdStream& in);
  void readImageResources(PsdStream& in);
  void readAllLayerInfo(PsdStream& in);
  void readGlobalMaskInfo(PsdStream& in);
  void readAdditionalGlobalInfo(PsdStream& in);
  bool seekToEndOfChannelData(PsdStream& in);
  void addWarningMessage(const Tstring& layerName, TpsdFileWarning::TpsdWarningMsg bit);
  // Sum of the channel data lengths of all layers (the "layer sizes").
  void recomputeLayerSize();

 private:
  enum class Reading { kOk, kCannotOpen, kBadHeader, kCorrupt, kNoMemory };
  // The whole structure without pixels, header first; readWhole opens the file and turns the
  // failures (a truncated or lying file, memory exhaustion) into its answer.
  Reading readStructure(PsdStream& in);
  Reading readWhole();
  // The composite's colour channels, or the named alpha channel (alphaName not null).
  int readCompositeChannels(const Tstring* alphaName, TrgbaData& out);
  void readLayerRecord(PsdStream& in, TpsdLayer& layer, std::vector<TpsdFileWarning::TpsdWarningMsg>& warnings);
  // For each set record, the index of its divider; -1 for other layers.
  std::vector<int> setBounds() const;
  // The pixel layers of [from, to) outside hidden sets, bottom first.
  std::vector<const TpsdLayer*> compositeList(size_t from, size_t to) const;
  int compositeInto(const std::vector<const TpsdLayer*>& list, TrgbaData& out);
  // Throws PsdReadError when the document's pixels could not come from its file.
  void checkDocumentSize() const;
  void noMemory();
  // The edge of every failing call: the text and code it leaves for lastReadError(), also kept
  // as the thread's last status.
  void setError(int code, const Tstring& text);
  void clearError() { lastError_ = Tstring(), lastErrorCode_ = 0; }
  // Runs a reading body: memory exhaustion (warning 8388608) answers onMemory, a read past the end
  // or a size the file cannot back answers onCorrupt, with lastReadError() saying why.
  template <typename R, typename F>
  R guard(R onMemory, R onCorrupt, F&& body);

  uint32_t layerMaskLength_ = 0, layerInfoLength_ = 0;
  Tstring dividerName_;
  std::vector<TpsdInfoBlock> globalBlocks_;
  uint32_t globalMaskLength_ = 0;
  std::vector<uint8_t> globalMask_;
  TstringArray alphaNames_;
  std::vector<int32_t> alphaIds_;
  std::vector<TpsdImageResource> resources_;
  uint32_t layerCount_ = 0;
  int32_t colorModeLength_ = 0;
  std::vector<uint8_t> colorModeData_;
  int32_t resourcesLength_ = 0;
  uint32_t startOfChannelData_ = 0, endOfResources_ = 0, endOfGlobalMask_ = 0, endOfAdditionalInfo_ = 0;
  uint16_t channels_ = 0;
  uint8_t reserved_[6] = {};
  uint16_t bitDepth_ = 0, colorMode_ = 0, compression_ = 0;
  TpsdLayerPtrArray layers_;  // the composite is handed out by readFlattenedImage, not kept
  uint64_t channelDataSize_ = 0;
  bool created_ = false;
  std::vector<TpixelData16> alphaPixels_;
  Tstring lastError_;
  int lastErrorCode_ = 0;
};

// Compositing. The blend mode of a key (the fifteen known keys; any other joins the table as 0,
// normal). blendLayerPixels blends source onto destination (same geometry, channels 0, 1, 2, -1)
// over rect = {first row, first column, end row, end column} by the mode of blendKey.
VORA_API int blendModeOf(uint32_t blendKey);
VORA_API void blendLayerPixels(const TpixelData16& source, TpixelData16& destination, uint32_t blendKey,
                               const int32_t rect[4]);
// Composites layers (bottom first) onto destination (made document-sized and transparent when
// null): hidden, empty and grouped layers are skipped; a layer's user mask is ANDed bytewise into
// its transparency, the clipping group after it blended onto it, its opacity applied.
VORA_API void blendLayersInSet(const std::vector<const TpsdLayer*>& layers, uint32_t width, uint32_t height,
                               TdataFormat format, std::unique_ptr<TpixelData16>& destination);

// Free functions (statusCode 0 success, 1 failure).
VORA_API bool isFilePsd(const TfilePath& path);
VORA_API statusCode openPsdFile(const TfilePath& path, TphotoshopFile*& out, bool editMode);
// Calls close and answers true for a TpsdFile; false otherwise. A document built in memory
// (create) whose edit-mode flag is clear is first written to its path (savePsdFile); a document
// read from a file and left unchanged already stands there as it is, and is not rewritten.
VORA_API bool closePsdFile(TphotoshopFile*& file);
// Writes the document to path (an empty path: its own), run-length layer channels.
VORA_API statusCode savePsdFile(TphotoshopFile* file, const TfilePath& path);
VORA_API statusCode getLayerNames(TphotoshopFile* file, TstringArray& names);
VORA_API statusCode getLayerSetNames(TphotoshopFile* file, TstringArray& names);

}  // namespace ktPhotoshop
