// Movies: TaviMovie, the video track of an AVI file. Compressors are chosen by name, offered frame
// formats from a fixed walk over bit counts, and fed frames converted from 32-bit pixels.
#include <vora/foundation/messages.h>
#include <vora/movie.h>

#include <algorithm>
#include <cstring>

#include "platform/avi_file.h"

using namespace vora::platform;

namespace {

constexpr uint32_t kDib = fourCC("DIB "), kMsvc = fourCC("MSVC");
constexpr unsigned kBitCounts[] = {32, 24, 16, 8};

Tstring fourCCText(uint32_t v) {
  char t[5] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24), 0};
  return Tstring(std::string(t, 4));
}

uint32_t imageSize(unsigned bits, unsigned width, unsigned height) {
  return ((bits * width + 7) / 8 + 3) / 4 * 4 * height;
}

void put32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
}

// The 40-byte bitmap information header; at 8 bits the 6 x 6 x 6 colour cube follows it.
std::vector<uint8_t> frameFormatFor(unsigned bits, unsigned width, unsigned height) {
  std::vector<uint8_t> f(bits == 8 ? 1064 : 40, 0);
  put32(f, 0, 40), put32(f, 4, width), put32(f, 8, height);
  f[12] = 1, f[14] = uint8_t(bits);
  put32(f, 20, imageSize(bits, width, height));
  if (bits == 8) {
    put32(f, 32, 256);
    for (unsigned i = 0; i < 256; ++i) {  // entries past 215 are never used by the conversion
      f[40 + 4 * i] = uint8_t((i / 36) * 51);
      f[41 + 4 * i] = uint8_t(((i / 6) % 6) * 51);
      f[42 + 4 * i] = uint8_t((i % 6) * 51);
    }
  }
  return f;
}

}  // namespace

TaviMovie::TaviMovie() = default;

TaviMovie::~TaviMovie() { close(); }

bool TaviMovie::create(const TfilePath& path, unsigned frameRate) {
  close();
  auto f = std::make_unique<AviFileWriter>();
  if (!f->create(path.asChar())) return false;
  file_ = std::move(f);
  rate_ = frameRate ? frameRate : 1;
  streamMade_ = false;
  return true;
}

bool TaviMovie::close() {
  if (trackOpen_) closeTrack();
  if (!file_) return false;
  bool ok = file_->close();
  file_.reset();
  return ok;
}

void TaviMovie::enumCodec(TstringArray& names) {
  std::vector<uint32_t> seen;
  VideoCompressorInfo info;
  for (int i = 0; videoCompressorInfo(i, info); ++i) {
    if (std::find(seen.begin(), seen.end(), info.handler) != seen.end()) continue;
    seen.push_back(info.handler);
    names.push_back(info.shortName);
  }
  names.push_back("none");
}

bool TaviMovie::setCompression(const Tstring& name, int quality) {
  options_ = TaviCompressOptions();
  Tstring want = name.toLower();
  if (want.isEmpty()) want = "none";  // no compression dialog here: the user's answer is "none"
  if (want == Tstring("none")) {
    options_.type = fourCC("vids"), options_.handler = kDib, options_.flags = 8;
    return true;
  }
  VideoCompressorInfo info;
  for (int i = 0; videoCompressorInfo(i, info); ++i) {
    if (Tstring(info.shortName).toLower() != want && fourCCText(info.handler).toLower() != want) continue;
    options_.type = fourCC("vidc"), options_.handler = info.handler;
    options_.keyFrameEvery = 10, options_.quality = uint32_t(std::clamp(quality, 0, 100) * 100);
    options_.flags = 12;
    return true;
  }
  return false;
}

void TaviMovie::setError(const char* key) { error_ = TstringId(key).text(); }

unsigned TaviMovie::bitCount() const { return format_.size() >= 16 ? format_[14] : 0; }

