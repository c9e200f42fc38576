// OpenEXR headers walked before the library opens a file. The library allocates what an
// attribute's size says before reading it (strings, attributes of types it does not know, previews
// by their dimensions), sizes its line buffers by the data window and channels, and its offset
// tables by the chunks, all when a file is opened, so a damaged header would cost gigabytes. The
// headers are walked here as the library reads them: values of fixed-size types are read whole
// whatever their size field says, channel lists up to their empty name, the rest by size.
// Multi-part files list their headers one after another, an empty one last.
#include <vora/foundation/fl.h>
#include <vora/hdr_readers.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

namespace {

struct Walk {
  int64_t damagedAt = 0;          // the first attribute running past the end of the file
  int64_t width = 0, height = 0;  // the largest data window
  int64_t pixelBytes = 0;         // the largest sum of channel sample sizes
  uint64_t chunks = 0;            // the offset-table entries of all parts, at least
};

// One part's layout, counted into the walk when its header ends.
struct Part {
  int64_t width = 0, height = 0, tileW = 0, tileH = 0, chunkCount = 0;
  int linesPerChunk = 1;
  void endInto(Walk& w) const {
    const int64_t wd = std::clamp<int64_t>(width, 0, 1 << 30), ht = std::clamp<int64_t>(height, 0, 1 << 30);
    const int64_t chunks = tileW > 0 && tileH > 0 ? ((wd + tileW - 1) / tileW) * ((ht + tileH - 1) / tileH)
                                                  : (ht + linesPerChunk - 1) / linesPerChunk;
    w.chunks += uint64_t(std::max(chunks, chunkCount));
    w.width = std::max(w.width, width), w.height = std::max(w.height, height);
  }
};

int64_t le32(const unsigned char* b) { return int32_t(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24); }

Walk walk(FILE* f, int64_t fileBytes) {
  static const std::pair<const char*, int> fixed[] = {
      {"box2i", 16}, {"box2f", 16}, {"chromaticities", 32}, {"compression", 1}, {"double", 8}, {"envmap", 1},
      {"float", 4}, {"int", 4}, {"keycode", 28}, {"lineOrder", 1}, {"m33f", 36}, {"m33d", 72}, {"m44f", 64},
      {"m44d", 128}, {"rational", 8}, {"tiledesc", 9}, {"timecode", 8}, {"v2i", 8}, {"v2f", 8}, {"v2d", 16},
      {"v3i", 12}, {"v3f", 12}, {"v3d", 24}, {"deepImageState", 1}};
  static const int linesPerChunk[] = {1, 1, 1, 16, 32, 16, 32, 32, 32, 256};  // none, rle, zips, zip, piz, ...
  Walk w;
  Part part;
  int64_t at = 0;
  auto bytes = [&](unsigned char* out, int n) { return at += n, fread(out, 1, size_t(n), f) == size_t(n); };
  auto text = [&](std::string& out) {  // NUL-terminated, at most 255 bytes
    out.clear();
    for (int c; (c = fgetc(f)) > 0 && out.size() < 256;) out += char(c);
    at += int64_t(out.size()) + 1;
    return out.size() < 256 && !feof(f);
  };
  unsigned char version[8], word[16];
  const bool multipart = bytes(version, 8) && (version[5] & 0x10);
  std::string name, type;
  for (bool headerStart = true;;) {
    const int64_t attribute = at;
    if (!text(name)) break;
    if (name.empty()) {
      if (!headerStart) part.endInto(w), part = Part();
      if (!multipart || headerStart) break;  // the end of the (last) header
      headerStart = true;
      continue;
    }
    headerStart = false;
    if (!text(type) || !bytes(word, 4)) break;
    int64_t size = le32(word);
    for (const auto& [known, n] : fixed)
      if (type == known) size = n;
    if (type == "chlist") {  // channel name, then pixel type, flags and sampling, until an empty name
      int64_t sum = 0;
      while (text(name) && !name.empty() && bytes(word, 16)) sum += le32(word) == 1 ? 2 : 4;
      w.pixelBytes = std::max(w.pixelBytes, sum);
      size = 0;
    } else if (type == "preview" && bytes(word, 8)) {
      const uint64_t pixels = uint64_t(uint32_t(le32(word))) * uint32_t(le32(word + 4));  // read as RGBA bytes
      size = pixels >> 60 ? -1 : int64_t(pixels * 4);
    } else if (type == "box2i" && name == "dataWindow" && bytes(word, 16)) {
      part.width = le32(word + 8) - le32(word) + 1, part.height = le32(word + 12) - le32(word + 4) + 1;
      size = 0;
    } else if (type == "tiledesc" && bytes(word, 9)) {
      part.tileW = uint32_t(le32(word)), part.tileH = uint32_t(le32(word + 4));
      size = 0;
    } else if (type == "compression" && bytes(word, 1)) {
      part.linesPerChunk = word[0] < 10 ? linesPerChunk[word[0]] : 1;
      size = 0;
    } else if (type == "int" && name == "chunkCount" && bytes(word, 4)) {
      part.chunkCount = le32(word);
      size = 0;
    }
    if (size < 0 || size > fileBytes - at) {
      w.damagedAt = attribute;
      break;
    }
    at += size;
    if (at > fileBytes || fseek(f, long(at), SEEK_SET) != 0) break;
  }
  return w;
}

}  // namespace

std::string exrHeaderRefusal(const char* path) {
  FILE* f = fopen(path, "rb");
  if (!f) return {};  // the library says why it cannot open it
  fseek(f, 0, SEEK_END);
  const int64_t fileBytes = ftell(f);
  fseek(f, 0, SEEK_SET);
  const Walk w = walk(f, fileBytes);
  fclose(f);
  if (w.damagedAt)
    return "damaged at offset " + std::to_string(w.damagedAt) + ": a header attribute runs past the end of the file";
  // Line buffers hold up to 256 lines of the window's width; the picture is what zip expands
  // 1032 times at most.
  const uint64_t line = uint64_t(std::clamp<int64_t>(w.width, 0, 1 << 30)) * uint64_t(w.pixelBytes);
  if (!FLallocok(line * 256) || !FLdecodeok(line * uint64_t(std::clamp<int64_t>(w.height, 0, 1 << 30)), fileBytes, 1032))
    return "a data window of " + std::to_string(w.width) + " x " + std::to_string(w.height) + " cannot come from " +
           std::to_string(fileBytes) + " bytes";
  if (w.chunks > uint64_t(fileBytes) / 8)
    return std::to_string(w.chunks) + " chunks' offsets cannot fit in " + std::to_string(fileBytes) + " bytes";
  return {};
}
