// JPEG through libjpeg-turbo: 8-bit grey, YCbCr and CMYK files read as grey or RGB; written as
// 8-bit grey or RGB at the "quality" setting (default 90).
#include <cstdio>
#include <csetjmp>

#include <jpeglib.h>

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

struct JpegCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 0, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN;  // streamed top line first

  static bool probe(const unsigned char* head, size_t n) { return n >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF; }

  // Everything that may jump, with no object of its own that a jump would skip.
  static bool decode(jpeg_decompress_struct& info, Picture& p, int64_t fileBytes, std::vector<uint8_t>& cmyk,
                     std::string& why) {
    jpeg_read_header(&info, TRUE);
    const bool fourChannels = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
    info.out_color_space = fourChannels ? JCS_CMYK : info.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_calc_output_dimensions(&info);
    const int colour = info.out_color_space == JCS_GRAYSCALE ? 1 : 3;
    // A JPEG block of 64 samples takes at least a few bits: 4096 times expansion bounds any file.
    if (!p.create(int(info.output_width), int(info.output_height), colour, 0, 8, IMF_TYPE_INT, fileBytes, 4096, why))
      return false;
    jpeg_start_decompress(&info);
    if (fourChannels) cmyk.resize(size_t(p.width()) * 4);
    for (int y = 0; y < p.height(); ++y) {
      JSAMPROW row = fourChannels ? cmyk.data() : p.row(y);
      if (jpeg_read_scanlines(&info, &row, 1) != 1) return why = "the file ends early", false;
      // Adobe's CMYK is stored inverted: each colour is its ink times the black, over 255.
      for (int x = 0; fourChannels && x < p.width(); ++x)
        for (int c = 0; c < 3; ++c) p.row(y)[x * 3 + c] = uint8_t(cmyk[size_t(x) * 4 + c] * cmyk[size_t(x) * 4 + 3] / 255);
    }
    jpeg_finish_decompress(&info);
    return true;
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file, cmyk;
    if (!vplug::readWhole(path, file, why)) return false;
    frames.resize(1);
    jpeg_decompress_struct info;
    Failure failure;
    info.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = onError, failure.manager.emit_message = onMessage;
    if (setjmp(failure.back)) {
      jpeg_destroy_decompress(&info);
      why = failure.message;
      return false;
    }
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
    const bool ok = decode(info, frames[0], int64_t(file.size()), cmyk, why);
    jpeg_destroy_decompress(&info);
    return ok;
  }

  // Writing streams: each line is coded as it comes, no picture is held whole.
  struct Writer {
    jpeg_compress_struct info;
    Failure failure;
    FILE* out = nullptr;
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
    jpeg_start_compress(&w.info, TRUE);
    return true;
  }
  static bool line(Writer& w, const uint8_t* row) {
    if (setjmp(w.failure.back)) return false;
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
    return line(*w, row) || (why = w->failure.message, false);
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
    const Picture& p = frames[0];
    void* s = beginStream(path, p.image, settings, why);
    bool ok = s != nullptr;
    for (int y = 0; ok && y < p.height(); ++y) ok = streamLine(s, p.row(y), why);
    return s && endStream(s, ok, why) && ok;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(JpegCodec, "jpeg", "jpg", "JPEG", "JPEG/JFIF (libjpeg-turbo)")
