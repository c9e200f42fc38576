// WebP through libwebp: still pictures, lossy or lossless, read as 8-bit RGB or RGBA; written
// lossless unless a "quality" (1-100) asks for lossy coding.
#include <webp/decode.h>
#include <webp/encode.h>

#include <cstdio>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

struct WebpCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) { return n >= 12 && memcmp(h, "RIFF", 4) == 0 && memcmp(h + 8, "WEBP", 4) == 0; }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    WebPBitstreamFeatures f;
    if (WebPGetFeatures(file.data(), file.size(), &f) != VP8_STATUS_OK) return why = "damaged WebP data", false;
    if (f.has_animation) return why = "animated WebP files are not read", false;
    frames.resize(1);
    Picture& p = frames[0];
    // Lossless WebP codes long runs by back-references: the allocation limit bounds it.
    if (!p.create(f.width, f.height, 3, f.has_alpha ? 1 : 0, 8, IMF_TYPE_INT, -1, 0, why)) return false;
    const int stride = int(p.rowBytes());
    const uint8_t* ok = f.has_alpha ? WebPDecodeRGBAInto(file.data(), file.size(), p.samples.data(), p.samples.size(), stride)
                                    : WebPDecodeRGBInto(file.data(), file.size(), p.samples.data(), p.samples.size(), stride);
    return ok || (why = "damaged WebP data", false);
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* s, std::string& why) {
    const Picture& src = frames[0];
    if (src.image.colorBits != 8 || src.image.colorChannels == 0) return why = "WebP holds 8-bit pictures", false;
    if (src.width() > WEBP_MAX_DIMENSION || src.height() > WEBP_MAX_DIMENSION) return why = "larger than WebP allows", false;
    // Grey is spread to RGB: WebP has no grey of its own.
    const int n = src.channels(), outN = src.image.matteChannels ? 4 : 3;
    std::vector<uint8_t> rgb(size_t(src.width()) * src.height() * outN);
    for (size_t i = 0, px = size_t(src.width()) * src.height(); i < px; ++i) {
      const uint8_t* q = src.samples.data() + i * n;
      uint8_t* d = &rgb[i * outN];
      d[0] = q[0], d[1] = n >= 3 ? q[1] : q[0], d[2] = n >= 3 ? q[2] : q[0];
      if (outN == 4) d[3] = q[n - 1];
    }
    const std::string quality = vplug::setting(s, "quality");
    WebPConfig config;
    WebPPicture pic;
    if (!WebPConfigInit(&config) || !WebPPictureInit(&pic)) return why = "libwebp of another version", false;
    config.lossless = quality.empty();
    config.quality = quality.empty() ? 75.0f : std::stof(quality);
    config.exact = 1;  // the colour of fully transparent pixels is kept, as the caller gave it
    pic.use_argb = config.lossless, pic.width = src.width(), pic.height = src.height();
    WebPMemoryWriter memory;
    WebPMemoryWriterInit(&memory);
    pic.writer = WebPMemoryWrite, pic.custom_ptr = &memory;
    const int stride = src.width() * outN;
    bool encoded = (outN == 4 ? WebPPictureImportRGBA(&pic, rgb.data(), stride) : WebPPictureImportRGB(&pic, rgb.data(), stride)) &&
                   WebPEncode(&config, &pic);
    WebPPictureFree(&pic);
    if (!encoded) return WebPMemoryWriterClear(&memory), why = "cannot be encoded", false;
    const bool ok = vplug::writeWhole(path, memory.mem, memory.size, why);
    WebPMemoryWriterClear(&memory);
    return ok;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(WebpCodec, "webp", "webp", "WebP", "WebP still pictures (libwebp)")
