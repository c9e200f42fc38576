// ifftoany: a native image file written out through a format plug-in, line by line; successive
// calls with one key add frames to a multi-frame output until ifftoanyClose.
#include <vora/convert.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <vora/iff_image_file.h>
#include <vora/plugins.h>

#include "convert/convert_report.h"

using vora::convert::error;

namespace {

struct Output {
  const IMF_format* format = nullptr;
  IMF_object* object = nullptr;
  int frame = 0;
  std::string name;
};

std::map<std::string, Output>& outputs() {
  static std::map<std::string, Output> open;
  return open;
}

int closeOutput(Output& o) {
  if (!o.object) return 0;
  const int r = IMF_close(o.object);
  o.object = nullptr;
  if (r == 0) return 0;
  error("close output file failed " + o.name);
  return -1;
}

// A depth sample of the native file (-1 / distance; 0: nothing there) as the 31-bit integer that
// writers keep: the clipping range spread over the whole scale when one is given, else the
// distance counted down from the top of the scale.
uint32_t depthToInteger(float s, const float* clip) {
  if (s == 0) return 0;
  const double d = -1.0 / s, top = 2147483648.0;
  double v;
  if (clip) {
    double t = (clip[1] - d) / (double(clip[1]) - clip[0]);
    v = (t > 1 ? 1 : t < 0 ? 0 : t) * top;
  } else {
    v = top - (d - 1);
  }
  if (!(v > 0)) return 0;  // NaN too
  return v < top ? uint32_t(v) : uint32_t(top);
}

// The clipping range of depth, when the file carries one: a CLPZ field of two big-endian floats,
// low then high.
bool clippingRange(const TiffImageFile& in, float clip[2]) {
  const void* data = nullptr;
  if (in.getField(TiffTag('C', 'L', 'P', 'Z'), &data) < 8) return false;
  const uint8_t* p = static_cast<const uint8_t*>(data);
  for (int i = 0; i < 2; ++i) {
    const uint32_t bits = uint32_t(p[4 * i]) << 24 | uint32_t(p[4 * i + 1]) << 16 | uint32_t(p[4 * i + 2]) << 8 | p[4 * i + 3];
    memcpy(&clip[i], &bits, 4);
  }
  return std::isfinite(clip[0]) && std::isfinite(clip[1]) && clip[0] != clip[1];
}

// One element of a native line (1 or 2 bytes) at the output's width: shifted, the low bits not
// refilled (255 becomes 65280 at 16 bits), as readers of converted files expect.
uint32_t widen(const uint8_t* line, size_t element, int bytes, int shift) {
  uint32_t v = line[element];
  if (bytes == 2) memcpy(&v, line + element * 2, 2), v &= 0xFFFF;
  return shift >= 0 ? v << shift : v >> -shift;
}

void store(void* plane, int x, int bits, uint32_t v) {
  if (bits == 8) static_cast<uint8_t*>(plane)[x] = uint8_t(v);
  else if (bits == 16) static_cast<uint16_t*>(plane)[x] = uint16_t(v);
  else static_cast<uint32_t*>(plane)[x] = v;
}

struct Source {
  int width = 0, height = 0, bytes = 1, colour = 0;  // colour channels: 3, 1, or 0 (no image data)
  bool matte = false, depth = false, clipped = false;
  float clip[2] = {0, 0};
};

// Writes every line of in to out; 0, or -1 with the error reported.
int writeLines(TiffImageFile& in, IMF_object* out, const Source& s) {
  const IMF_image& r = out->image;
  const int shift = r.colorBits - 8 * s.bytes;
  int planes = 0;
  void** chan = IMF_chan_alloc(&r, s.width, &planes);
  if (!chan) return error("Failed to allocate IMF scan line buffers."), -1;
  std::vector<uint8_t> line(size_t(s.width) * 4 * s.bytes);
  std::vector<float> depth(s.depth ? size_t(s.width) : 0);
  const bool direct = r.colorBits == 8 && s.bytes == 1 && !s.depth && s.colour;  // the common case
  int result = 0;
  for (int y = 0; y < s.height && result == 0; ++y) {
    if (in.readLine(line.data(), s.depth ? depth.data() : nullptr) != 0) {
      error("error reading scan line: " + std::to_string(y));
      result = -1;
      break;
    }
    int w = 0;
    if (direct) {
      w = IMF_scan_write_pixels(out, y, IMF_PIXELS_BGRA8, line.data());
    } else {
      for (int x = 0; x < s.width; ++x) {
        const size_t px = size_t(x) * 4;
        int c = 0;
        if (s.colour == 3)
          for (int e = 2; e >= 0; --e) store(chan[c++], x, r.colorBits, widen(line.data(), px + e, s.bytes, shift));
        else if (s.colour == 1)
          store(chan[c++], x, r.colorBits, widen(line.data(), px + 1, s.bytes, shift));
        if (r.matteChannels) store(chan[c++], x, r.colorBits, widen(line.data(), px + 3, s.bytes, shift));
        if (r.depthChannels) static_cast<uint32_t*>(chan[c])[x] = depthToInteger(depth[x], s.clipped ? s.clip : nullptr);
      }
      w = IMF_scan_write(out, y, chan);
    }
    if (w != 0) {
      error(out->format->plugin->writeLine ? "scanline write failed" : "Output type can not be written by scanlines");
      result = -1;
    }
  }
  IMF_chan_free(chan);
  return result;
}

}  // namespace

int vora::convert::finishOutput(const char* key) {
  auto it = outputs().find(key);
  if (it == outputs().end()) return 0;
  const int r = closeOutput(it->second);
  outputs().erase(it);
  return r;
}

