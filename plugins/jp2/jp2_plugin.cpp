// JPEG 2000 through OpenJPEG: JP2 files and bare codestreams (.j2k, .j2c, .jpc) of one to four
// components of 1 to 16 bits and one size (subsampled alike, or not), read as 8-bit (up to 8 bits)
// or 16-bit grey or RGB with matte at the components' size;
// written reversibly (lossless) unless a "ratio" (a compression ratio above 1) asks for the
// irreversible wavelet at that size.
#include <openjpeg.h>

#include <cctype>
#include <cstdio>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

const uint8_t kJp2Signature[12] = {0, 0, 0, 12, 'j', 'P', ' ', ' ', 0x0D, 0x0A, 0x87, 0x0A};
const uint8_t kCodestream[4] = {0xFF, 0x4F, 0xFF, 0x51};  // start of codestream, then the size marker

// A lossless codestream of a flat picture codes each 64 x 64 block in a few bytes.
constexpr uint32_t kLargestRatio = 1u << 16;

bool bareCodestream(const std::string& path) {
  const size_t dot = path.rfind('.');
  std::string ext = dot == std::string::npos ? "" : path.substr(dot + 1);
  for (char& c : ext) c = char(tolower(static_cast<unsigned char>(c)));
  return ext == "j2k" || ext == "j2c" || ext == "jpc";
}

void keepMessage(const char* message, void* why) {
  std::string& w = *static_cast<std::string*>(why);
  if (w.empty()) w = message, w.erase(w.find_last_not_of('\n') + 1);
}
void ignore(const char*, void*) {}

// False, with the library's own message when it gave one.
bool failed(std::string& why, const char* otherwise) {
  if (why.empty()) why = otherwise;
  return false;
}

struct Source {
  const std::vector<uint8_t>* file;
  size_t at = 0;
};

OPJ_SIZE_T readBytes(void* out, OPJ_SIZE_T n, void* user) {
  auto* s = static_cast<Source*>(user);
  const size_t left = s->file->size() - s->at;
  if (left == 0) return OPJ_SIZE_T(-1);
  n = std::min(n, left);
  memcpy(out, s->file->data() + s->at, n);
  s->at += n;
  return n;
}
OPJ_OFF_T skipBytes(OPJ_OFF_T n, void* user) {
  auto* s = static_cast<Source*>(user);
  if (n < 0 || uint64_t(n) > s->file->size() - s->at) return -1;
  s->at += size_t(n);
  return n;
}
OPJ_BOOL seekTo(OPJ_OFF_T to, void* user) {
  auto* s = static_cast<Source*>(user);
  if (to < 0 || uint64_t(to) > s->file->size()) return OPJ_FALSE;
  s->at = size_t(to);
  return OPJ_TRUE;
}

// The codec, the stream and the decoded image, released together whatever way a call ends.
struct Session {
  opj_codec_t* codec = nullptr;
  opj_stream_t* stream = nullptr;
  opj_image_t* image = nullptr;
  ~Session() {
    if (image) opj_image_destroy(image);
    if (stream) opj_stream_destroy(stream);
    if (codec) opj_destroy_codec(codec);
  }
};

