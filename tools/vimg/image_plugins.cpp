// vimg: pictures read and written through the format plug-ins. The plug-ins bundled with vimg are
// found beside it: VORA_LOCATION, when unset, is set to the folder holding bin/plug-ins/image.
#include "image_plugins.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <mutex>

#include <vora/convert.h>
#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>
#include <vora/imf.h>
#include <vora/plugins.h>

namespace vimg {

void ensurePlugins() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (!VoraGetEnv("VORA_LOCATION") && *VoraExecutablePath()) {
      namespace fs = std::filesystem;
      const fs::path dir = fs::path(VoraExecutablePath()).parent_path();
      std::error_code ec;
      // The build tree keeps the plug-ins below vimg's folder; an installation beside bin/.
      VoraPutEnv("VORA_LOCATION", (fs::is_directory(dir / "bin/plug-ins/image", ec) ? dir : dir.parent_path()).c_str());
    }
    loadImfPlugins();
    ERR_mask_s(0);  // failures come back to vimg, which says them once
  });
}

const char* pluginFor(const std::string& path, bool writing, const std::string& extension) {
  ensurePlugins();
  if (writing) {
    const IMF_format* f = extension.empty() ? nullptr : IMF_find(extension.c_str());
    return f && (f->flags & IMF_CAN_WRITE) ? f->key : nullptr;
  }
  return IMF_get_file_type(path.c_str(), 0, nullptr);
}

namespace {

// A sample of a plane as 16 bits (8-bit samples repeated, 32-bit integers their high half,
// floats clamped to [0, 1]).
uint16_t sample16(const void* plane, int x, int bits, int type) {
  if (bits == 8) return uint16_t(static_cast<const uint8_t*>(plane)[x] * 257);
  if (bits == 16) return static_cast<const uint16_t*>(plane)[x];
  if (type == IMF_TYPE_FLOAT) {
    const float v = static_cast<const float*>(plane)[x];
    // Rounded half up, as lround does for these non-negative values (x + 0.5 is exact below
    // 2^23), without its call per sample.
    return uint16_t((v > 0 ? (v < 1 ? v : 1) : 0) * 65535.0f + 0.5f);  // NaN gives 0
  }
  return uint16_t(static_cast<const uint32_t*>(plane)[x] >> 16);
}

// Asks for the next line while the codec works on this one: a line read cold from memory between
// two codec calls costs the encoder a third of its time.
void prefetch(const uint8_t* p, size_t bytes) {
#if defined(__GNUC__)
  for (size_t k = 0; k < bytes; k += 64) __builtin_prefetch(p + k);
#else
  (void)p, (void)bytes;
#endif
}

}  // namespace

bool readPlugin(const std::string& path, const char* key, Image& img, std::string& error) {
  IMF_info info;
  IMF_info_init(&info);
  info.name = path.c_str(), info.key = key;
  info.comment = "Image converted using anytoiff";
  IMF_object* in = IMF_open(&info, "r");
  if (!in) return error = std::string(IMF_last_error()), false;
  const IMF_image& r = in->image;
  img.width = r.xMax - r.xMin + 1, img.height = r.yMax - r.yMin + 1;
  img.bytes = r.colorBits == 8 ? 1 : 2;
  img.alpha = r.matteChannels > 0;
  img.channels = std::max(r.colorChannels, 1) + (img.alpha ? 1 : 0);
  if (!FLallocok(uint64_t(img.rowBytes()) * img.height)) {
    IMF_close(in);
    return error = path + ": " + std::to_string(img.width) + " x " + std::to_string(img.height) + " is over the memory limit", false;
  }
  img.pixels.assign(img.rowBytes() * size_t(img.height), 0);
  int planes = 0;
  void** line = IMF_chan_alloc(&r, img.width, &planes);
  bool ok = line != nullptr;
  const bool bgra = r.colorBits == 8 && r.colorChannels >= 1 && !r.depthChannels;  // the common case: our own layout
  for (int l = 0; ok && l < img.height; ++l) {
    const int y = r.topDown ? img.height - 1 - l : l;  // our rows are bottom line first
    if (bgra) {
      ok = IMF_scan_read_pixels(in, l, IMF_PIXELS_BGRA8, &img.pixels[size_t(y) * img.width * 4]) == 0;
      continue;
    }
    ok = IMF_scan_read(in, l, line) == 0;
    for (int x = 0; ok && x < img.width; ++x) {
      uint16_t v[4] = {0, 0, 0, 0xFFFF};  // blue, green, red, alpha
      if (r.colorChannels == 3)
        for (int c = 0; c < 3; ++c) v[2 - c] = sample16(line[c], x, r.colorBits, r.colorType);
      else if (r.colorChannels == 1)
        v[0] = v[1] = v[2] = sample16(line[0], x, r.colorBits, r.colorType);
      if (r.matteChannels) v[3] = sample16(line[r.colorChannels], x, r.colorBits, r.colorType);
      const size_t at = (size_t(y) * img.width + x) * 4;
      for (int e = 0; e < 4; ++e) {
        if (img.bytes == 1) img.pixels[at + e] = uint8_t(v[e] >> 8);
        else memcpy(&img.pixels[(at + e) * 2], &v[e], 2);
      }
    }
  }
  if (!ok) error = line ? std::string(IMF_last_error()) : path + ": out of memory";
  IMF_chan_free(line);
  IMF_close(in);
  return ok;
}

