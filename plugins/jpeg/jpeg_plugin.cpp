// JPEG through libjpeg-turbo: 8-bit grey, YCbCr and CMYK files read as grey or RGB; written as
// 8-bit grey or RGB at the "quality" setting (default 90).
#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>
#if defined(__GNUC__) && defined(__x86_64__)
#include <tmmintrin.h>
#endif

#include "common/whole_image.h"

namespace {

using vplug::Picture;

// libjpeg reports errors by calling error_exit, which must not return: it jumps back with the
// message kept. No object with a destructor is made between setjmp and the calls that may jump.
struct Failure {
  jpeg_error_mgr manager;
  jmp_buf back;
  char message[JMSG_LENGTH_MAX] = "";
};

void onError(j_common_ptr info) {
  auto* f = reinterpret_cast<Failure*>(info->err);
  info->err->format_message(info, f->message);
  longjmp(f->back, 1);
}
void onMessage(j_common_ptr, int) {}  // warnings of damaged data: the picture is still decoded

// 8-bit blue, green, red, matte pixels as red, green, blue. libjpeg-turbo takes BGRX lines too,
// but codes them 10 to 15% slower than RGB ones (its colour step reads 4-byte pixels); this copy
// of a line, in the cache, costs less than the difference. `rgb` has 4 bytes to spare.
void bgraToRgbPlain(const uint8_t* bgra, uint8_t* rgb, int n) {
  for (int x = 0; x < n; ++x) rgb[3 * x] = bgra[4 * x + 2], rgb[3 * x + 1] = bgra[4 * x + 1], rgb[3 * x + 2] = bgra[4 * x];
}
#if defined(__GNUC__) && defined(__x86_64__)
__attribute__((target("ssse3"))) void bgraToRgbSsse3(const uint8_t* bgra, uint8_t* rgb, int n) {
  const __m128i order = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  int x = 0;
  for (; x + 4 <= n; x += 4)  // 12 bytes of pixels a store, and 4 the next one writes over
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rgb + 3 * x),
                     _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra + 4 * x)), order));
  bgraToRgbPlain(bgra + 4 * x, rgb + 3 * x, n - x);
}
void bgraToRgb(const uint8_t* bgra, uint8_t* rgb, int n) {
  static const bool ssse3 = __builtin_cpu_supports("ssse3");
  (ssse3 ? bgraToRgbSsse3 : bgraToRgbPlain)(bgra, rgb, n);
}
#else
void bgraToRgb(const uint8_t* bgra, uint8_t* rgb, int n) { bgraToRgbPlain(bgra, rgb, n); }
#endif

