// GIF through giflib: every frame composed on the logical screen as the format's disposal rules
// say (RGBA, transparency as alpha), each frame a frame of the file; written as one frame per
// picture, exact when a picture has at most 255 colours, else quantised by giflib, alpha below
// half made transparent, "delay" in hundredths of a second between frames (default 10).
#include <gif_lib.h>

#include <algorithm>
#include <map>

#include "common/whole_image.h"

namespace {

using vplug::Picture;

struct Source {
  const uint8_t* data;
  size_t size, at;
};

int readBytes(GifFileType* gif, GifByteType* out, int n) {
  auto* s = static_cast<Source*>(gif->UserData);
  const size_t k = std::min(size_t(n < 0 ? 0 : n), s->size - s->at);
  if (k) memcpy(out, s->data + s->at, k);  // an empty file has no data at all
  s->at += k;
  return int(k);
}

std::string gifError(int code) {
  const char* t = GifErrorString(code);
  return t ? t : "damaged GIF data";
}

struct Closer {
  GifFileType* gif;
  bool writing;
  ~Closer() {
    int e = 0;
    if (gif) writing ? EGifCloseFile(gif, &e) : DGifCloseFile(gif, &e);
  }
};

struct GifCodec {
  static constexpr uint32_t flags = IMF_CAN_READ | IMF_CAN_WRITE | IMF_MULTIFRAME;
  static constexpr uint32_t bitsMask = 1u << 7;
  static constexpr int maxMatte = 1, maxDepth = 0;
  static constexpr uint32_t scanOrders = IMF_ORDER_TOP_DOWN | IMF_ORDER_BOTTOM_UP;

  static bool probe(const unsigned char* h, size_t n) { return n >= 6 && (memcmp(h, "GIF87a", 6) == 0 || memcmp(h, "GIF89a", 6) == 0); }

  static bool read(const char* path, std::vector<Picture>& frames, std::string& why) {
    std::vector<uint8_t> file;
    if (!vplug::readWhole(path, file, why)) return false;
    Source src{file.data(), file.size(), 0};
    int error = 0;
    Closer c{DGifOpen(&src, readBytes, &error), false};
    if (!c.gif) return why = gifError(error), false;
    GifFileType* gif = c.gif;
    const int W = gif->SWidth, H = gif->SHeight;
    Picture canvas;
    // LZW codes of 12 bits stand for at most 4096 pixels each: 4 x 4096 bounds the expansion.
    if (!canvas.create(W, H, 3, 1, 8, IMF_TYPE_INT, int64_t(file.size()), 4096 * 4 * 2, why)) return false;
    std::fill(canvas.samples.begin(), canvas.samples.end(), 0);  // the screen starts transparent
    int transparent = -1, disposal = 0;
    std::vector<GifByteType> line;
    for (GifRecordType type; ;) {
      if (DGifGetRecordType(gif, &type) == GIF_ERROR) return why = gifError(gif->Error), false;
      if (type == TERMINATE_RECORD_TYPE) break;
      if (type == EXTENSION_RECORD_TYPE) {
        int code = 0;
        GifByteType* ext = nullptr;
        if (DGifGetExtension(gif, &code, &ext) == GIF_ERROR) return why = gifError(gif->Error), false;
        if (code == GRAPHICS_EXT_FUNC_CODE && ext && ext[0] >= 4) {
          disposal = (ext[1] >> 2) & 7;
          transparent = (ext[1] & 1) ? ext[4] : -1;
        }
        while (ext && DGifGetExtensionNext(gif, &ext) != GIF_ERROR && ext) {}
        continue;
      }
      if (type != IMAGE_DESC_RECORD_TYPE) continue;
      if (DGifGetImageDesc(gif) == GIF_ERROR) return why = gifError(gif->Error), false;
      const GifImageDesc& d = gif->Image;
      const ColorMapObject* map = d.ColorMap ? d.ColorMap : gif->SColorMap;
      if (d.Width <= 0 || d.Height <= 0 || d.Width > 65535 || d.Height > 65535) return why = "a frame of no size", false;
      if (frames.size() >= 10000) return why = "more than 10000 frames", false;
      // Each frame is a whole canvas: frames that cannot come from what is left of the file are refused.
      if (!FLdecodeok(uint64_t(W) * H * 4 * (frames.size() + 1), int64_t(file.size()), 4096 * 4 * 2))
        return why = std::to_string(frames.size() + 1) + " frames of " + std::to_string(W) + " x " + std::to_string(H) +
                     " cannot come from a file of " + std::to_string(file.size()) + " bytes",
               false;
      const Picture before = canvas;  // what disposal 3 restores
      line.resize(size_t(d.Width));
      static const int start[4] = {0, 4, 2, 1}, step[4] = {8, 8, 4, 2};
      for (int pass = 0; pass < (d.Interlace ? 4 : 1); ++pass)
        for (int y = d.Interlace ? start[pass] : 0; y < d.Height; y += d.Interlace ? step[pass] : 1) {
          if (DGifGetLine(gif, line.data(), d.Width) == GIF_ERROR) return why = gifError(gif->Error), false;
          const int cy = d.Top + y;
          for (int x = 0; x < d.Width; ++x) {
            const int cx = d.Left + x, i = line[size_t(x)];
            if (cx >= W || cy >= H || i == transparent || !map || i >= map->ColorCount) continue;
            uint8_t* p = canvas.row(cy) + size_t(cx) * 4;
            p[0] = map->Colors[i].Red, p[1] = map->Colors[i].Green, p[2] = map->Colors[i].Blue, p[3] = 255;
          }
        }
      frames.push_back(canvas);
      if (disposal == 2)  // the frame's rectangle back to transparent
        for (int y = d.Top; y < std::min(H, d.Top + d.Height); ++y)
          memset(canvas.row(y) + size_t(d.Left) * 4, 0, size_t(std::max(0, std::min(W, d.Left + d.Width) - d.Left)) * 4);
      else if (disposal == 3)
        canvas = before;
      transparent = -1, disposal = 0;
    }
    if (frames.empty()) return why = "no frames", false;
    return true;
  }

