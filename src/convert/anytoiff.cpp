// anytoiff: any file a plug-in reads (or a Photoshop document) written as a native image file of
// 8-bit channels; identify and getResolution look at a file through the plug-ins.
#include <vora/convert.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <vora/foundation/fl.h>
#include <vora/iff_image_file.h>
#include <vora/plugins.h>
#include <vora/psd_texture.h>

#include "convert/convert_report.h"
#include "platform/platform.h"

using vora::convert::error;

namespace {

// The input of the last call, kept open while a multi-frame file is read frame by frame.
struct Input {
  IMF_object* object = nullptr;
  std::string name;
} input_;

void closeInput() {
  if (input_.object) IMF_close(input_.object);
  input_ = Input();
}

bool exists(const char* name, const char* caller) {
  vora::platform::FileStatus st;
  if (vora::platform::fileStatus(name, st) == 0) return true;
  const int e = errno;
  if (caller) error(std::string("Error in conversion of ") + name + "\nFailed to stat the input file: " + strerror(e));
  return false;
}

// The plug-in input of a file: the key given, or the one its bytes call for.
IMF_object* openInput(const char* name, const char* key, const char* caller) {
  loadImfPlugins();
  if (key && !IMF_find(key)) return error(std::string(caller) + ": unknown image type - " + key), nullptr;
  if (!key && !(key = IMF_get_file_type(name, 0, nullptr)))
    return error(std::string("IMF did not recognise image file ") + name), nullptr;
  IMF_info info = vora::convert::infoFor(name, key, "Image converted using anytoiff");
  IMF_object* in = IMF_open(&info, "r");
  if (!in) error(std::string(caller) + ": " + IMF_last_error());
  return in;
}

// A colour or matte sample of any width as 8 bits.
uint8_t narrow(const void* plane, int x, const IMF_image& r) {
  if (r.colorBits == 8) return static_cast<const uint8_t*>(plane)[x];
  if (r.colorBits == 16) return uint8_t(static_cast<const uint16_t*>(plane)[x] >> 8);
  if (r.colorType == IMF_TYPE_FLOAT) {
    const float v = static_cast<const float*>(plane)[x];
    return uint8_t(v > 0 ? (v < 1 ? v * 255.0f : 255.0f) : 0.0f);  // NaN gives 0
  }
  return uint8_t(static_cast<const uint32_t*>(plane)[x] >> 24);
}

// A depth sample as the native file keeps it: -1 / distance style, integers d of b bits as
// -d / (2^b - 1) in [-1, 0], 0 (nothing there) kept.
float depthOf(const void* plane, int x, const IMF_image& r) {
  if (r.depthType == IMF_TYPE_FLOAT) return static_cast<const float*>(plane)[x];
  const uint32_t d = static_cast<const uint32_t*>(plane)[x];
  if (d == 0) return 0;
  const double scale = r.depthBits >= 32 ? 4294967295.0 : double((1u << r.depthBits) - 1);
  const double v = -double(d) / scale;
  return float(v < -1 ? -1 : v);
}

int convertLines(IMF_object* in, TiffImageFile& out, int width, int height) {
  const IMF_image& r = in->image;
  const bool direct = r.colorBits == 8 && !r.depthChannels;  // the common case: our own layout
  int planes = 0;
  void** chan = IMF_chan_alloc(&r, width, &planes);
  std::vector<uint8_t> line(size_t(width) * 4);
  std::vector<float> depth(r.depthChannels ? size_t(width) : 0);
  if (!chan) return error("Failed to allocate space for scan line."), -1;
  // Lines come top first from a top-left origin: the native file takes them so when told.
  if (r.topDown) out.modifyControlFlags(IL_ST_TOPDOWN, true);
  int result = 0;
  for (int l = 0; l < height && result == 0; ++l) {
    if (direct) {
      result = IMF_scan_read_pixels(in, l, IMF_PIXELS_BGRA8, line.data());
    } else if ((result = IMF_scan_read(in, l, chan)) == 0) {
      for (int x = 0; x < width; ++x) {
        uint8_t* p = &line[size_t(x) * 4];
        p[2] = narrow(chan[0], x, r);
        p[1] = r.colorChannels == 3 ? narrow(chan[1], x, r) : p[2];
        p[0] = r.colorChannels == 3 ? narrow(chan[2], x, r) : p[2];
        p[3] = r.matteChannels ? narrow(chan[r.colorChannels], x, r) : 255;
        if (r.depthChannels) depth[x] = depthOf(chan[r.colorChannels + r.matteChannels], x, r);
      }
    }
    if (result != 0) error(std::string("anytoiff: ") + IMF_last_error());
    else if (out.writeLine(line.data(), r.depthChannels ? depth.data() : nullptr) != 0)
      error(std::string("anytoiff: ") + FLstrerror(flerrno)), result = -1;
  }
  IMF_chan_free(chan);
  return result;
}

// A native file the front end cannot take as it is (16-bit channels, say) at 8 bits a channel,
// with its depth.
int nativeAt8Bits(const char* input, const char* output) {
  TiffImageFile in, out;
  if (!in.open(input, "r") || !ILgetheader(in.handle()) || (in.bytesPerPixel() != 1 && in.setBytesPerPixel(1) != 0) ||
      ILcanload(in.handle()) != 0)
    return error(std::string("anytoiff: ") + input + ": " + FLstrerror(flerrno)), -1;
  const int w = int(in.width()), h = int(in.height()), type = in.type();
  if (!out.open(output, "w") || out.setSize(w, h) != 0 || out.setType(type) != 0)
    return error("Failed to open output file."), -1;
  std::vector<uint8_t> line(size_t(w) * 4);
  std::vector<float> depth((type & IL_ZBUFFER) ? size_t(w) : 0);
  float* z = depth.empty() ? nullptr : depth.data();
  for (int y = 0; y < h; ++y)
    if (in.readLine(line.data(), z) != 0 || out.writeLine(line.data(), z) != 0)
      return error(std::string("anytoiff: ") + input + ": " + FLstrerror(flerrno)), -1;
  return out.close() == 0 ? 0 : -1;
}

}  // namespace

