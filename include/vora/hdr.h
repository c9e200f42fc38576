// High dynamic range pictures: float pixel maps read by registered readers (ThdrImageFile,
// ThdrTranslationManager) and turned into 8-bit pictures by an exposure operator (linear scale
// and bias, a photographic tone map, a film-like exposure with defog and knee).
#pragma once

#include <cstdint>

#include <vora/export.h>
#include <vora/foundation/pixelmap.h>
#include <vora/foundation/tstring.h>

// Seven values and two flags, their meaning the reader's (the readers here: width, height,
// channels, data window x and y, data window width and height; tiled, half floats).
struct ThdrImageFileInfo {
  int32_t values[7] = {0, 0, 0, 0, 0, 0, 0};
  bool flags[2] = {false, false};
};

enum ThdrHardwareType : int { kHdrHardwareNone = 0 };
enum ThdrImageType : int { kHdrImageNone = 0 };

class VORA_API ThdrExposure {
 public:
  virtual ~ThdrExposure();
  // The 8-bit picture (4 channels, blue, green, red, alpha) of a float picture: 0, or -1.
  virtual int convert(TgenericPixelMap<float>& in, TpixelMap& out) const;
};

class VORA_API ThdrImageFile {
 public:
  virtual ~ThdrImageFile();
  virtual int read(TgenericPixelMap<float>& out, unsigned flags) = 0;
  virtual int load(TpixelMap& out, ThdrExposure* exposure, unsigned flags);
  virtual int loadAndResize(TgenericPixelMap<float>& out, unsigned width, unsigned height, unsigned flags);
  virtual int loadAndResize(TpixelMap& out, unsigned width, unsigned height, ThdrExposure* exposure, unsigned flags);
  virtual int glLoad(ThdrHardwareType, ThdrImageType, ThdrExposure*, unsigned);  // -1: not supported
  virtual int reserved() = 0;  // kept for the table's layout; nothing here calls it
  virtual int open(const Tstring& path, ThdrImageFileInfo& info) = 0;
  const ThdrImageFileInfo& info() const { return info_; }

  // A float picture resized in place to width x height with box weights, each output pixel's box
  // centred on x * (W / w) (half an output pixel off centre, kept as readers expect): 0, or -1.
  static int resize(TgenericPixelMap<float>& map, unsigned width, unsigned height);

 protected:
  ThdrImageFileInfo info_;
  friend class ThdrTranslationManager;  // opens a new reader into its own info
};

class VORA_API ThdrLinearExposure : public ThdrExposure {
 public:
  // Colour scale exactly 0: scale and bias found from the picture's range (alpha's apart).
  int convert(TgenericPixelMap<float>& in, TpixelMap& out) const override;
  void setColorScaleAndBias(float scale, float bias) { colorScale_ = scale, colorBias_ = bias; }
  float colorScale() const { return colorScale_; }
  float colorBias() const { return colorBias_; }
  void setAlphaScaleAndBias(float scale, float bias) { alphaScale_ = scale, alphaBias_ = bias; }
  float alphaScale() const { return alphaScale_; }
  float alphaBias() const { return alphaBias_; }

 private:
  float colorScale_ = 0, colorBias_ = 0, alphaScale_ = 0, alphaBias_ = 0;
};

class VORA_API ThdrToneMap : public ThdrExposure {
 public:
  int convert(TgenericPixelMap<float>& in, TpixelMap& out) const override;
  void setMiddleGreyValue(float v) { middleGrey_ = v; }
  float middleGreyValue() const { return middleGrey_; }

 private:
  float middleGrey_ = 0.36f;
};

// Film-like: exposure in stops, defog, and a knee compressing highlights between 2^kneeLow and
// 2^kneeHigh. Converting caches the fog colour: one object converts on one thread at a time.
class VORA_API ThdrOpenEXR : public ThdrExposure {
 public:
  int convert(TgenericPixelMap<float>& in, TpixelMap& out) const override;
  void setExposure(float v) { exposure_ = v; }
  void setDefog(float v) { defog_ = v; }
  void setKneeLow(float v) { kneeLow_ = v; }
  void setKneeHigh(float v) { kneeHigh_ = v; }
  float exposure() const { return exposure_; }
  float defog() const { return defog_; }
  float kneeLow() const { return kneeLow_; }
  float kneeHigh() const { return kneeHigh_; }
  const float* fogColor() const { return fog_; }
  // f > 0 with ln(a f + 1) / f = b, by doubling then 30 bisections.
  static float kneeFactor(float a, float b);

 protected:
  bool computeFogColor(TgenericPixelMap<float>& in) const;

 private:
  float exposure_ = 0, defog_ = 0, kneeLow_ = 0, kneeHigh_ = 5.0f;
  mutable float fog_[3] = {0, 0, 0};
};

// Display pixels of a float picture: each colour scaled by 2^exposure, raised to 1/gamma, clamped
// to 0 .. 1, times 255 and truncated (colours as the linear operator takes them; negative values,
// -infinity included, and NaN give 0); alpha (four or more channels) clamped likewise, else 255. The curve is evaluated once per output level (255
// thresholds found on it), so every value costs a few comparisons: the same bytes, faster than
// computing the power per value. 0, or -1 for an empty picture or a gamma that is not positive.
VORA_API int hdrExposeGamma(const TgenericPixelMap<float>& in, TpixelMap& out, float exposure, float gamma);

using ThdrFactory = ThdrImageFile* (*)(void* data);

// Readers by file extension, newest registration first. Not locked: register at start-up.
class VORA_API ThdrTranslationManager {
 public:
  static ThdrTranslationManager& instance();
  void registerTranslator(ThdrFactory factory, const TstringArray& extensions, void* data);
  void deregisterTranslator(ThdrFactory factory, void* data);
  // The first reader, newest first, whose extension fits (any case) and that opens the file;
  // the caller owns it. Null when none does.
  ThdrImageFile* createAndOpen(const Tstring& path) const;
  bool isFileExtensionSupported(const Tstring& path) const;
  void getSupportedFileExtensions(TstringArray& out) const;  // sorted, each once
  ~ThdrTranslationManager();

  static ThdrTranslationManager* gInstance;

 private:
  struct Record {
    TstringArray extensions;
    ThdrFactory factory;
    void* data;
    Record* next;
  };
  Record* first_ = nullptr;
};
