// HDR readers: Radiance RGBE pictures (.hdr): the text header, the resolution line in either
// vertical order (-Y: top row first, +Y: bottom row first), and scan lines flat or run-length
// coded per component, decoded one at a time (TradianceLines, which the Radiance plug-in streams
// through). Our own decoder: the common one (stb_image) reads only the -Y order.
#include <vora/foundation/fl.h>
#include <vora/hdr_readers.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>


bool TradianceLines::open(std::vector<uint8_t> bytes) {
  bytes_ = std::move(bytes), at_ = 0, line_ = 0;
  // Run-length coding packs at most 127 samples in 2 bytes: a file this small cannot hold more.
  if (!parseHeader() || !FLdecodeok(uint64_t(width_) * height_ * 4, int64_t(bytes_.size() - at_), 64)) {
    bytes_.clear();
    return false;
  }
  encoded_.resize(size_t(width_) * 4);
  return true;
}

bool TradianceLines::next(float* rgb) {
  // The value of a mantissa's unit for each exponent, once: ldexp per pixel was half the time.
  static const auto units = [] {
    std::array<float, 256> u{};
    for (int e = 1; e < 256; ++e) u[size_t(e)] = float(std::ldexp(1.0, e - (128 + 8)));
    return u;
  }();
  if (bytes_.empty() || line_ >= height_ || !scanLine()) return false;
  ++line_;
  for (unsigned x = 0; x < width_; ++x) {
    const uint8_t* e = &encoded_[size_t(x) * 4];
    const float f = units[e[3]];
    rgb[3 * x] = e[0] * f, rgb[3 * x + 1] = e[1] * f, rgb[3 * x + 2] = e[2] * f;
  }
  return true;
}

bool TradianceLines::nextLine(size_t& p, std::string& line) const {
  if (p >= bytes_.size()) return false;
  const size_t end = std::min(bytes_.size(), p + 4096);  // header lines are short
  const void* nl = memchr(bytes_.data() + p, '\n', end - p);
  if (!nl) return false;
  const size_t n = size_t(static_cast<const uint8_t*>(nl) - bytes_.data());
  line.assign(reinterpret_cast<const char*>(bytes_.data() + p), n - p);
  p = n + 1;
  return true;
}

bool TradianceLines::parseHeader() {
  size_t p = 0;
  std::string line;
  if (!nextLine(p, line) || line.rfind("#?", 0) != 0) return false;
  for (int lines = 0;; ++lines) {
    if (lines > 1000 || !nextLine(p, line)) return false;
    if (line.empty()) break;
    if (line.rfind("FORMAT=", 0) == 0 && line != "FORMAT=32-bit_rle_rgbe") return false;  // XYZE is not read
  }
  if (!nextLine(p, line)) return false;
  char ySign = 0, xSign = 0;
  unsigned h = 0, w = 0;
  char tail;
  if (sscanf(line.c_str(), "%cY %u %cX %u%c", &ySign, &h, &xSign, &w, &tail) != 4 || xSign != '+' ||
      (ySign != '-' && ySign != '+') || w < 1 || h < 1 || w > 65535 || h > 65535)
    return false;  // X-major orders and flipped columns are not read
  width_ = w, height_ = h, topFirst_ = ySign == '-', at_ = p;
  return true;
}

// One scan line of width_ RGBE pixels: run-length coded (2, 2, width) or flat.
bool TradianceLines::scanLine() {
  const uint8_t* b = bytes_.data();
  const size_t n = bytes_.size();
  size_t& p = at_;
  std::vector<uint8_t>& line = encoded_;
  const bool coded = width_ >= 8 && width_ < 32768 && p + 4 <= n && b[p] == 2 && b[p + 1] == 2 && !(b[p + 2] & 0x80);
  if (!coded) {
    if (p + line.size() > n) return false;
    memcpy(line.data(), b + p, line.size());
    p += line.size();
    return true;
  }
  if ((unsigned(b[p + 2]) << 8 | b[p + 3]) != width_) return false;
  p += 4;
  for (unsigned c = 0; c < 4; ++c)
    for (unsigned x = 0; x < width_;) {
      if (p >= n) return false;
      unsigned count = b[p++];
      const bool run = count > 128;
      if (run) count -= 128;
      if (count == 0 || x + count > width_ || p + (run ? 1 : count) > n) return false;  // past the line
      for (unsigned k = 0; k < count; ++k) line[size_t(x + k) * 4 + c] = run ? b[p] : b[p + k];
      p += run ? 1 : count;
      x += count;
    }
  return true;
}

namespace {

class RadianceReader : public ThdrImageFile {
 public:
  int open(const Tstring& path, ThdrImageFileInfo& info) override {
    std::ifstream in(path.asChar(), std::ios::binary | std::ios::ate);
    if (!in) return -1;
    const std::streamoff size = in.tellg();
    std::vector<uint8_t> bytes;
    bool ok = size > 0 && FLallocok(uint64_t(size));
    if (ok) {
      bytes.resize(size_t(size));
      in.seekg(0);
      ok = bool(in.read(reinterpret_cast<char*>(bytes.data()), size));
    }
    if (!ok || !lines_.open(std::move(bytes))) return -1;
    info.values[0] = info.values[5] = int32_t(lines_.width());
    info.values[1] = info.values[6] = int32_t(lines_.height());
    info.values[2] = 3;
    info_ = info;
    return 0;
  }

  int read(TgenericPixelMap<float>& out, unsigned) override {
    const unsigned w = lines_.width(), h = lines_.height();
    if (w == 0 || !out.create(w, h, 3)) return -1;
    for (unsigned i = 0; i < h; ++i)  // rows bottom first: a -Y file stands top row first
      if (!lines_.next(out.data() + size_t(lines_.topFirst() ? h - 1 - i : i) * w * 3)) return out.clear(), -1;
    return 0;
  }

  int reserved() override { return 0; }

 private:
  TradianceLines lines_;
};

}  // namespace

ThdrImageFile* newRadianceReader() { return new RadianceReader(); }

namespace {
ThdrImageFile* makeExr(void*) { return newOpenExrReader(); }
ThdrImageFile* makeRadiance(void*) { return newRadianceReader(); }
}  // namespace

void registerStandardHdrReaders() {
  static const bool once = [] {
    ThdrTranslationManager::instance().registerTranslator(makeExr, {"exr", "sxr"}, nullptr);
    ThdrTranslationManager::instance().registerTranslator(makeRadiance, {"hdr", "rgbe", "pic"}, nullptr);
    return true;
  }();
  (void)once;
}
