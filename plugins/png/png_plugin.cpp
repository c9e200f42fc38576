// PNG through libpng: 1 to 16-bit grey, grey and alpha, palette, RGB and RGBA, interlaced or not,
// read as 8 or 16-bit grey or RGB with matte; written at 8 or 16 bits.
#include <png.h>

#include <csetjmp>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

// libpng reports errors by longjmp: the message is kept here, and no object with a destructor is
// made between setjmp and the calls that may jump.
struct Failure {
  char message[200] = "";
};

void onError(png_structp png, png_const_charp message) {
  auto* f = static_cast<Failure*>(png_get_error_ptr(png));
  snprintf(f->message, sizeof f->message, "%s", message);
  png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}

struct Source {
  const uint8_t* data;
  size_t size, at;
};

void readBytes(png_structp png, png_bytep out, png_size_t n) {
  auto* s = static_cast<Source*>(png_get_io_ptr(png));
  if (n > s->size - s->at) png_error(png, "the file ends early");
  memcpy(out, s->data + s->at, n);
  s->at += n;
}

// libpng allocates what a chunk's length says before it reads the chunk, so a damaged length would
// cost gigabytes; every chunk up to IEND must lie inside the file. Returns the damaged chunk's offset.
size_t chunkPastTheEnd(const std::vector<uint8_t>& file) {
  for (size_t at = 8; at + 8 <= file.size();) {  // libpng acts on a header it could read whole
    const uint8_t* c = file.data() + at;
    const size_t length = size_t(c[0]) << 24 | size_t(c[1]) << 16 | size_t(c[2]) << 8 | c[3];
    if (file.size() - at < 12 || length > file.size() - at - 12) return at;
    if (memcmp(c + 4, "IEND", 4) == 0) return 0;
    at += 12 + length;
  }
  return 0;  // a file cut inside a chunk header: libpng says so when it reads there
}

struct PngCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7 | 1u << 15;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* head, size_t n) { return n >= 8 && png_sig_cmp(head, 0, 8) == 0; }

  // Everything that may jump, with no object of its own that a jump would skip.
  static bool decode(png_structp png, png_infop info, Picture& p, int64_t fileBytes, std::vector<png_bytep>& rows,
                     std::string& why) {
    png_read_info(png, info);
    png_set_expand(png);  // palette to RGB, grey below 8 bits to 8, transparency to alpha
    if (png_get_bit_depth(png, info) == 16) png_set_swap(png);  // samples in machine order
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const int channels = png_get_channels(png, info), bits = png_get_bit_depth(png, info);
    const int colour = channels >= 3 ? 3 : 1, matte = channels == 2 || channels == 4;
    if (!p.create(int(png_get_image_width(png, info)), int(png_get_image_height(png, info)), colour, matte, bits,
                  IMF_TYPE_INT, fileBytes, 1032 * 32, why))  // zlib expands 1032 times, 1-bit palette to RGBA 32
      return false;
    rows.resize(size_t(p.height()));
    for (int y = 0; y < p.height(); ++y) rows[size_t(y)] = p.row(y);
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    return true;
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    if (const size_t at = chunkPastTheEnd(file))
      return why = "damaged at offset " + std::to_string(at) + ": a chunk runs past the end of the file", false;
    Failure failure;
    Source source{file.data(), file.size(), 0};
    frames.resize(1);
    std::vector<png_bytep> rows;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &failure, onError, onWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) return png_destroy_read_struct(&png, nullptr, nullptr), why = "out of memory", false;
    if (setjmp(png_jmpbuf(png))) {
      png_destroy_read_struct(&png, &info, nullptr);
      why = failure.message[0] ? failure.message : "damaged PNG data";
      return false;
    }
    png_set_read_fn(png, &source, readBytes);
    const bool ok = decode(png, info, frames[0], int64_t(file.size()), rows, why);
    png_destroy_read_struct(&png, &info, nullptr);
    return ok;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* settings,
                    std::string& why) {
    const Picture& p = frames[0];
    if (p.image.colorChannels == 0 || (p.image.colorBits != 8 && p.image.colorBits != 16))
      return why = "PNG holds 8 or 16-bit grey or RGB pictures", false;
    const int level = std::stoi(vplug::setting(settings, "compression", "6"));
    const int type = (p.image.colorChannels == 3 ? PNG_COLOR_MASK_COLOR : 0) | (p.image.matteChannels ? PNG_COLOR_MASK_ALPHA : 0);
    std::vector<png_bytep> rows(size_t(p.height()));
    for (int y = 0; y < p.height(); ++y) rows[size_t(y)] = const_cast<png_bytep>(p.row(y));
    FILE* out = fopen(path, "wb");
    if (!out) return why = std::string("cannot be created: ") + strerror(errno), false;
    Failure failure;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure, onError, onWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info || setjmp(png_jmpbuf(png))) {
      png_destroy_write_struct(&png, &info);
      fclose(out);
      why = failure.message[0] ? failure.message : "cannot be written";
      return false;
    }
    png_init_io(png, out);
    png_set_compression_level(png, level < 0 ? 0 : level > 9 ? 9 : level);
    png_set_IHDR(png, info, png_uint_32(p.width()), png_uint_32(p.height()), p.image.colorBits, type,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (p.image.colorBits == 16) png_set_swap(png);
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    if (fclose(out) != 0) return why = std::string("cannot be finished: ") + strerror(errno), false;
    return true;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(PngCodec, "png", "png", "PNG", "Portable Network Graphics (libpng)")
