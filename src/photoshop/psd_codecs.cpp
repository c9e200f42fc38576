// The channel codecs: raw, run-length (PackBits), ZIP and ZIP with prediction, on zlib,
// with their traditional parameters and deliberate quirks. Every length read from a file is checked
// against what the channel holds.
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include <vora/photoshop.h>

#include "foundation/byteorder.h"

namespace ktPhotoshop::codec {

namespace {

}  // namespace

// 8-bit PackBits: n >= 0 copies n + 1 bytes, -128 < n < 0 repeats one byte 1 - n times, -128 is
// skipped. Output not reached is set to zero.
bool unpackBits8Plain(const uint8_t* in, size_t inLen, uint8_t* out, size_t want) {
  size_t i = 0, o = 0;
  while (i < inLen) {
    int8_t n = int8_t(in[i++]);
    if (n >= 0) {
      size_t k = size_t(n) + 1;
      size_t copy = std::min({k, inLen - i, want - o});
      memcpy(out + o, in + i, copy);
      i += std::min(k, inLen - i);
      o += copy;
    } else if (n != -128) {
      if (i >= inLen) break;
      size_t k = size_t(1 - n);
      size_t fill = std::min(k, want - o);
      memset(out + o, in[i++], fill);
      o += fill;
    }
  }
  if (o < want) memset(out + o, 0, want - o);
  return o == want;
}

// The same, packets of rendered pictures (short literals, short runs) moved 16 bytes at a time
// while 128 bytes of input and output remain: bytes copied past a packet's end are overwritten
// by the next packets or by the final zero fill.
bool unpackBits8(const uint8_t* in, size_t inLen, uint8_t* out, size_t want) {
  size_t i = 0, o = 0;
  while (i + 130 <= inLen && o + 128 <= want) {
    const int8_t n = int8_t(in[i++]);
    if (n >= 0) {
      const size_t k = size_t(n) + 1;
      for (size_t c = 0; c < k; c += 16) memcpy(out + o + c, in + i + c, 16);
      i += k, o += k;
    } else if (n != -128) {
      uint8_t v[16];
      memset(v, in[i++], 16);
      const size_t k = size_t(1 - n);
      for (size_t c = 0; c < k; c += 16) memcpy(out + o + c, v, 16);
      o += k;
    }
  }
  return unpackBits8Plain(in + i, inLen - i, out + o, want - o);
}

namespace {

// 16-bit rows, as this library has always read them: the row's bytes are swapped in pairs, then headers are read
// as little-endian 16-bit values with a one-byte advance (deliberate); literals and runs move in
// two-byte units. The count is in units; every read and write stays inside the row.
void unpackBits16(uint8_t* in, size_t inLen, uint8_t* out, size_t outLen) {
  for (size_t k = 0; k + 1 < inLen; k += 2) std::swap(in[k], in[k + 1]);
  size_t p = 0, o = 0;
  long long count = (long long)(inLen / 2);
  while (count > 0 && p + 2 <= inLen) {
    int16_t n;
    memcpy(&n, in + p, 2);  // the machine's little-endian order
    p += 1;
    count -= 1;
    if (n >= 0) {
      size_t units = size_t(n) + 1;
      for (size_t u = 0; u < units && p + 2 <= inLen && o + 2 <= outLen; ++u, p += 2, o += 2)
        memcpy(out + o, in + p, 2);
      count -= (long long)units;
    } else if (n != -32768) {
      if (p + 2 > inLen) break;
      uint8_t unit[2] = {in[p], in[p + 1]};
      p += 2;
      for (int r = 0; r < 1 - n && o + 2 <= outLen; ++r, o += 2) memcpy(out + o, unit, 2);
      count -= 1;
    }
  }
}

bool decodeRle(Tchannel& c) {
  const size_t rb = c.rowBytes();
  const uint8_t* data = c.compressed.data();
  size_t len = std::min<size_t>(c.compressed.size(), c.compressedLength ? c.compressedLength : c.compressed.size());
  // A channel of no width has nothing to decode, however many rows its rectangle claims: the
  // row table must not be sized from the height alone.
  if (c.raw.empty()) return false;
  std::vector<uint32_t> rows(c.height);
  size_t at = 0;
  if (c.hasRowTable) {
    for (uint32_t y = 0; y < c.height; ++y) rows[y] = y < c.rowLengths.size() ? c.rowLengths[y] : 0;
  } else {
    if (len < size_t(c.height) * 2) {  // the table itself is not there
      std::fill(c.raw.begin(), c.raw.end(), 0);
      return false;
    }
    for (uint32_t y = 0; y < c.height; ++y) rows[y] = vora::be16(data + 2 * y);
    at = size_t(c.height) * 2;
  }
  // 8-bit rows decode straight into the raw buffer (the input is only read); 16-bit rows are
  // swapped in place first, so they go through the scratch buffer and the output row.
  // Output a row does not reach stays zero.
  uint32_t longest = c.height ? *std::max_element(rows.begin(), rows.end()) : 0;
  std::vector<uint8_t> scratch(c.format == 0 ? 0 : longest), row(c.format == 0 ? 0 : rb);
  uint8_t* dst = c.raw.data();
  for (uint32_t y = 0; y < c.height; ++y) {
    size_t n = std::min<size_t>(rows[y], len > at ? len - at : 0);  // lengths that lie are cut
    if (c.format == 0) {
      unpackBits8(data + at, n, dst, rb);
    } else {
      if (n) memcpy(scratch.data(), data + at, n);
      std::fill(row.begin(), row.end(), 0);
      unpackBits16(scratch.data(), n, row.data(), rb);
      memcpy(dst, row.data(), rb);
    }
    at += n;
    dst += rb;
  }
  return false;  // deliberate: the run-length decode answers false in every case
}

bool decodeZip(Tchannel& c, bool predict) {
  if (c.dataLength < 2) return false;
  z_stream z{};
  if (inflateInit_(&z, "1.1.3", int(sizeof(z_stream))) != Z_OK) return false;
  size_t inLen = std::min<size_t>(c.dataLength - 2, c.compressed.size());
  z.next_in = c.compressed.data();
  z.avail_in = uInt(inLen);
  z.next_out = c.raw.data();
  z.avail_out = uInt(c.raw.size());
  int r = inflate(&z, Z_SYNC_FLUSH);
  inflateEnd(&z);
  if (r != Z_OK && r != Z_STREAM_END) return false;
  if (z.avail_out) memset(z.next_out, 0, z.avail_out);  // a short stream: the rest is zero
  if (c.format == 1) {
    auto* s = reinterpret_cast<uint16_t*>(c.raw.data());
    if (vora::hostLittleEndian())
      for (size_t i = 0; i < size_t(c.sampleCount); ++i) s[i] = vora::swap16(s[i]);
  }
  if (predict) {
    for (uint32_t y = 0; y < c.height; ++y) {
      if (c.format == 0) {
        uint8_t* p = c.raw.data() + size_t(y) * c.width;
        for (uint32_t j = 1; j < c.width; ++j) p[j] = uint8_t(p[j] + p[j - 1]);
      } else {
        auto* p = reinterpret_cast<uint16_t*>(c.raw.data()) + size_t(y) * c.width;
        for (uint32_t j = 1; j < c.width; ++j) p[j] = uint16_t(p[j] + p[j - 1]);
      }
    }
  }
  return true;
}

bool encodeRle(Tchannel& c, bool separateTable) {
  const size_t rb = c.rowBytes();
  const size_t cap = (rb + 4) / 5 + rb;
  TsampleBuffer out(size_t(c.height) * (cap + (separateTable ? 0 : 2)));
  std::vector<uint16_t> counts(c.height);
  size_t at = separateTable ? 0 : size_t(c.height) * 2;
  const uint8_t* src = c.raw.data();
  for (uint32_t y = 0; y < c.height; ++y, src += rb) {
    // The count is the width, not the row's bytes: for 16-bit channels only the first half of
    // each row is packed (deliberate).
    size_t n = packBitsRow(src, c.width, out.data() + at);
    counts[y] = uint16_t(n);
    at += n;
  }
  out.resize(at);
  if (separateTable) {
    c.rowLengths = counts;
    c.hasRowTable = true;
  } else {
    for (uint32_t y = 0; y < c.height; ++y) vora::putBe16(out.data() + 2 * y, counts[y]);
  }
  c.compressed = std::move(out);
  c.compressedLength = uint32_t(at);
  return true;
}

bool encodeZip(Tchannel& c, bool predict) {
  const size_t bps = c.bytesPerSample();
  if (predict && c.format == 1) {
    // Previous minus current, in place (the decoder's running sum does not undo it: deliberate).
    for (uint32_t y = 0; y < c.height; ++y) {
      auto* p = reinterpret_cast<uint16_t*>(c.raw.data()) + size_t(y) * c.width;
      uint16_t prev = c.width ? p[0] : 0;
      for (uint32_t j = 1; j < c.width; ++j) {
        uint16_t cur = p[j];
        p[j] = uint16_t(prev - cur);
        prev = cur;
      }
    }
  }
  std::vector<uint8_t> in(c.raw.begin(), c.raw.end());
  if (c.format == 1 && vora::hostLittleEndian()) {  // the file holds 16-bit samples big-endian
    auto* s = reinterpret_cast<uint16_t*>(in.data());
    for (size_t i = 0; i < in.size() / 2; ++i) s[i] = vora::swap16(s[i]);
  }
  TsampleBuffer out(size_t(double(bps * c.width * c.height + 12) * 1.1));
  z_stream z{};
  if (deflateInit2_(&z, -1, 8, 12, 8, 0, "1.1.3", int(sizeof(z_stream))) != Z_OK) return false;
  z.next_in = in.data();
  z.avail_in = uInt(in.size());
  z.next_out = out.data();
  z.avail_out = uInt(out.size());
  int r1 = deflate(&z, Z_PARTIAL_FLUSH);
  int r2 = r1 == Z_OK ? deflate(&z, Z_FINISH) : r1;
  size_t total = z.total_out;
  deflateEnd(&z);
  if (r2 != Z_STREAM_END) return false;
  out.resize(total);
  c.compressed = std::move(out);
  c.compressedLength = uint32_t(total);
  return true;
}

}  // namespace

size_t packBitsRow(const uint8_t* src, size_t count, uint8_t* out) {
  size_t o = 0, i = 0;
  long lit = -1;      // header position of the open literal packet, -1 when none
  long twoRun = -1;   // position of a two-byte run packet written right after a literal
  long prevLit = -1;  // that literal's header position
  while (i < count) {
    size_t c = 1;
    while (i + c < count && src[i + c] == src[i]) ++c;
    if (c >= 2) {
      bool afterLiteral = lit >= 0;
      long litBefore = lit;
      for (size_t left = c; left > 0;) {
        size_t k = std::min<size_t>(left, 128);
        out[o++] = uint8_t(1 - int(k));
        out[o++] = src[i];
        left -= k;
      }
      twoRun = (c == 2 && afterLiteral) ? long(o) - 2 : -1;
      prevLit = litBefore;
      lit = -1;
      i += c;
      continue;
    }
    if (twoRun >= 0 && out[prevLit] < 126) {
      // Fold the two-byte run back into the literal before it: its pair becomes literal bytes.
      out[prevLit] = uint8_t(out[prevLit] + 2);
      out[twoRun] = out[twoRun + 1];
      lit = prevLit;
    }
    twoRun = -1;
    if (lit >= 0 && out[lit] < 127) {
      out[lit] = uint8_t(out[lit] + 1);
      out[o++] = src[i];
    } else {
      lit = long(o);
      out[o++] = 0;
      out[o++] = src[i];
    }
    if (out[lit] == 127) lit = -1;  // 128 bytes: the packet is closed
    ++i;
  }
  return o;
}

bool decode(Tchannel& c) {
  requireKnownFormat(c);
  c.raw.resize(size_t(c.sampleCount) * c.bytesPerSample());  // each method writes or zeroes all
  bool ok = false;
  switch (c.method) {
    case RAW: {
      size_t n = std::min(c.raw.size(), c.compressed.size());
      if (n) memcpy(c.raw.data(), c.compressed.data(), n);
      std::fill(c.raw.begin() + long(n), c.raw.end(), 0);
      if (c.format == 1 && vora::hostLittleEndian()) {
        auto* s = reinterpret_cast<uint16_t*>(c.raw.data());
        for (size_t k = 0; k < c.sampleCount; ++k) s[k] = vora::swap16(s[k]);
      }
      ok = n == c.raw.size();
      break;
    }
    case RLE:
      ok = decodeRle(c);
      break;
    case ZIP:
    case ZIP_PREDICTION:
      ok = decodeZip(c, c.method == ZIP_PREDICTION);
      if (!ok) {  // the channel keeps no raw samples
        c.raw.clear();
        c.hasRaw = false;
        return false;
      }
      break;
    default:  // not a method: zero samples
      std::fill(c.raw.begin(), c.raw.end(), 0);
      break;
  }
  c.hasRaw = true;
  return ok;
}

bool encode(Tchannel& c, bool separateTable) {
  requireKnownFormat(c);
  bool ok = false;
  switch (c.method) {
    case RAW:
      c.compressed.assign(c.raw.begin(), c.raw.end());
      if (c.format == 1 && vora::hostLittleEndian()) {
        auto* s = reinterpret_cast<uint16_t*>(c.compressed.data());
        for (size_t k = 0; k < c.compressed.size() / 2; ++k) s[k] = vora::swap16(s[k]);
      }
      c.compressedLength = uint32_t(c.compressed.size());
      ok = true;
      break;
    case RLE:
      ok = encodeRle(c, separateTable);
      break;
    case ZIP:
    case ZIP_PREDICTION:
      ok = encodeZip(c, c.method == ZIP_PREDICTION);
      break;
  }
  c.hasCompressed = ok;
  if (!ok) {
    c.compressed.clear();
    c.compressedLength = 0;
  }
  c.dataLength = ok ? c.compressedLength + 2 : 0;
  return ok;
}

}  // namespace ktPhotoshop::codec
