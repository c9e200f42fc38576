// TimageFile: any picture file read into a TpixelMap or Timage, and a TpixelMap written out as a
// file of any format. Native image files and SGI images are read directly; PNG, JPEG, GIF, BMP,
// XPM/XBM, PPM, TIFF and TGA can be loaded straight into a map (attemptFastLoad); every other
// format goes through a temporary native file made by the format plug-ins (anytoiff), and a file
// written in another format is written natively and converted on close (ifftoany).
//
// Reading and writing calls answer 0 or -1; a failure is reported through theErrorHandler when
// one is installed and reporting is enabled (the one exception: a native file of an impossible
// size is always reported). Any thread may use its own TimageFile; opens, closes and plug-in
// identification are serialised by imageLock().
#pragma once

#include <memory>

#include <vora/export.h>
#include <vora/foundation/pixelmap.h>
#include <vora/foundation/threads.h>
#include <vora/foundation/tstring.h>
#include <vora/iff_image_file.h>

struct IMAGE;

class VORA_API TimageFile : public TiffImageFile {
 public:
  // How the open file is read.
  enum TfileFormat { kNoFormat, kNativeFormat, kSgiFormat, kConvertedFormat, kMappedFormat };

  TimageFile();
  ~TimageFile() override;  // closes what is open, without converting a file being written

  static TmtRecursiveCS& imageLock();
  static void setErrorReportingEnabled(bool on);
  static bool errorReportingEnabled();

  bool isOpen() const;
  const Tstring& filename() const { return filename_; }
  TfileFormat format() const;

  // The type key of a file by its first bytes, then by the plug-ins: "sgi", "vora" (a native
  // image), "tif", "jpg", a plug-in's key, "psd" (a Photoshop document no plug-in claims),
  // "VoraBinary"/"VoraASCII" (scene files, only when sceneTypes), or "" when none.
  Tstring getImageType(const Tstring& name, bool sceneTypes) const;
  // Identifies the file and opens it by the best path. arg is unused; passOn is kept for the
  // conversion. A native file larger than 8192 in either direction is refused and left open.
  int identifyAndOpen(const Tstring& name, bool arg = false, int passOn = 0);
  // iffReady: the file is a native image to read as it is; otherwise it is converted first.
  int open(const Tstring& name, bool iffReady, bool arg = false, int passOn = 0);
  // The size of a file without reading its pixels (native, SGI, or through the plug-ins).
  int getResolutionInAdvance(const Tstring& name, unsigned& width, unsigned& height);

  bool hasRGB() const;
  bool hasDepthMap() const;
  bool alpha() const { return alpha_; }
  void setAlpha(bool on) { alpha_ = on; }

  // The whole picture. A map whose requested rectangle (TpixelMap::requestSize) differs from the
  // file's size gets it resampled to that size; a map that wants depth gets the depth channel.
  int readPixelMap(TpixelMap& map);
  // Bands: the map's (or image's) rows first .. first + count - 1 (last - 1) filled with the next
  // lines of a native file (lines come in order, bottom first, so bands are read in order), or
  // with those rows of an SGI image. The map must already have the rows.
  int readPixelMap(TpixelMap& map, unsigned short first, unsigned short count);
  int readImage(Timage& image);
  int readImage(Timage& image, unsigned short first, unsigned short last);
  int readDepthMap(TdepthBuffer& depth);
  // Rows first .. last - 1 of the open SGI image as 32-bit pixels (bottom row first).
  int readSGI(Tpixel32* pixels, int first, int last);
  int readSGI(void* pixels, int first, int last, int bytesPerPixel);

  // PNG, JPEG, GIF, BMP, XPM, XBM, PPM, TIFF (Qt) and TGA straight into the map, chosen by the
  // name's suffix; false for other suffixes, on failure, or when VORA_NO_FAST_TEXTURE_LOAD is set.
  bool attemptFastLoad(const Tstring& name, TpixelMap& map);
  bool LoadQTImage(const Tstring& name, TpixelMap& map);
  bool LoadTGA(const Tstring& name, TpixelMap& map);

  // Opens name for writing an 8-bit colour-and-alpha picture. format: a plug-in key to convert to
  // on close; null, "vora", "kbn" or "psdLayered" write the native file itself.
  int create(const Tstring& name, unsigned short width, unsigned short height, TfileCompression compression,
             const char* format);
  // The map's rows bottom first (with its depth buffer when withDepth; it must match the map).
  int writePixelMap(const TpixelMap& map, bool withDepth);
  // Rows of the map, as lines of the file; x and y are where the rows would start (lines are
  // written in order, so only whole lines in sequence are meaningful).
  int writePixelMap(int x, int y, const TpixelMap& map);
  int writePixelMap(int x, int y, const TpixelMap& map, int rows);
  int writePixelMapRegion(int x, int y, int width, int height, const TpixelMap& map);
  void flush() {}
  // Closes; a file created in another format is converted now. 0, or -1 when that fails (the
  // temporary native file is then left for inspection).
  int close();

  int getDimensions(unsigned short& width, unsigned short& height, unsigned char& bytesPerPixel) const;
  TportRect size() const;

  // Mapped reading: the next open maps the (converted) file's first width x height 32-bit pixels
  // read-write instead of decoding it, and readPixelMap hands that memory out.
  void setMapped(bool on, unsigned short width = 0, unsigned short height = 0);

  // The plug-in files installed under $VORA_LOCATION/bin/plug-ins/image, listed once.
  static const TstringArray& availableFormats();
  // The process id modulo 0xFFFFFF in lower-case hexadecimal (dst: at least 7 bytes).
  static void getClientAddressSpace(char* dst);

 private:
  void report(const char* key, const Tstring& added = Tstring()) const;
  void reportFormatted(const char* key, const char* arg1, const char* arg2 = nullptr) const;
  Tstring newTemporaryPath();
  // A native file that may be read as it is: has a type, 8-bit or float channels, bottom line first.
  bool nativeReady() const;
  int openThroughKey(const Tstring& name, const Tstring& key, int passOn);
  int openConverted(const Tstring& path);
  int prepareNativeRead();
  void dropTemporary();
  void unmap();

  Tstring filename_;
  bool alpha_ = false;
  bool mapped_ = false;
  std::unique_ptr<char[]> temporaryPath_;
  Tpixel32* mappedPixels_ = nullptr;
  std::unique_ptr<char, void (*)(void*)> writerFormat_{nullptr, nullptr};
  IMAGE* sgi_ = nullptr;
  unsigned short mappedWidth_ = 0, mappedHeight_ = 0;
};