  static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings* s, std::string& why) {
    const int delay = std::stoi(vplug::setting(s, "delay", "10"));
    int error = 0;
    Closer c{EGifOpenFileName(path, false, &error), true};
    if (!c.gif) return why = gifError(error), false;
    GifFileType* gif = c.gif;
    const Picture& first = frames[0];
    EGifSetGifVersion(gif, true);
    if (EGifPutScreenDesc(gif, first.width(), first.height(), 8, 0, nullptr) == GIF_ERROR) return why = gifError(gif->Error), false;
    if (frames.size() > 1) {  // loop for ever, as players of animated GIFs expect
      const GifByteType loop[] = {'N', 'E', 'T', 'S', 'C', 'A', 'P', 'E', '2', '.', '0'}, times[] = {1, 0, 0};
      EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE);
      EGifPutExtensionBlock(gif, 11, loop), EGifPutExtensionBlock(gif, 3, times), EGifPutExtensionTrailer(gif);
    }
    for (const Picture& p : frames) {
      if (p.image.colorBits != 8 || p.image.colorChannels == 0) return why = "GIF holds 8-bit pictures", false;
      const int w = p.width(), h = p.height(), n = p.channels();
      const bool alpha = p.image.matteChannels != 0;
      std::vector<GifByteType> r(size_t(w) * h), g(r.size()), b(r.size()), index(r.size());
      std::vector<bool> clear(r.size());
      std::map<uint32_t, int> colours;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const uint8_t* q = p.row(y) + size_t(x) * n;
          const size_t i = size_t(y) * w + x;
          r[i] = q[0], g[i] = n >= 3 ? q[1] : q[0], b[i] = n >= 3 ? q[2] : q[0];
          clear[i] = alpha && q[n - 1] < 128;
          if (!clear[i] && colours.size() <= 255) colours.emplace(uint32_t(r[i] << 16 | g[i] << 8 | b[i]), 0);
        }
      std::vector<GifColorType> palette(256);
      int count = 0;
      if (colours.size() <= 255) {  // exact
        for (auto& [rgb, k] : colours) k = count, palette[size_t(count++)] = {GifByteType(rgb >> 16), GifByteType(rgb >> 8), GifByteType(rgb)};
        for (size_t i = 0; i < r.size(); ++i) index[i] = GifByteType(colours[uint32_t(r[i] << 16 | g[i] << 8 | b[i])]);
      } else {
        count = 255;
        if (GifQuantizeBuffer(unsigned(w), unsigned(h), &count, r.data(), g.data(), b.data(), index.data(), palette.data()) == GIF_ERROR)
          return why = "cannot quantise the colours", false;
      }
      const int transparent = count;  // one entry after the colours
      for (size_t i = 0; i < r.size(); ++i)
        if (clear[i]) index[i] = GifByteType(transparent);
      int bits = 1;
      while ((1 << bits) < count + 1) ++bits;
      ColorMapObject* map = GifMakeMapObject(1 << bits, palette.data());
      if (!map) return why = "out of memory", false;
      const GifByteType control[4] = {GifByteType(2 << 2 | (alpha ? 1 : 0)), GifByteType(delay & 255), GifByteType(delay >> 8 & 255),
                                      GifByteType(transparent)};
      const bool ok = EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, control) != GIF_ERROR &&
                      EGifPutImageDesc(gif, 0, 0, w, h, false, map) != GIF_ERROR;
      GifFreeMapObject(map);
      if (!ok) return why = gifError(gif->Error), false;
      for (int y = 0; y < h; ++y)
        if (EGifPutLine(gif, &index[size_t(y) * w], w) == GIF_ERROR) return why = gifError(gif->Error), false;
    }
    if (EGifCloseFile(gif, &error) == GIF_ERROR) return c.gif = nullptr, why = gifError(error), false;
    c.gif = nullptr;
    return true;
  }
};

}  // namespace

VORA_IMAGE_PLUGIN(GifCodec, "gif", "gif", "GIF", "GIF, animated or not (giflib)")