struct JpegCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 0, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN;  // streamed top line first

  static bool probe(const unsigned char* head, size_t n) { return n >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF; }

  // Reading streams: each line is decoded as it is asked for, no picture is held whole. The
  // decoder starts at the first line, in the layout that line asks for: libjpeg-turbo gives
  // blue, green, red, alpha lines itself (BGRA).
  struct Reader {
    jpeg_decompress_struct info;
    Failure failure;
    std::vector<uint8_t> file, cmyk;
    bool created = false, fourChannels = false;
    int layout = 0;  // of the first line: IMF_PIXELS_RECORD or IMF_PIXELS_BGRA8
  };

  // The calls that may jump, each with no object of its own that a jump would skip.
  static bool start(Reader& r, IMF_image& image, std::string& why) {
    if (setjmp(r.failure.back)) return why = r.failure.message, false;
    jpeg_create_decompress(&r.info);
    r.created = true;
    jpeg_mem_src(&r.info, r.file.data(), static_cast<unsigned long>(r.file.size()));
    jpeg_read_header(&r.info, TRUE);
    r.fourChannels = r.info.jpeg_color_space == JCS_CMYK || r.info.jpeg_color_space == JCS_YCCK;
    r.info.out_color_space = r.fourChannels ? JCS_CMYK : r.info.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_calc_output_dimensions(&r.info);
    const int w = int(r.info.output_width), h = int(r.info.output_height), colour = r.info.out_color_space == JCS_GRAYSCALE ? 1 : 3;
    // A JPEG block of 64 samples takes at least a few bits: 4096 times expansion bounds any file.
    if (w < 1 || h < 1 || w > (1 << 20) || h > (1 << 20) ||
        !FLdecodeok(uint64_t(w) * h * colour, int64_t(r.file.size()), 4096))
      return why = std::to_string(w) + " x " + std::to_string(h) + " pixels cannot come from a file of " +
                   std::to_string(r.file.size()) + " bytes",
             false;
    image = IMF_image{};
    image.xMax = w - 1, image.yMax = h - 1, image.aspectWidth = image.aspectHeight = 1, image.pixelAspect = 1.0f;
    image.colorChannels = colour, image.colorBits = 8, image.colorType = IMF_TYPE_INT;
    image.depthBits = 32, image.depthType = IMF_TYPE_FLOAT, image.topDown = 1, image.frames = 1;
    if (r.fourChannels) r.cmyk.resize(size_t(w) * 4);
    return true;
  }
  static bool row(Reader& r, uint8_t* out, int layout, std::string& why) {
    if (r.layout && layout != r.layout) return why = "lines of one picture come in one layout", false;
    if (setjmp(r.failure.back)) return why = r.failure.message, false;
    if (!r.layout) {
      r.layout = layout;
      if (layout == IMF_PIXELS_BGRA8 && !r.fourChannels) r.info.out_color_space = JCS_EXT_BGRA;
      jpeg_start_decompress(&r.info);
    }
    JSAMPROW line = r.fourChannels ? r.cmyk.data() : out;
    if (jpeg_read_scanlines(&r.info, &line, 1) != 1) return why = "the file ends early", false;
    // Adobe's CMYK is stored inverted: each colour is its ink times the black, over 255.
    const bool bgra = layout == IMF_PIXELS_BGRA8;
    for (size_t x = 0; r.fourChannels && x < r.info.output_width; ++x) {
      for (int c = 0; c < 3; ++c) out[x * (bgra ? 4 : 3) + (bgra ? 2 - c : c)] = uint8_t(r.cmyk[x * 4 + c] * r.cmyk[x * 4 + 3] / 255);
      if (bgra) out[x * 4 + 3] = 255;
    }
    return true;
  }

  static void* openStream(const char* path, IMF_image& image, std::string& why) {
    auto* r = new Reader;
    r->info.err = jpeg_std_error(&r->failure.manager);
    r->failure.manager.error_exit = onError, r->failure.manager.emit_message = onMessage;
    if (!vplug::readWhole(path, r->file, why) || !start(*r, image, why)) return closeStream(r), nullptr;
    return r;
  }
  static bool readStreamLine(void* s, uint8_t* line, std::string& why) { return row(*static_cast<Reader*>(s), line, IMF_PIXELS_RECORD, why); }
  static bool readStreamLineBgra(void* s, uint8_t* line, std::string& why) { return row(*static_cast<Reader*>(s), line, IMF_PIXELS_BGRA8, why); }
  static void closeStream(void* s) {
    auto* r = static_cast<Reader*>(s);
    if (r->created) jpeg_destroy_decompress(&r->info);  // abandons what was not read
    delete r;
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    return vplug::readByLines<JpegCodec>(path, frames, why);
  }

  // Writing streams: each line is coded as it comes, no picture is held whole. The coder starts
  // at the first line, taking the layout that line comes in; 8-bit blue, green, red, matte lines
  // go through one line of red, green, blue (or grey) each.
  struct Writer {
    jpeg_compress_struct info;
    Failure failure;
    FILE* out = nullptr;
    int layout = 0;                  // of the first line: IMF_PIXELS_RECORD or IMF_PIXELS_BGRA8
    std::vector<uint8_t> line;       // a line taken from BGRA8: grey (the green) or RGB
    std::vector<char> buffer;        // the file's, until it is closed
  };

  // The calls that may jump, each with no object of its own that a jump would skip.
  static bool start(Writer& w, const IMF_image& image, int quality) {
    if (setjmp(w.failure.back)) return false;
    jpeg_create_compress(&w.info);
    jpeg_stdio_dest(&w.info, w.out);
    w.info.image_width = JDIMENSION(image.xMax - image.xMin + 1), w.info.image_height = JDIMENSION(image.yMax - image.yMin + 1);
    w.info.input_components = image.colorChannels;
    w.info.in_color_space = image.colorChannels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&w.info);
    jpeg_set_quality(&w.info, quality < 1 ? 1 : quality > 100 ? 100 : quality, TRUE);
    return true;
  }
  static bool line(Writer& w, const uint8_t* row, int layout) {
    if (w.layout && layout != w.layout) return snprintf(w.failure.message, sizeof w.failure.message, "lines of one picture come in one layout"), false;
    if (setjmp(w.failure.back)) return false;
    if (!w.layout) {
      w.layout = layout;
      jpeg_start_compress(&w.info, TRUE);
    }
    JSAMPROW r = const_cast<JSAMPROW>(row);
    jpeg_write_scanlines(&w.info, &r, 1);
    return true;
  }
  static bool finish(Writer& w) {
    if (setjmp(w.failure.back)) return false;
    jpeg_finish_compress(&w.info);
    return true;
  }

  static void* beginStream(const char* path, const IMF_image& image, const IMF_settings* settings, std::string& why) {
    if (image.colorBits != 8 || image.colorChannels == 0 || image.matteChannels || image.depthChannels)
      return why = "JPEG holds 8-bit grey or RGB pictures", nullptr;
    const int quality = std::stoi(vplug::setting(settings, "quality", "90"));
    auto* w = new Writer;
    w->info.err = jpeg_std_error(&w->failure.manager);
    w->failure.manager.error_exit = onError;
    if (!(w->out = fopen(path, "wb"))) return why = std::string("cannot be created: ") + strerror(errno), delete w, nullptr;
    w->buffer.resize(size_t(64) << 10);  // libjpeg hands over 4 KiB at a time: a write call each otherwise
    setvbuf(w->out, w->buffer.data(), _IOFBF, w->buffer.size());
    if (!start(*w, image, quality)) {
      std::string ignored;
      why = w->failure.message;
      endStream(w, false, ignored);
      return nullptr;
    }
    return w;
  }
  static bool streamLine(void* s, const uint8_t* row, std::string& why) {
    auto* w = static_cast<Writer*>(s);
    return line(*w, row, IMF_PIXELS_RECORD) || (why = w->failure.message, false);
  }
  static bool streamLineBgra(void* s, const uint8_t* bgra, std::string& why) {
    auto* w = static_cast<Writer*>(s);
    const size_t width = w->info.image_width;
    w->line.resize(width * 3 + 4);
    if (w->info.in_color_space == JCS_GRAYSCALE) {  // grey is the green
      for (size_t x = 0; x < width; ++x) w->line[x] = bgra[x * 4 + 1];
    } else {
      bgraToRgb(bgra, w->line.data(), int(width));
    }
    return line(*w, w->line.data(), IMF_PIXELS_BGRA8) || (why = w->failure.message, false);
  }
  static bool endStream(void* s, bool keep, std::string& why) {
    auto* w = static_cast<Writer*>(s);
    bool ok = keep && finish(*w);
    if (keep && !ok) why = w->failure.message;
    jpeg_destroy_compress(&w->info);
    if (fclose(w->out) != 0 && ok) ok = false, why = std::string("cannot be finished: ") + strerror(errno);
    delete w;
    return ok;
  }

  // Pictures given bottom line first are held whole and coded at the end.
  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* settings, std::string& why) {
    return vplug::writeByLines<JpegCodec>(path, frames, settings, why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(JpegCodec, "jpeg", "jpg", "JPEG", "JPEG/JFIF (libjpeg-turbo)")
