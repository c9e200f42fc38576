// TiffImageFile: one native IFF image file as an object. It owns one image-library handle and
// forwards to the IL calls (their answers unchanged); on top it converts 32-bit float pixels to
// bytes, makes a grey picture of the depth channel, reads and writes single pixels and rewrites
// the page count of a file written page by page. Pixels in memory are bytes blue, green, red,
// alpha, as the IL calls hand them over.
#pragma once

#include <cstdint>

#include <vora/export.h>
#include <vora/foundation/pixelmap.h>
#include <vora/foundation/tiff_file.h>
#include <vora/ilib.h>

class VORA_API TiffImageFile : public TiffFile {
 public:
  // The image library's codes, one for one; other values are not compressions.
  enum TfileCompression { kNoCompression = IL_NONE, kRle = IL_RLE, kQrl = IL_QRL, kQr4 = IL_QR4 };

  TiffImageFile() = default;
  TiffImageFile(const char* name, const char* mode);
  ~TiffImageFile() override;  // closes what is open

  // ILopen, then the header: true when a handle results (an unreadable header still leaves the
  // handle, whose calls then give the library's codes).
  bool open(const char* name, const char* mode);
  bool reopen(const char* name, const char* mode);
  int close();  // ILclose's answer; -1 when nothing is open
  bool isActive() const { return img_ != nullptr; }
  ILimage* handle() const { return img_; }

  // Without a handle the queries give 0 and the setters -1.
  unsigned width() const;
  unsigned height() const;
  int getSize(int& width, int& height) const;
  int getNewSize(int& width, int& height) const;  // the bound zoom's output size, else getSize
  int getOrigin(int& x, int& y) const;
  int getRatio(int& num, int& den) const;
  int type() const;
  int bytesPerPixel() const;  // bytes per channel (ILgetbpp)
  int pages() const;
  int setSize(int width, int height);
  int setOrigin(int x, int y);
  int setType(int type);
  int setRatio(int num, int den);
  int setBytesPerPixel(int bytes);
  int setPages(int count);
  int setPageSize(int width, int height);
  // Another value than the four compressions sets nothing and answers 0.
  int setCompression(TfileCompression c);
  TfileCompression compression() const;  // kNoCompression also for codes added at run time
  int getField(TiffTag tag, const void** data) const;
  int setField(TiffTag tag, unsigned count, const void* data);
  int copyFields(const TiffImageFile& from);
  int setZoom(int width, int height, float blurx, float blury, float offx, float offy);  // "auto" filter

  int getLine(void** colour, float** depth);
  int readLine(void* colour, float* depth);
  int writeLine(const void* colour, const float* depth);
  void* beginLine(float** depth);
  int endLine();
  int writeTile(void* colour, float* depth, const uint32_t rect[4], int pitch);
  int endTile();
  uint32_t modifyControlFlags(uint32_t flags, bool on);
  uint32_t queryControlFlags(uint32_t flags) const;
  int load(void* colour, float* depth);
  int loadBitmap(void* colour, float* depth);
  int save(const void* colour, const float* depth, int pitch);

  // The handle's own fields. The transfer layout (bitmask, channels, pwidth, lwidth) is derived
  // by ILinitio at every pixel call, so it is read here, not set.
  uint32_t version() const;
  void setVersion(uint32_t v);
  uint32_t ictl() const;  // the state word
  void setIctl(uint32_t state);
  uint32_t twidth() const;
  uint32_t theight() const;
  void setTwidth(uint32_t w);
  void setTheight(uint32_t h);
  float dpi() const;
  void setDpi(float dpi);
  unsigned char** lookups() const;
  void setLookups(unsigned char** tables);
  uint32_t bitmask() const;
  uint32_t channels() const;  // element slots a pixel takes in transfer
  uint32_t pwidth() const;    // bytes from one pixel to the next
  uint32_t lwidth() const;    // bytes of a line

  // A file of 32-bit float pixels (3 a pixel, 4 with alpha) as bytes: each value clamped to 0..1,
  // times 255, rounded down; alpha 255 without alpha. Always 0: a failure on the first line and
  // the normal end look the same, and depth is deliberately not filled (load gives it). A file of
  // other pixels converts nothing.
  int loadFloatToByte(void* pixels, float* depth);
  // A grey picture of the depth channel (nearest 255, farthest about 55, no depth 0) into map,
  // made width x height when its size differs. 0, or -1 when the depth cannot be read.
  int readZBuffer(TpixelMap& map, int width, int height);
  // Pixel i of a row; i equal to the width is deliberately let through (the row must have room
  // for one pixel more), beyond it nothing happens.
  void setPixelRGBA(void* row, unsigned short i, unsigned char r, unsigned char g, unsigned char b,
                    unsigned char a);
  void getPixelRGBA(const void* row, unsigned short i, unsigned char& r, unsigned char& g, unsigned char& b,
                    unsigned char* a) const;
  // The four bytes of each of the width pixels of a row reversed, in place.
  void pixelRGBAswap(void* row) const;
  // For a file written page by page: the header written again where it stood, with this page
  // count, and writing goes on where it was. 0, an FL code, or -1 without a handle.
  int rewriteHeaderPageCount(int pages);

 private:
  void initInheritance() { fp_ = img_; }
  ILimage* img_ = nullptr;
};