namespace vora::convert {

int readPixelMap(const char* name, const char* key, TpixelMap& map) {
  IMF_object* in = openInput(name, key, "anytoiff");
  if (!in) return -1;
  const IMF_image& r = in->image;
  const int64_t w = int64_t(r.xMax) - r.xMin + 1, h = int64_t(r.yMax) - r.yMin + 1;
  int result = -1;
  if (w >= 1 && h >= 1 && w <= IL_MAXSIZE && h <= IL_MAXSIZE && r.colorBits == 8 && !r.depthChannels &&
      map.create(unsigned(w), unsigned(h))) {
    result = 0;
    for (int l = 0; l < h && result == 0; ++l)
      result = IMF_scan_read_pixels(in, l, IMF_PIXELS_BGRA8, map.row(unsigned(r.topDown ? h - 1 - l : l)));
  }
  IMF_close(in);
  return result;
}

}  // namespace vora::convert

extern "C" {

int anytoiff(const char* input, const char* output, const char* key, int frame) {
  if (!input || !output) return -1;
  if (isFileIff(input)) return nativeAt8Bits(input, output);
  if (ktPhotoshop::TpsdTextureFile::isFilePsd(input)) {
    vora::convert::psdtoiff(input, output);
    return 0;  // as callers of this path have always had it, also when the document is unreadable
  }
  if (input_.object && input_.name != input) closeInput();
  if (!exists(input, "anytoiff")) return -1;
  if (!input_.object) {
    if (!(input_.object = openInput(input, key, "anytoiff"))) return -1;
    input_.name = input;
  }
  IMF_object* in = input_.object;
  const bool multi = in->format->flags & IMF_MULTIFRAME;
  if (multi && IMF_set_frame(in, frame) < 0) {
    error(std::string("anytoiff: ") + IMF_last_error());
    closeInput();
    return -1;
  }
  const IMF_image& r = in->image;
  const int64_t width = int64_t(r.xMax) - r.xMin + 1, height = int64_t(r.yMax) - r.yMin + 1;
  int result = 0;
  if (width < 1 || height < 1 || width > IL_MAXSIZE || height > IL_MAXSIZE) error("anytoiff: Empty image."), result = -1;
  else if (r.colorChannels != 1 && r.colorChannels != 3) error("Image has no colour channels."), result = -1;
  else if (r.colorBits != 8 && r.colorBits != 16 && r.colorBits != 32) error("anytoiff a maximum of 32 bits per pixel is supported."), result = -1;
  else if (r.matteChannels > 1) error("Converting only the first matte channel."), result = -1;
  if (result == 0) {
    TiffImageFile out;
    if (!out.open(output, "w")) {
      error("Failed to open output file.");
      result = -1;
    } else {
      if (out.setSize(int(width), int(height)) != 0 ||
          out.setType(IL_COLOR | (r.matteChannels ? IL_ALPHA : 0) | (r.depthChannels ? IL_ZBUFFER : 0)) != 0)
        return error(std::string("anytoiff: ") + FLstrerror(flerrno)), closeInput(), -1;
      // A picture whose pixels are not square keeps their shape as the file's pixel ratio.
      const double aspect = r.aspectHeight > 0 ? double(r.aspectWidth) / r.aspectHeight : 0;
      if (r.pixelAspect > 0 && aspect > 0 && r.pixelAspect != float(aspect)) {
        const int scaled = int(r.aspectHeight * double(r.pixelAspect));
        if (scaled > 0 && scaled != r.aspectWidth) out.setRatio(r.aspectWidth, scaled);
      }
      result = convertLines(in, out, int(width), int(height));
      if (out.close() != 0 && result == 0) error(std::string("anytoiff: ") + FLstrerror(flerrno)), result = -1;
    }
  }
  if (!multi || result != 0) closeInput();
  return result;
}

const char* identify(const char* name) {
  if (!name || !exists(name, nullptr)) return nullptr;
  loadImfPlugins();
  const char* key = IMF_get_file_type(name, 0, nullptr);
  if (key) return key;
  // Unclaimed, or unreadable: only a file that can be read is "claimed by none".
  unsigned char byte;
  return vora::platform::readStart(name, &byte, 0) ? "__none_" : nullptr;
}

int getResolution(const char* name, int* width, int* height) {
  if (!name || !exists(name, "getResolution")) return -1;
  IMF_object* in = openInput(name, nullptr, "anytoiff getResolution");
  if (!in) return -1;
  const int64_t w = int64_t(in->image.xMax) - in->image.xMin + 1, h = int64_t(in->image.yMax) - in->image.yMin + 1;
  IMF_close(in);
  if (w < 1 || h < 1 || w > INT32_MAX || h > INT32_MAX) return error("anytoiff getResolution: Empty image."), -1;
  if (width) *width = int(w);
  if (height) *height = int(h);
  return 0;
}

}  // extern "C"