extern "C" {

int ifftoanyInit(const char* input, const char* key) {
  (void)input;
  loadAllIMFPlugins();
  if (!key || !*key) return -1;
  if (strcmp(key, "gif") != 0 && strcmp(key, "psd") != 0 && !IMF_find(key)) {
    error(std::string("Unknown image type: ") + key);
    return -1;
  }
  return 0;
}

int ifftoany(const char* input, const char* output, const char* key) {
  if (!input || !output || !key || !*key) return -1;
  if (strcmp(key, "gif") == 0) return vora::convert::ifftogif(input, output);
  if (strcmp(key, "psd") == 0) return vora::convert::ifftopsd(input, output);
  TiffImageFile in;
  if (!in.open(input, "r") || !ILgetheader(in.handle())) {
    error(std::string("Failed to open input file: ") + input);
    return -1;
  }
  Output& o = outputs()[key];
  if (!o.format) {
    loadImfPlugins();
    o.format = IMF_find(key);
  }
  if (!o.format || !(o.format->flags & IMF_CAN_WRITE)) {
    outputs().erase(key);
    error(std::string("Unknown image type: ") + key);
    return -1;
  }
  const IMF_format* f = o.format;
  Source s;
  s.width = int(in.width()), s.height = int(in.height());
  s.bytes = in.bytesPerPixel();
  s.colour = ILtypechannels(uint32_t(in.type()) & ~uint32_t(IL_ALPHA));
  s.matte = in.type() & IL_ALPHA;
  s.depth = in.type() & IL_ZBUFFER;
  if (s.bytes != 1 && s.bytes != 2) {
    error("image has unsupported number of bytes per channel: " + std::to_string(s.bytes));
    return -1;
  }
  if (s.bytes == 2 && in.setBytesPerPixel(2) != 0) return error(std::string("Failed to open input file: ") + input), -1;
  const int bits = imfOutputBits(f, 8 * s.bytes);
  if (bits != 8 && bits != 16 && bits != 32) return error("Output file cannot support any bits per pixel?!"), -1;
  if (s.depth && f->plugin->maxDepth < 1) {
    error("Output format does not support depth. Ignoring z-buffer");
    s.depth = false;
  } else if (s.depth && f->depthMax < 0x40000000u) {
    error("Output format does not support 31 bit integer depth. Ignoring z-buffer");
    s.depth = false;
  }
  s.clipped = s.depth && clippingRange(in, s.clip);

  std::vector<std::string> settings;
  if (in.dpi() >= 1 && in.dpi() != 72) settings.push_back("DPI Resolution=" + std::to_string(int(in.dpi())));
  std::vector<const char*> items;
  for (const std::string& t : settings) items.push_back(t.c_str());
  std::string title = output;
  if (size_t slash = title.find_last_of('/'); slash != std::string::npos) title.erase(0, slash + 1);
  if (size_t dot = title.rfind('.'); dot != std::string::npos && dot > 0) title.erase(dot);
  IMF_info info = vora::convert::infoFor(output, key, "Image converted using ifftoany");
  info.program = "Vora", info.title = title.c_str();
  info.settings.items = items.data(), info.settings.count = int32_t(items.size());
  IMF_image& r = info.image;
  r.xMax = s.width - 1, r.yMax = s.height - 1;
  int rx = 1, ry = 1;
  in.getRatio(rx, ry);
  if (rx != ry && rx > 0 && ry > 0) r.pixelAspect = float(double(ry) * s.width / (double(rx) * s.height));
  r.colorChannels = s.colour, r.colorBits = bits, r.colorType = IMF_TYPE_INT;
  r.matteChannels = s.matte && f->alphaCount > 0 ? 1 : 0;
  r.depthChannels = s.depth ? 1 : 0, r.depthBits = 32, r.depthType = IMF_TYPE_INT;
  // The file's lines come bottom first unless its reader was told otherwise; a writer that takes
  // only the other order gets them read the other way round.
  const bool fileTopDown = in.queryControlFlags(IL_ST_TOPDOWN);
  const bool canFileOrder = f->scanOrders & (fileTopDown ? IMF_ORDER_TOP_DOWN : IMF_ORDER_BOTTOM_UP);
  r.topDown = canFileOrder ? fileTopDown : !fileTopDown;
  if (!canFileOrder) in.modifyControlFlags(IL_ST_TOPDOWN, !fileTopDown);

  if (o.object) {
    // Frames of one file share the first one's window and channels.
    const IMF_image& first = o.object->image;
    if (first.xMax != r.xMax || first.yMax != r.yMax || first.colorChannels != r.colorChannels ||
        first.matteChannels != r.matteChannels || first.depthChannels != r.depthChannels || first.colorBits != r.colorBits) {
      error(std::string("Failed to open output file: ") + o.name + " (a frame of another size or layout)");
      return -1;
    }
    o.frame = IMF_set_frame(o.object, o.frame + 1);
    if (o.frame < 0) {
      error("Failed to open output file: " + o.name);
      closeOutput(o);
      outputs().erase(key);
      return -1;
    }
  } else {
    o.object = IMF_open(&info, "w");
    o.frame = 0, o.name = output;
    if (!o.object) {
      error(std::string("Failed to open output file: ") + output);
      return -1;
    }
  }
  int result = writeLines(in, o.object, s);
  if (!(f->flags & IMF_MULTIFRAME) && closeOutput(o) != 0) result = -1;
  return result;
}

int ifftoanyClose(void) {
  for (auto& [key, o] : outputs()) closeOutput(o);
  outputs().clear();
  return 0;
}

}  // extern "C"