unsigned TaviMovie::createVideoTrack(unsigned width, unsigned height) {
  error_ = "";
  if (!file_ || streamMade_ || trackOpen_ || width == 0 || height == 0 || width > 32768 || height > 32768) {
    setError("s_TmovieStrings.rUnableToCreateStream");
    return 0xFFFFFFFF;
  }
  const uint32_t handler = options_.handler ? options_.handler : kDib;
  auto accepts = [&](const std::vector<uint8_t>& format) {
    unsigned bits = format[14];
    if (handler == kDib) return bits == 32 || bits == 24 || bits == 16 || bits == 8;
    auto e = std::make_unique<VideoEncoder>();
    if (!e->open(handler, int(bits), int(width), int(height), rate_, int(options_.keyFrameEvery), int(options_.quality)))
      return false;
    encoder_ = std::move(e);
    return true;
  };
  // Without an options dialog no format is ever chosen ahead: the walk over bit counts decides.
  // Only Microsoft Video 1 is offered 32-bit frames (kept: other compressors were never asked).
  std::vector<uint8_t> accepted;
  size_t first = handler == kMsvc ? 0 : 1;
  for (size_t i = 0; i < 4; ++i)
    if (firstBitCount_ == kBitCounts[i]) first = i;
  for (size_t i = first; i < 4 && accepted.empty(); ++i) {
    std::vector<uint8_t> f = frameFormatFor(kBitCounts[i], width, height);
    if (accepts(f)) accepted = f;
  }
  if (accepted.empty()) return 0xFFFFFFFF;
  // The file's format says what the samples are: the compressor's code for compressed streams.
  std::vector<uint8_t> stored = accepted;
  if (handler != kDib) {
    put32(stored, 16, handler);
    std::vector<uint8_t> extra = encoder_ ? encoder_->extraData() : std::vector<uint8_t>();
    if (!extra.empty() && stored.size() == 40) {  // the header's size counts what follows it
      stored.insert(stored.end(), extra.begin(), extra.end());
      put32(stored, 0, uint32_t(stored.size()));
    }
  }
  AviStreamHeader h;
  h.type = fourCC("vids"), h.handler = handler, h.rate = rate_, h.scale = 1, h.quality = 10000;
  h.name = "Video Stream";
  if (!file_->setVideoStream(h, stored, int(width), int(height))) {
    encoder_.reset();
    setError("s_TmovieStrings.rUnableToCreateStream");
    return 0xFFFFFFFF;
  }
  streamMade_ = true;
  format_ = accepted;
  const unsigned bits = bitCount();
  buffer_.assign(bits == 32 && handler == kDib ? 0 : imageSize(bits, width, height), 0);
  width_ = width, height_ = height, frame_ = 0, trackOpen_ = true;
  return 1;
}

bool TaviMovie::convert(const unsigned char* in) {
  const unsigned bits = bitCount();
  const size_t row = imageSize(bits, width_, 1);
  uint8_t* out = buffer_.data();
  for (unsigned y = 0; y < height_; ++y, in += size_t(width_) * 4) {
    uint8_t* o = out + y * (bits == 16 ? size_t(width_) * 2 : row);  // 16-bit rows are not padded (kept)
    switch (bits) {
      case 32:
        memcpy(o, in, size_t(width_) * 4);
        break;
      case 24:
        for (unsigned x = 0; x < width_; ++x) o[3 * x] = in[4 * x], o[3 * x + 1] = in[4 * x + 1], o[3 * x + 2] = in[4 * x + 2];
        break;
      case 16:
        for (unsigned x = 0; x < width_; ++x) {
          const unsigned char* p = in + 4 * x;
          uint16_t v = uint16_t(((p[2] & 0xF8) << 7) + ((p[1] & 0xF8) << 2) + (p[0] >> 3));
          o[2 * x] = uint8_t(v), o[2 * x + 1] = uint8_t(v >> 8);
        }
        break;
      case 8:
        for (unsigned x = 0; x < width_; ++x) {
          const unsigned char* p = in + 4 * x;
          o[x] = uint8_t(36 * ((p[0] + 25) / 51) + 6 * ((p[1] + 25) / 51) + (p[2] + 25) / 51);
        }
        break;
      default:
        return false;
    }
  }
  return true;
}

bool TaviMovie::writeFrame(unsigned char* pixels) {
  if (!trackOpen_ || !pixels) return false;
  const unsigned bits = bitCount();
  const uint8_t* frame = pixels;
  // A compressor given 24-bit frames reads the 32-bit pixels itself: the same picture, one copy
  // fewer.
  const bool direct = encoder_ && bits == 24;
  if (!buffer_.empty() && !direct) {
    if (!convert(pixels)) return false;
    frame = buffer_.data();
  }
  const size_t size = imageSize(bits, width_, height_);
  bool ok;
  if (!encoder_) {
    ok = file_->writeSample(frame, size, true, false);
  } else {
    bool key = false;
    ok = encoder_->encode(frame, direct ? size_t(width_) * 4 : size / height_, bits == 8 ? format_.data() + 40 : nullptr,
                          packet_, key, direct) &&
         file_->writeSample(packet_.data(), packet_.size(), key, true);
  }
  if (!ok) return false;
  ++frame_;
  return true;
}

bool TaviMovie::closeTrack() {
  encoder_.reset();
  format_.clear(), buffer_.clear(), buffer_.shrink_to_fit();
  options_ = TaviCompressOptions();
  trackOpen_ = false;
  return true;
}
