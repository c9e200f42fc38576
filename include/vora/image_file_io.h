// Image files by name: TimageFileIO writes one rendered frame under a name made from a base name,
// a frame number and a naming convention, in a chosen format; alpha or depth that the format does
// not hold goes to native files of their own ("<base>_mask", "<base>_depth") in the project's mask
// and depth directories. TimageDiskIO is the front end for Timage pictures; TimageFileSearchPath
// finds the file an image name stands for.
#pragma once

#include <vora/export.h>
#include <vora/foundation/tfilepath.h>
#include <vora/foundation/tstring.h>
#include <vora/image_file.h>

// A frame's name: convention 0 the base name alone, 1 "name.N", 2 "name.ext.N", 3 "name.N.ext",
// 4-6 as 1-3 with the frame padded to four digits.
class VORA_API TimageFN {
 public:
  TimageFN() = default;
  TimageFN(int convention, const Tstring& base, unsigned frame) : convention(convention), base(base), frame(frame) {}
  virtual ~TimageFN() = default;

  int convention = 0;
  Tstring base;
  unsigned frame = 0;
};

// Where frames go and what they record: the project's output directories by rule ("images",
// "mask", "depth": set, else <root>/<rule> with the root from VORA_PROJECT or the current
// directory), the command line and the build that made them.
class VORA_API TprojectManager {
 public:
  static TprojectManager& theManager();
  void setRoot(const TfilePath& root) { root_ = root; }
  void setOutputDir(const Tstring& rule, const TfilePath& dir);
  bool outputDir(const Tstring& rule, TfilePath& dir) const;
  // Makes the directory and its parents; true when it exists afterwards.
  static bool makeDir(const TfilePath& dir);

 private:
  TfilePath root_;
  std::vector<std::pair<Tstring, TfilePath>> dirs_;
};

class VORA_API TbatchGlobals {
 public:
  static const Tstring& getCommandLine();
  static void setCommandLine(const Tstring& line);
};

VORA_API extern const char* gCutIdentifier;

class VORA_API TimageFileIO {
 public:
  enum TimageType : int {
    kGif = 0, kSoftimage = 1, kRla = 2, kTiff = 3, kTiff16 = 4, kSgi = 5, kQvx = 6, kIff = 7, kJpeg = 8,
    kEps = 9, kIffRgb = 10, kCineon = 11, kYuv = 12, kTga = 19, kBmp = 20, kSgiMovie = 21, kQuickTime = 22,
    kAvi = 23, kMacPaint = 30, kPhotoshop = 31, kPng = 32, kPict = 33, kQtif = 34, kDds = 35, kPlugin = 50
  };
  enum TdataType : int { kColour = 1, kAlpha = 2, kDepth = 4 };

  TimageFileIO() = default;
  virtual ~TimageFileIO();

  void setFormat(TimageType type, int data, const Tstring& pluginName = Tstring(), const Tstring& extension = Tstring());
  TimageType format() const { return type_; }
  // The table's answers for a type (type kPlugin: the plug-in set by setFormat).
  Tstring formatExtension(TimageType type) const;
  Tstring formatPluginName(TimageType type) const;  // "" for the native file
  bool formatHoldsAlpha(TimageType type) const;
  bool formatHoldsDepth(TimageType type) const;

  Tstring makeName(const TimageFN& fn, TimageType type) const;
  static Tstring makeGlanceName(TimageFN& fn, TimageType type);
  static Tstring makeGlanceName(TimageFN& fn, const Tstring& extension);
  static Tstring makeGlanceName(TimageFN& fn, TimageType type, const Tstring& extension);

  // Opens the main file (and the mask and depth files the format needs); false, with everything
  // closed again, when any cannot be made.
  bool create(const TimageFN& name, unsigned short width, unsigned short height);
  // Colour as 8-bit blue, green, red, alpha pixels, bottom row first; depth one float a pixel.
  bool writeImage(void* pixels, float* depth);
  void writeClippingPlanes(float nearPlane, float farPlane);
  void writeEyeWidthHeight(float width, float height);
  bool close();
  bool open(const Tstring& name);  // for reading, through the front end

  const Tstring& mainPath() const { return mainPath_; }
  const Tstring& maskPath() const { return maskPath_; }
  const Tstring& depthPath() const { return depthPath_; }

 private:
  void putChunks(TimageFile& f);

  TfilePath imagesDir_, maskDir_, depthDir_;
  Tstring mainPath_, maskPath_, depthPath_;
  TimageFN mainFn_, maskFn_, depthFn_;
  TimageType type_ = kIff;
  int data_ = kColour | kAlpha;
  Tstring pluginName_, extension_;
  TimageFile main_, mask_, depth_;
  bool holdsAlpha_ = true, holdsDepth_ = true, maskOpen_ = false, depthOpen_ = false;
  bool clipPending_ = false, eyePending_ = false;
  float near_ = 0, far_ = 0, eyeWidth_ = 0, eyeHeight_ = 0;
};

// The front end for Timage pictures (8 bits a channel when written).
class VORA_API TimageDiskIO : public TimageFile {
 public:
  int writeImage(const Timage& image);
  // Rows of the image from (x, y), as the next lines of the file (see writePixelMapRegion).
  int writeImage(int x, int y, const Timage& image, int rows);
  int writeImageRegion(int x, int y, int width, int height, const Timage& image);
};

class VORA_API TimageFileSearchPath {
 public:
  enum TfieldType { kFrames = 0, kOddField = 1, kEvenField = 2 };
  // The field type and the suffixes of odd and even fields (".o" and ".e" when empty); the third
  // text is kept for hosts that have one more.
  static void initImageFileSearchPath(TfieldType field, const Tstring& odd, const Tstring& even, const Tstring& other);
  // The file an image name stands for: the name itself, then with the field's suffix, then
  // compressed (".Z"), in the images directory when the name is relative and not found as it is.
  // result: at least 1024 bytes. mustExist: only true when a file was found.
  static bool expandImageName(const char* name, char* result, bool mustExist, char* unused = nullptr);
  static bool exactImageName(const Tstring& name, Tstring& result, bool mustExist);
};