struct Jp2Codec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE;
  static constexpr uint32_t bitsMask = 1u << 7 | 1u << 15;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) {
    return (n >= 12 && memcmp(h, kJp2Signature, 12) == 0) || (n >= 4 && memcmp(h, kCodestream, 4) == 0);
  }

  // The picture's layout from the decoded header: components of at most 16 bits and one size, in a
  // colour space read as grey or RGB.
  static bool layout(const opj_image_t& im, int& colour, int& matte, int& bits, uint32_t& w, uint32_t& h, std::string& why) {
    if (im.numcomps < 1 || im.x1 <= im.x0 || im.y1 <= im.y0) return why = "no picture in the codestream", false;
    if (im.color_space == OPJ_CLRSPC_SYCC || im.color_space == OPJ_CLRSPC_EYCC || im.color_space == OPJ_CLRSPC_CMYK)
      return why = "colour space " + std::to_string(int(im.color_space)) + " is not read", false;
    const unsigned used = std::min(im.numcomps, 4u);
    unsigned prec = 0;
    w = h = 0;
    for (unsigned c = 0; c < used; ++c) {
      const opj_image_comp_t& k = im.comps[c];
      if (k.w == 0 || k.h == 0 || (c && (k.w != w || k.h != h))) return why = "components of different sizes", false;
      if (k.prec < 1 || k.prec > 16) return why = "components of " + std::to_string(k.prec) + " bits", false;
      prec = std::max(prec, k.prec), w = k.w, h = k.h;
    }
    colour = used >= 3 ? 3 : 1, matte = used == 2 || used == 4, bits = prec <= 8 ? 8 : 16;
    return true;
  }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    const bool jp2 = file.size() >= 12 && memcmp(file.data(), kJp2Signature, 12) == 0;
    Session s;
    Source source{&file};
    s.codec = opj_create_decompress(jp2 ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K);
    s.stream = opj_stream_create(1 << 16, OPJ_TRUE);
    if (!s.codec || !s.stream) return why = "out of memory", false;
    opj_stream_set_user_data(s.stream, &source, nullptr);
    opj_stream_set_user_data_length(s.stream, file.size());
    opj_stream_set_read_function(s.stream, readBytes);
    opj_stream_set_skip_function(s.stream, skipBytes);
    opj_stream_set_seek_function(s.stream, seekTo);
    opj_set_error_handler(s.codec, keepMessage, &why);
    opj_set_warning_handler(s.codec, ignore, nullptr);
    opj_dparameters_t params;
    opj_set_default_decoder_parameters(&params);
    if (!opj_setup_decoder(s.codec, &params) || !opj_read_header(s.stream, s.codec, &s.image))
      return failed(why, "damaged JPEG 2000 header");
    int colour, matte, bits;
    uint32_t w, h;
    if (!layout(*s.image, colour, matte, bits, w, h, why)) return false;
    // OpenJPEG holds every sample of every component as 32 bits while it decodes: at most the
    // reference grid's size each.
    const uint64_t grid = uint64_t(s.image->x1 - s.image->x0) * (s.image->y1 - s.image->y0);
    if (w > (1u << 20) || h > (1u << 20) || !FLallocok(grid * s.image->numcomps * 4))
      return why = std::to_string(w) + " x " + std::to_string(h) + " pixels of " + std::to_string(s.image->numcomps) + " components", false;
    frames.resize(1);
    Picture& p = frames[0];
    if (!p.create(int(w), int(h), colour, matte, bits, IMF_TYPE_INT, int64_t(file.size()), kLargestRatio, why)) return false;
    opj_codec_set_threads(s.codec, 2);
    if (!opj_decode(s.codec, s.stream, s.image) || !opj_end_decompress(s.codec, s.stream))
      return failed(why, "damaged JPEG 2000 data");
    return place(*s.image, p, why);
  }

  // Each component's samples, made unsigned and scaled to the picture's 8 or 16 bits.
  static bool place(const opj_image_t& im, Picture& p, std::string& why) {
    const int n = p.channels(), w = p.width(), h = p.height();
    const uint32_t top = p.image.colorBits == 8 ? 255 : 65535;
    for (int c = 0; c < n; ++c) {
      const opj_image_comp_t& k = im.comps[c];
      if (!k.data || k.w != uint32_t(w) || k.h != uint32_t(h)) return why = "a component of another size", false;
      const int64_t offset = k.sgnd ? int64_t(1) << (k.prec - 1) : 0, most = (int64_t(1) << k.prec) - 1;
      for (int y = 0; y < h; ++y) {
        const OPJ_INT32* in = k.data + size_t(y) * w;
        uint8_t* row = p.row(y);
        for (int x = 0; x < w; ++x) {
          const int64_t v = std::clamp<int64_t>(in[x] + offset, 0, most);
          const auto out = uint32_t((v * top + most / 2) / most);
          if (top == 255) row[size_t(x) * n + c] = uint8_t(out);
          else reinterpret_cast<uint16_t*>(row)[size_t(x) * n + c] = uint16_t(out);
        }
      }
    }
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* settings, std::string& why) {
    const Picture& p = frames[0];
    const int bits = p.image.colorBits, n = p.channels(), w = p.width(), h = p.height();
    if (p.image.colorChannels == 0 || (bits != 8 && bits != 16)) return why = "JPEG 2000 is written from 8 or 16-bit grey or RGB", false;
    std::vector<opj_image_cmptparm_t> parts(static_cast<size_t>(n));
    for (opj_image_cmptparm_t& c : parts) c = opj_image_cmptparm_t{}, c.dx = c.dy = 1, c.w = OPJ_UINT32(w), c.h = OPJ_UINT32(h), c.prec = OPJ_UINT32(bits);
    Session s;
    s.image = opj_image_create(OPJ_UINT32(n), parts.data(), p.image.colorChannels == 3 ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY);
    if (!s.image) return why = "out of memory", false;
    s.image->x1 = OPJ_UINT32(w), s.image->y1 = OPJ_UINT32(h);
    if (p.image.matteChannels) s.image->comps[n - 1].alpha = 1;  // written as an opacity channel definition
    for (int c = 0; c < n; ++c)
      for (int y = 0; y < h; ++y) {
        const uint8_t* row = p.row(y);
        OPJ_INT32* out = s.image->comps[c].data + size_t(y) * w;
        for (int x = 0; x < w; ++x)
          out[x] = bits == 8 ? row[size_t(x) * n + c] : reinterpret_cast<const uint16_t*>(row)[size_t(x) * n + c];
      }
    opj_cparameters_t params;
    opj_set_default_encoder_parameters(&params);
    params.tcp_numlayers = 1, params.cp_disto_alloc = 1;
    const float ratio = std::stof(vplug::setting(settings, "ratio", "1"));
    params.irreversible = ratio > 1.0f, params.tcp_rates[0] = ratio > 1.0f ? ratio : 0.0f;
    // Each further resolution halves the picture: as many as its smaller side allows.
    params.numresolution = 1;
    while (params.numresolution < 6 && std::min(w, h) >> params.numresolution > 0) ++params.numresolution;
    s.codec = opj_create_compress(bareCodestream(path) ? OPJ_CODEC_J2K : OPJ_CODEC_JP2);
    if (!s.codec) return why = "out of memory", false;
    opj_set_error_handler(s.codec, keepMessage, &why);
    opj_set_warning_handler(s.codec, ignore, nullptr);
    if (!opj_setup_encoder(s.codec, &params, s.image)) return failed(why, "cannot be encoded");
    opj_codec_set_threads(s.codec, 2);
    if (!(s.stream = opj_stream_create_default_file_stream(path, OPJ_FALSE))) return why = std::string("cannot be created: ") + strerror(errno), false;
    const bool ok = opj_start_compress(s.codec, s.image, s.stream) && opj_encode(s.codec, s.stream) && opj_end_compress(s.codec, s.stream);
    return ok || failed(why, "cannot be encoded");
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(Jp2Codec, "jp2", "jp2 j2k j2c", "JPEG 2000", "JPEG 2000 files and codestreams (OpenJPEG)")