bool writePlugin(const std::string& path, const char* key, const Image& src, const WriteOptions& opt, std::string& error) {
  const IMF_format* f = IMF_find(key);
  const int bits = imfOutputBits(f, opt.bits ? opt.bits : src.bytes * 8);
  if (bits != 8 && bits != 16 && bits != 32) return error = path + ": " + key + " takes no 8, 16 or 32-bit samples", false;
  // Converted only when the depth changes between integers: a copy of a large picture costs as
  // much as a fast codec. Floats come from either depth as they are.
  Image converted;
  const Image& img = bits == 32 || src.bytes == (bits == 8 ? 1 : 2) ? src : (converted = withBytes(src, bits == 8 ? 1 : 2));
  const float unit = img.bytes == 1 ? 255.0f : 65535.0f;  // v / 255 is v * 257 / 65535, rounded alike
  IMF_info info;
  IMF_info_init(&info);
  info.name = info.handle = path.c_str(), info.key = key, info.program = "Vora";
  info.comment = "Image converted using ifftoany";
  IMF_image& r = info.image;
  r.xMax = img.width - 1, r.yMax = img.height - 1;
  r.colorChannels = img.channels <= 2 ? 1 : 3;
  r.matteChannels = img.alpha && f->alphaCount > 0 ? 1 : 0;
  r.colorBits = bits, r.colorType = bits == 32 ? IMF_TYPE_FLOAT : IMF_TYPE_INT;
  r.topDown = (f->scanOrders & IMF_ORDER_BOTTOM_UP) ? 0 : 1;
  std::vector<const char*> items;
  for (const std::string& s : opt.settings) items.push_back(s.c_str());
  info.settings.items = items.data(), info.settings.count = int32_t(items.size());
  IMF_object* out = IMF_open(&info, "w");
  if (!out) return error = std::string(IMF_last_error()), false;
  int planes = 0;
  void** line = IMF_chan_alloc(&r, img.width, &planes);
  bool ok = line != nullptr;
  for (int l = 0; ok && l < img.height; ++l) {
    const int y = r.topDown ? img.height - 1 - l : l;
    if (bits == 8 && img.bytes == 1) {  // the common case: our lines as they are
      if (l + 1 < img.height) prefetch(&img.pixels[size_t(r.topDown ? y - 1 : y + 1) * img.width * 4], size_t(img.width) * 4);
      ok = IMF_scan_write_pixels(out, l, IMF_PIXELS_BGRA8, &img.pixels[size_t(y) * img.width * 4]) == 0;
      continue;
    }
    for (int x = 0; x < img.width; ++x) {
      const size_t at = (size_t(y) * img.width + x) * 4;
      auto element = [&](int e) -> uint32_t {
        if (img.bytes == 1) return img.pixels[at + e];
        uint16_t v;
        memcpy(&v, &img.pixels[(at + e) * 2], 2);
        return v;
      };
      // Grey from green; red, green, blue; matte from alpha.
      const int elements[4] = {r.colorChannels == 1 ? 1 : 2, 1, 0, 3};
      for (int c = 0; c < r.colorChannels + r.matteChannels; ++c) {
        const uint32_t v = element(c == r.colorChannels ? 3 : elements[c]);
        if (bits == 8) static_cast<uint8_t*>(line[c])[x] = uint8_t(v);
        else if (bits == 16) static_cast<uint16_t*>(line[c])[x] = uint16_t(v);
        else static_cast<float*>(line[c])[x] = float(v) / unit;
      }
    }
    ok = IMF_scan_write(out, l, line) == 0;
  }
  if (!ok) error = line ? std::string(IMF_last_error()) : path + ": out of memory";
  IMF_chan_free(line);
  if (IMF_close(out) != 0 && ok) ok = false, error = IMF_last_error();
  return ok;
}

}  // namespace vimg
