// vimg: whole images in memory and their files: native IFF through the IL calls, SGI through the
// SGI library, the formats of the plug-ins through them, and what no plug-in takes through Qt 6's
// QImage.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct FLfile;

namespace vimg {

// The library's layout: bottom line first, elements blue, green, red, alpha of 1 or 2 bytes.
struct Image {
  int width = 0, height = 0;
  int bytes = 1;       // bytes per channel
  bool alpha = false;  // the picture has an alpha channel worth keeping
  int channels = 4;    // channels of the source: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
  std::vector<uint8_t> pixels;
  size_t rowBytes() const { return size_t(width) * 4 * bytes; }
};

struct WriteOptions {
  int compress = 1;            // native: IL_NONE .. IL_QR4; SGI: 0 verbatim, else run-length
  int tileWidth = 0, tileHeight = 0;  // native: 0 = the default tiling
  int bits = 0;                // 8 or 16; 0 = as the image
  bool topDown = false;        // native: send lines top line first
  std::vector<std::string> settings;  // plug-in settings, "name=value" ("quality=90", "compression=lzw")
};

bool isNativeFile(const std::string& path);
// ", reading stopped at offset N" when flerrno says the data of the handle's file is damaged; "".
std::string stoppedAt(FLfile* handle);  // an ILimage
// "PATH: the code's text (error N)" for flerrno, with stoppedAt for a handle's damaged data.
std::string ilError(const std::string& path, FLfile* handle = nullptr);
bool isAviFile(const std::string& path);  // a RIFF "AVI " form
bool readImage(const std::string& path, Image& img, std::string& error);
bool writeImage(const std::string& path, const Image& img, const WriteOptions& opt,
                std::string& error);
// The image with channels of the given byte size (1 keeps the high byte; 2 repeats each byte).
Image withBytes(const Image& img, int bytes);

}  // namespace vimg
