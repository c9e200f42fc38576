// Colour lookup tables (gamma, 1D table, 3D cube, pre-LUT curves), the lin-to-log
// pre-transform, the six LUT file formats; and batch application to buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vora/export.h>
#include <vora/foundation/kt.h>
#include <vora/foundation/tfilestream.h>
#include <vora/foundation/tstring.h>

// Four floats: red, green, blue and a fourth component. The default constructor leaves them unset.
struct TscLutColor {
  float red, green, blue, fourth;
  TscLutColor() = default;
  TscLutColor(float r, float g, float b, float a = 0.0f) : red(r), green(g), blue(b), fourth(a) {}
};

class VORA_API TccLut {
 public:
  enum Kind : uint32_t { kGamma = 1, kTable = 2, kCube = 3 };
  using Curve = kt::vector<kt::pair<float, float>>;

  TccLut(float gammaRed, float gammaGreen, float gammaBlue);
  explicit TccLut(kt::vector<TscLutColor>& table);  // takes the entries, leaving table empty
  TccLut(unsigned sizeRed, unsigned sizeGreen, unsigned sizeBlue, kt::vector<TscLutColor>& table);
  TccLut(const TccLut&) = default;
  TccLut& operator=(const TccLut&) = default;
  ~TccLut() = default;

  void setPreLUT(Curve curve);
  void setPreLUT(Curve red, Curve green, Curve blue);
  // The reference conversion; false for an unknown kind (out untouched).
  bool convert(const TscLutColor& in, TscLutColor& out) const;

  // Read access for tools and the batch path.
  bool perChannel() const { return perChannel_; }
  bool preLutOutOfRange() const { return preLutOutOfRange_; }
  uint32_t kind() const { return kind_; }
  const Curve& preLut(int channel) const { return channel == 0 ? preRed_ : channel == 1 ? preGreen_ : preBlue_; }
  void gammas(float& r, float& g, float& b) const { r = gammaRed_, g = gammaGreen_, b = gammaBlue_; }
  void cubeSize(unsigned& r, unsigned& g, unsigned& b) const { r = sizeRed_, g = sizeGreen_, b = sizeBlue_; }
  const kt::vector<TscLutColor>& table() const { return table_; }

  static float applyPreLut(float x, const Curve& curve);

 private:
  bool perChannel_ = true;
  bool preLutOutOfRange_ = false;
  Curve preRed_, preGreen_, preBlue_;
  uint32_t kind_ = 0;
  float gammaRed_ = 1, gammaGreen_ = 1, gammaBlue_ = 1;
  unsigned sizeRed_ = 0, sizeGreen_ = 0, sizeBlue_ = 0;
  kt::vector<TscLutColor> table_;
};

// Scene-linear to normalised log film code values.
class VORA_API TscLutLin2LogPreTransform {
 public:
  TscLutLin2LogPreTransform() = default;
  TscLutLin2LogPreTransform(float filmGamma, float refCode, float refLinear);
  TscLutLin2LogPreTransform& operator=(const TscLutLin2LogPreTransform&) = default;
  bool PreTransform(const TscLutColor& in, TscLutColor& out) const;
  float filmGamma() const { return filmGamma_; }
  float refCode() const { return refCode_; }
  float refLinear() const { return refLinear_; }

 private:
  float filmGamma_ = 0.6f, refCode_ = 685.0f, refLinear_ = 0.9f;
};

// ---- LUT files ---------------------------------------------------------------------------
class VORA_API TccLutParser {
 public:
  virtual Tstring extension() const = 0;
  virtual TccLut* parse(TfileStream& stream) const = 0;  // null: not this format, or malformed
  virtual ~TccLutParser() = default;
};

#define VORA_LUT_PARSER(Name)                                  \
  class VORA_API Name : public TccLutParser {                  \
   public:                                                     \
    Tstring extension() const override;                        \
    TccLut* parse(TfileStream& stream) const override;         \
  };
VORA_LUT_PARSER(TccLutParserCSP)
VORA_LUT_PARSER(TccLutParserMORAINE)
VORA_LUT_PARSER(TccLutParserIRIDAS)
VORA_LUT_PARSER(TccLutParserARRICUBE)
VORA_LUT_PARSER(TccLutParserTALLOW)
VORA_LUT_PARSER(TccLutParserAVID)
#undef VORA_LUT_PARSER

class VORA_API TccLutFile {
 public:
  // Tries the six parsers in the fixed order from the start of the stream; the first result, or
  // null. The caller owns the result.
  static TccLut* read(TfileStream& stream);
  // As read; parser (when given) receives the class name of the parser that accepted the file.
  static TccLut* read(TfileStream& stream, const char** parser);
  // As read; why (when given) receives, for a file no parser takes, the reason of the parser that
  // read furthest: "line N: what was wrong (PARSER)".
  static TccLut* read(TfileStream& stream, const char** parser, Tstring* why);
  static kt::set<Tstring> getExtensions();
  TccLutFile& operator=(const TccLutFile&) { return *this; }
};

// ---- batch application ------------------------------------------------------------------------
// Applies the LUT (after the pre-transform, when given) to n pixels in place, giving exactly what
// convert gives pixel by pixel. Float pixels: 3 (RGB) or 4 (RGBA) channels, the fourth left as it
// is. 8-bit pixels: blue, green, red, alpha; each value v goes in as v / 255 and comes out as
// round(clamp(result, 0, 1) x 255). threads: 0 = one per core.
VORA_API void ccLutApply(const TccLut& lut, const TscLutLin2LogPreTransform* pre, float* pixels,
                         size_t n, int channels, int threads = 0);
VORA_API void ccLutApplyBGRA8(const TccLut& lut, const TscLutLin2LogPreTransform* pre,
                              uint8_t* pixels, size_t n, int threads = 0);
// The scalar reference of both, one pixel at a time through convert (for tests and comparison).
VORA_API void ccLutApplyReference(const TccLut& lut, const TscLutLin2LogPreTransform* pre,
                                  float* pixels, size_t n, int channels);
