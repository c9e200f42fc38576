// Netpbm pictures: PBM, PGM and PPM (plain text and raw) and PAM, read as 8-bit (maximum values
// up to 255) or 16-bit grey or RGB with matte, several pictures of one file as frames; written raw
// as PGM or PPM, or as PAM when there is a matte. Float grey or RGB is read from and written as
// PFM, whatever the name. Our own coder: the Netpbm library ends the process on a damaged file.
#include <bit>
#include <cstdio>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

// A reader over the file's bytes with the header's rules: whitespace and "#" comments between
// fields.
struct Text {
  const std::vector<uint8_t>& b;
  size_t at = 0;
  static bool space(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
  void skip() {
    while (at < b.size() && (space(b[at]) || b[at] == '#'))
      if (b[at] == '#')
        while (at < b.size() && b[at] != '\n') ++at;
      else
        ++at;
  }
  // A decimal number up to limit; false when there is none or it is larger.
  bool number(uint32_t& v, uint32_t limit) {
    skip();
    if (at >= b.size() || b[at] < '0' || b[at] > '9') return false;
    uint64_t n = 0;
    for (; at < b.size() && b[at] >= '0' && b[at] <= '9'; ++at)
      if ((n = n * 10 + (b[at] - '0')) > limit) return false;
    v = uint32_t(n);
    return true;
  }
  // One header line of a PAM file, as its keyword and the rest.
  bool pamLine(std::string& key, std::string& value) {
    skip();
    const size_t end = std::find(b.begin() + long(at), b.end(), '\n') - b.begin();
    if (end >= b.size()) return false;
    std::string line(b.begin() + long(at), b.begin() + long(end));
    at = end + 1;
    const size_t cut = line.find_first_of(" \t");
    key = line.substr(0, cut);
    value = cut == std::string::npos ? "" : line.substr(line.find_first_not_of(" \t", cut));
    while (!value.empty() && Text::space(uint8_t(value.back()))) value.pop_back();
    return true;
  }
};

struct Header {
  char kind = 0;  // '1' to '7', or 'F' and 'f' (PFM: colour and grey floats)
  uint32_t w = 0, h = 0, depth = 1, maxval = 1;
  bool littleEndian = false;  // PFM: a negative scale
};

bool isKind(uint8_t k) { return (k >= '1' && k <= '7') || k == 'F' || k == 'f'; }

// PFM: the sizes, then the scale, whose sign gives the byte order; the single whitespace after it.
bool readPfmHeader(Text& t, Header& hd, std::string& why) {
  hd.depth = hd.kind == 'F' ? 3 : 1;
  if (!t.number(hd.w, 1u << 20) || !t.number(hd.h, 1u << 20)) return why = "a damaged header", false;
  t.skip();
  const size_t start = t.at;
  while (t.at < t.b.size() && !Text::space(t.b[t.at]) && t.at - start < 64) ++t.at;
  const std::string scale(t.b.begin() + long(start), t.b.begin() + long(t.at));
  char* end = nullptr;
  const double v = strtod(scale.c_str(), &end);
  if (scale.empty() || *end || v == 0 || t.at >= t.b.size()) return why = "a damaged scale", false;
  hd.littleEndian = v < 0, ++t.at;
  return true;
}

bool readHeader(Text& t, Header& hd, std::string& why) {
  if (t.at + 2 > t.b.size() || t.b[t.at] != 'P' || !isKind(t.b[t.at + 1])) return why = "not a Netpbm picture", false;
  hd.kind = char(t.b[t.at + 1]), t.at += 2;
  const uint32_t most = 1u << 20;
  if (hd.kind == 'F' || hd.kind == 'f') return readPfmHeader(t, hd, why) && ((hd.w && hd.h) || (why = "a picture of no pixels", false));
  if (hd.kind != '7') {
    hd.depth = hd.kind == '3' || hd.kind == '6' ? 3 : 1;
    if (!t.number(hd.w, most) || !t.number(hd.h, most) || (hd.kind != '1' && hd.kind != '4' && !t.number(hd.maxval, 65535)))
      return why = "a damaged header", false;
    if (hd.kind == '1' || hd.kind == '4') hd.maxval = 1;
    if (t.at >= t.b.size() || !Text::space(t.b[t.at])) return why = "a damaged header", false;
    ++t.at;  // the single whitespace before the samples
  } else {
    std::string key, value;
    bool ended = false;
    while (!ended && t.pamLine(key, value)) {
      const std::vector<uint8_t> bytes(value.begin(), value.end());
      Text field{bytes};
      if (key == "WIDTH" && !field.number(hd.w, most)) return why = "a damaged WIDTH", false;
      if (key == "HEIGHT" && !field.number(hd.h, most)) return why = "a damaged HEIGHT", false;
      if (key == "DEPTH" && !field.number(hd.depth, 4)) return why = "a DEPTH other than 1 to 4", false;
      if (key == "MAXVAL" && !field.number(hd.maxval, 65535)) return why = "a damaged MAXVAL", false;
      ended = key == "ENDHDR";
    }
    if (!ended) return why = "a header without ENDHDR", false;
  }
  if (hd.w == 0 || hd.h == 0 || hd.maxval == 0 || hd.depth == 0) return why = "a picture of no pixels or no values", false;
  return true;
}

// The samples of one picture into p, scaled from 0..maxval to its 8 or 16 bits; PFM's floats as
// they are, their rows bottom first.
bool readSamples(Text& t, const Header& hd, Picture& p, std::string& why) {
  const size_t count = size_t(hd.w) * hd.h * hd.depth;
  if (hd.kind == 'F' || hd.kind == 'f') {
    if (t.b.size() - t.at < count * 4) return why = "the file ends early", false;
    const size_t rowBytes = p.rowBytes();
    for (int y = 0; y < p.height(); ++y, t.at += rowBytes) {
      uint8_t* row = p.row(p.height() - 1 - y);
      memcpy(row, t.b.data() + t.at, rowBytes);
      if (hd.littleEndian != (std::endian::native == std::endian::little))
        for (size_t i = 0; i < rowBytes; i += 4) std::swap(row[i], row[i + 3]), std::swap(row[i + 1], row[i + 2]);
    }
    return true;
  }
  const bool wide = hd.maxval > 255, text = hd.kind <= '3', bits = hd.kind == '1' || hd.kind == '4';
  const uint32_t top = wide ? 65535 : 255;
  auto put = [&](size_t i, uint32_t v) {
    v = (std::min(v, hd.maxval) * top + hd.maxval / 2) / hd.maxval;
    if (wide) reinterpret_cast<uint16_t*>(p.samples.data())[i] = uint16_t(v);
    else p.samples[i] = uint8_t(v);
  };
  if (text) {
    for (size_t i = 0; i < count; ++i) {
      uint32_t v;
      if (bits) {  // digits of a plain bitmap need not be separated
        t.skip();
        if (t.at >= t.b.size() || (t.b[t.at] != '0' && t.b[t.at] != '1')) return why = "the file ends early", false;
        v = t.b[t.at++] == '0';  // 1 is black
      } else if (!t.number(v, 65535)) {
        return why = "the file ends early", false;
      }
      put(i, v);
    }
    return true;
  }
  const size_t rowBytes = bits ? (hd.w + 7) / 8 : size_t(hd.w) * hd.depth * (wide ? 2 : 1);
  if (t.b.size() - t.at < rowBytes * hd.h) return why = "the file ends early", false;
  const uint8_t* s = t.b.data() + t.at;
  if (!bits && hd.maxval == top) {  // samples as they are stored: copied, 16-bit ones byte-swapped
    if (!wide) memcpy(p.samples.data(), s, count);
    for (size_t i = 0; wide && i < count; ++i) reinterpret_cast<uint16_t*>(p.samples.data())[i] = uint16_t(s[2 * i] << 8 | s[2 * i + 1]);
    t.at += rowBytes * hd.h;
    return true;
  }
  for (size_t y = 0, i = 0; y < hd.h; ++y, s += rowBytes)
    for (size_t x = 0; x < size_t(hd.w) * hd.depth; ++x, ++i)
      put(i, bits ? !(s[x / 8] >> (7 - x % 8) & 1) : wide ? uint32_t(s[2 * x] << 8 | s[2 * x + 1]) : s[x]);
  t.at += rowBytes * hd.h;
  return true;
}

struct PnmCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE | IMF_MULTIFRAME;
  static constexpr uint32_t bitsMask = 1u << 7 | 1u << 15 | 1u << 31;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) { return n >= 3 && h[0] == 'P' && isKind(h[1]) && Text::space(h[2]); }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    Text t{file};
    do {  // pictures follow each other in one file
      Header hd;
      if (!readHeader(t, hd, why)) return frames.empty() ? false : (why.clear(), true);
      Picture& p = frames.emplace_back();
      // A plain bitmap codes a pixel in one digit; a raw bitmap eight in a byte.
      const uint32_t ratio = hd.kind == '4' ? 8 * 2 : 2;
      const bool floats = hd.kind == 'F' || hd.kind == 'f';
      if (!p.create(int(hd.w), int(hd.h), hd.depth >= 3 ? 3 : 1, hd.depth % 2 == 0, floats ? 32 : hd.maxval > 255 ? 16 : 8,
                    floats ? IMF_TYPE_FLOAT : IMF_TYPE_INT, int64_t(file.size()), ratio, why) ||
          !readSamples(t, hd, p, why))
        return false;
      t.skip();
    } while (t.at < file.size() && frames.size() < 4096);
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings*, std::string& why) {
    std::vector<uint8_t> out;
    for (const Picture& p : frames) {
      if (p.image.colorChannels == 0 || (p.image.colorBits != 8 && p.image.colorBits != 16 && p.image.colorType != IMF_TYPE_FLOAT))
        return why = "Netpbm pictures are written from 8 or 16-bit or float grey or RGB", false;
      const int n = p.channels(), wide = p.image.colorBits == 16;
      if (p.image.colorType == IMF_TYPE_FLOAT) {  // PFM in machine order (the scale's sign), rows bottom first, no matte
        const std::string head = std::string(p.image.colorChannels == 3 ? "PF\n" : "Pf\n") + std::to_string(p.width()) + " " +
                                 std::to_string(p.height()) + (std::endian::native == std::endian::little ? "\n-1.0\n" : "\n1.0\n");
        out.insert(out.end(), head.begin(), head.end());
        for (int y = p.height() - 1; y >= 0; --y)
          for (int x = 0; x < p.width(); ++x)
            for (int c = 0; c < p.image.colorChannels; ++c) {
              const uint8_t* v = p.row(y) + (size_t(x) * n + c) * 4;
              out.insert(out.end(), v, v + 4);
            }
        continue;
      }
      const std::string size = std::to_string(p.width()) + " " + std::to_string(p.height()), maxval = wide ? "65535" : "255";
      const std::string head = p.image.matteChannels
                                   ? "P7\nWIDTH " + std::to_string(p.width()) + "\nHEIGHT " + std::to_string(p.height()) +
                                         "\nDEPTH " + std::to_string(n) + "\nMAXVAL " + maxval + "\nTUPLTYPE " +
                                         (n == 2 ? "GRAYSCALE_ALPHA" : "RGB_ALPHA") + "\nENDHDR\n"
                                   : std::string(n == 1 ? "P5\n" : "P6\n") + size + "\n" + maxval + "\n";
      out.insert(out.end(), head.begin(), head.end());
      for (int y = 0; y < p.height(); ++y) {
        const uint8_t* row = p.row(y);
        if (!wide) {
          out.insert(out.end(), row, row + p.rowBytes());
          continue;
        }
        for (size_t i = 0; i < size_t(p.width()) * n; ++i) {  // samples big-endian
          const uint16_t v = reinterpret_cast<const uint16_t*>(row)[i];
          out.push_back(uint8_t(v >> 8)), out.push_back(uint8_t(v));
        }
      }
    }
    return vplug::writeWhole(path, out.data(), out.size(), why);
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(PnmCodec, "pnm", "pnm ppm pgm pbm pam pfm", "Netpbm", "PBM, PGM, PPM and PAM pictures (our own coder)")
