// What the bundled plug-ins share: pictures decoded whole when a file is opened and encoded whole
// when it is closed, served line by line through the IMF entry points. A codec supplies probe,
// read (every frame of a file) and write; this adapter does the rest, the same way for all. A
// codec that can also decode or encode line by line is streamed instead (see Streams below).
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <vora/foundation/fl.h>
#include <vora/foundation/kt.h>
#include <vora/imf.h>

namespace vplug {

// Sample buffers are left unset when they grow: the decoders write every sample of a picture,
// and zero-filling hundreds of megabytes first cost as much as a fast codec's decoding.
using Samples = kt::ByteBuffer;

// One frame: samples of colour then matte interleaved per pixel, top line first, colorBits / 8
// bytes each in machine order; depth as 4-byte samples.
struct Picture {
  IMF_image image{};
  Samples samples, depth;
  int width() const { return image.xMax - image.xMin + 1; }
  int height() const { return image.yMax - image.yMin + 1; }
  int channels() const { return image.colorChannels + image.matteChannels; }
  int sampleBytes() const { return image.colorBits / 8; }
  size_t rowBytes() const { return size_t(width()) * channels() * sampleBytes(); }
  // Describes a top-down picture and allocates it; false (with why) when outside data asks for
  // more than a file of fileBytes could decode to at ratio, or than the allocation limit.
  bool create(int w, int h, int colour, int matte, int bits, int type, int64_t fileBytes, uint32_t ratio,
              std::string& why) {
    image = IMF_image{};
    image.xMax = w - 1, image.yMax = h - 1, image.aspectWidth = image.aspectHeight = 1, image.pixelAspect = 1.0f;
    image.colorChannels = colour, image.matteChannels = matte, image.colorBits = bits, image.colorType = type;
    image.depthBits = 32, image.depthType = IMF_TYPE_FLOAT, image.topDown = 1, image.frames = 1;
    if (w < 1 || h < 1 || w > (1 << 20) || h > (1 << 20)) return why = "a picture of " + std::to_string(w) + " x " + std::to_string(h), false;
    const uint64_t bytes = uint64_t(rowBytes()) * uint64_t(h);
    if (!(ratio ? FLdecodeok(bytes, fileBytes, ratio) : FLallocok(bytes)))
      return why = std::to_string(w) + " x " + std::to_string(h) + " pixels cannot come from a file of " +
                   std::to_string(fileBytes) + " bytes",
             false;
    try {
      samples.resize(bytes);
    } catch (const std::bad_alloc&) {
      return why = "out of memory", false;
    }
    return true;
  }
  uint8_t* row(int y) { return samples.data() + rowBytes() * size_t(y); }
  const uint8_t* row(int y) const { return samples.data() + rowBytes() * size_t(y); }
};

// The settings given to a writer, by name.
inline std::string setting(const IMF_settings* s, const char* name, const std::string& fallback = "") {
  const size_t n = strlen(name);
  for (int i = 0; s && i < s->count; ++i)
    if (s->items[i] && strncmp(s->items[i], name, n) == 0 && s->items[i][n] == '=') return s->items[i] + n + 1;
  return fallback;
}

inline int64_t fileSize(const char* path) {
  FILE* f = fopen(path, "rb");
  if (!f) return -1;
  fseek(f, 0, SEEK_END);
  const long n = ftell(f);
  fclose(f);
  return n;
}

// A whole file in memory, bounded by the allocation limit; false with why.
inline bool readWhole(const char* path, std::vector<uint8_t>& bytes, std::string& why) {
  FILE* f = fopen(path, "rb");
  if (!f) return why = std::string("cannot be opened: ") + strerror(errno), false;
  fseek(f, 0, SEEK_END);
  const long n = ftell(f);
  fseek(f, 0, SEEK_SET);
  if (n < 0 || !FLallocok(uint64_t(n))) return fclose(f), why = "cannot be read whole", false;
  bytes.resize(size_t(n));
  const bool ok = fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
  fclose(f);
  return ok || (why = "cannot be read", false);
}

// Writes a coded file whole; false with why.
inline bool writeWhole(const char* path, const void* data, size_t size, std::string& why) {
  FILE* f = fopen(path, "wb");
  if (!f) return why = std::string("cannot be created: ") + strerror(errno), false;
  const bool ok = fwrite(data, 1, size, f) == size;
  return (fclose(f) == 0 && ok) || (why = "cannot be written", false);
}

// The whole-picture read of a codec that decodes line by line: its lines in turn into one frame.
template <class Codec>
bool readByLines(const char* path, std::vector<Picture>& frames, std::string& why) {
  IMF_image image{};
  void* s = Codec::openStream(path, image, why);
  if (!s) return false;
  frames.resize(1);
  Picture& p = frames[0];
  bool ok = p.create(image.xMax + 1, image.yMax + 1, image.colorChannels, image.matteChannels, image.colorBits,
                     image.colorType, -1, 0, why);
  for (int y = 0; ok && y < p.height(); ++y) ok = Codec::readStreamLine(s, p.row(y), why);
  Codec::closeStream(s);
  return ok;
}

// The whole-picture write of a codec that encodes line by line: the frame's lines in turn.
template <class Codec>
bool writeByLines(const char* path, const std::vector<Picture>& frames, const IMF_settings* settings, std::string& why) {
  const Picture& p = frames[0];
  void* s = Codec::beginStream(path, p.image, settings, why);
  bool ok = s != nullptr;
  for (int y = 0; ok && y < p.height(); ++y) ok = Codec::streamLine(s, p.row(y), why);
  return s && Codec::endStream(s, ok, why) && ok;
}

struct Handle {
  std::vector<Picture> frames;
  int current = 0;
  bool writing = false;
  std::string path;
  std::vector<std::string> settingTexts;
  std::vector<const char*> settingPointers;
  IMF_settings settings{};
  void* stream = nullptr;  // a codec's own writer, fed line by line
  int nextLine = 0;
  Samples line;            // one interleaved line for the stream
};

inline void say(char* error, size_t size, const std::string& why) {
  if (error && size) snprintf(error, size, "%s", why.c_str());
}

// The IMF entry points over a codec:
//   static constexpr uint32_t flags, bitsMask, scanOrders; static constexpr int maxMatte, maxDepth;
//   static bool probe(const unsigned char*, size_t);
//   static bool read(const char* path, std::vector<Picture>& frames, std::string& why);
//   static bool write(const char* path, const std::vector<Picture>& frames, const IMF_settings*, std::string& why);
// A codec that can encode line by line also has
//   static void* beginStream(const char* path, const IMF_image&, const IMF_settings*, std::string& why);
//   static bool streamLine(void* stream, const uint8_t* line, std::string& why);   // interleaved, top first
//   static bool endStream(void* stream, bool keep, std::string& why);               // keep false: abandon
// and is fed so when a single picture comes top line first: no picture is held whole.
template <class C>
concept Streams = requires(void* s, const uint8_t* l, std::string& w) { C::streamLine(s, l, w); };
// A codec that can decode line by line (single frames, top line first) also has
//   static void* openStream(const char* path, IMF_image& image, std::string& why);
//   static bool readStreamLine(void* stream, uint8_t* line, std::string& why);     // interleaved
//   static void closeStream(void* stream);
template <class C>
concept ReadStreams = requires(void* s, uint8_t* l, std::string& w) { C::readStreamLine(s, l, w); };
// A streaming codec that takes and gives 8-bit lines of blue, green, red, matte as they are has
//   static bool streamLineBgra(void* stream, const uint8_t* line, std::string& why);
//   static bool readStreamLineBgra(void* stream, uint8_t* line, std::string& why);
template <class C>
concept StreamsBgra = requires(void* s, const uint8_t* l, uint8_t* o, std::string& w) {
  C::streamLineBgra(s, l, w);
  C::readStreamLineBgra(s, o, w);
};

template <class Codec>
struct Adapter {
  static int probe(const unsigned char* head, size_t n) { return Codec::probe(head, n) ? 1 : 0; }

  static void* openRead(const char* path, IMF_image* image, char* error, size_t errorSize) {
    auto* h = new (std::nothrow) Handle;
    std::string why;
    bool ok = false;
    if constexpr (ReadStreams<Codec>) {
      if (!h) return nullptr;
      Picture shape;
      try {
        h->stream = Codec::openStream(path, shape.image, why);
      } catch (const std::exception& e) {
        why = e.what();
      }
      if (!h->stream) return say(error, errorSize, why.empty() ? "cannot be read" : why), delete h, nullptr;
      h->line.resize(shape.rowBytes());
      h->frames.push_back(std::move(shape));
      *image = h->frames[0].image;
      return h;
    }
    try {
      ok = h && Codec::read(path, h->frames, why) && !h->frames.empty();
    } catch (const std::exception& e) {
      why = e.what();
    }
    if (!ok) {
      say(error, errorSize, why.empty() ? "cannot be read" : why);
      delete h;
      return nullptr;
    }
    for (Picture& p : h->frames) p.image.frames = int32_t(h->frames.size());
    *image = h->frames[0].image;
    return h;
  }

  static void* openWrite(const char* path, const IMF_image* image, const IMF_settings* settings, char* error,
                         size_t errorSize) {
    auto* h = new (std::nothrow) Handle;
    if (!h) return nullptr;
    h->writing = true, h->path = path;
    for (int i = 0; settings && i < settings->count; ++i)
      if (settings->items[i]) h->settingTexts.emplace_back(settings->items[i]);
    for (const std::string& s : h->settingTexts) h->settingPointers.push_back(s.c_str());
    h->settings.items = h->settingPointers.data(), h->settings.count = int32_t(h->settingPointers.size());
    std::string why;
    if constexpr (Streams<Codec>) {
      if (image->topDown && image->frames <= 1) {
        Picture shape;
        shape.image = *image;
        h->line.resize(shape.rowBytes());
        if (!(h->stream = Codec::beginStream(path, *image, &h->settings, why))) return say(error, errorSize, why), delete h, nullptr;
        h->frames.push_back(std::move(shape));
        return h;
      }
    }
    if (!begin(*h, *image, why)) {
      say(error, errorSize, why);
      delete h;
      return nullptr;
    }
    return h;
  }

  static bool begin(Handle& h, const IMF_image& image, std::string& why) {
    Picture p;
    if (!p.create(image.xMax - image.xMin + 1, image.yMax - image.yMin + 1, image.colorChannels, image.matteChannels,
                  image.colorBits, image.colorType, -1, 0, why))
      return false;
    p.image = image;
    if (image.depthChannels) p.depth.assign(size_t(p.width()) * p.height() * 4, 0);
    h.frames.push_back(std::move(p));
    h.current = int(h.frames.size()) - 1;
    return true;
  }

  static int setFrame(void* handle, int frame, IMF_image* image, char* error, size_t errorSize) {
    Handle& h = *static_cast<Handle*>(handle);
    std::string why;
    if (h.writing) {
      if (frame != int(h.frames.size())) return say(error, errorSize, "frames are written in order"), -1;
      if (!begin(h, *image, why)) return say(error, errorSize, why), -1;
      return frame;
    }
    if (frame < 0 || frame >= int(h.frames.size()))
      return say(error, errorSize, "no frame " + std::to_string(frame) + " of " + std::to_string(h.frames.size())), -1;
    h.current = frame;
    *image = h.frames[size_t(frame)].image;
    return frame;
  }

  // Line 0 is the top line of a top-down record, the bottom one otherwise.
  static int rowOf(const Picture& p, int line) { return p.image.topDown ? line : p.height() - 1 - line; }

  static int readLine(void* handle, int line, void* const* planes, char* error, size_t errorSize) {
    Handle& h = *static_cast<Handle*>(handle);
    const Picture& p = h.frames[size_t(h.current)];
    if (line < 0 || line >= p.height()) return -1;
    if constexpr (ReadStreams<Codec>) {
      if (line != h.nextLine++) return say(error, errorSize, "lines are read top first, in order"), -1;
      std::string why;
      if (!Codec::readStreamLine(h.stream, h.line.data(), why)) return say(error, errorSize, why), -1;
      IMF_line_split(h.line.data(), p.channels(), p.sampleBytes(), p.width(), planes);
      return 0;
    }
    const int w = p.width(), n = p.channels(), b = p.sampleBytes(), y = rowOf(p, line);
    IMF_line_split(p.row(y), n, b, w, planes);
    if (p.image.depthChannels && !p.depth.empty()) memcpy(planes[n], p.depth.data() + size_t(y) * w * 4, size_t(w) * 4);
    return 0;
  }

  static int writeLine(void* handle, int line, const void* const* planes, char* error, size_t errorSize) {
    Handle& h = *static_cast<Handle*>(handle);
    Picture& p = h.frames[size_t(h.current)];
    if (line < 0 || line >= p.height()) return -1;
    if constexpr (Streams<Codec>) {
      if (h.stream) {
        if (line != h.nextLine++) return say(error, errorSize, "lines are written top first, in order"), -1;
        IMF_planes_join(planes, p.channels(), p.sampleBytes(), p.width(), h.line.data());
        std::string why;
        return Codec::streamLine(h.stream, h.line.data(), why) ? 0 : (say(error, errorSize, why), -1);
      }
    }
    const int w = p.width(), n = p.channels(), b = p.sampleBytes(), y = rowOf(p, line);
    IMF_planes_join(planes, n, b, w, p.row(y));
    if (p.image.depthChannels) memcpy(p.depth.data() + size_t(y) * w * 4, planes[n], size_t(w) * 4);
    return 0;
  }

  // Lines of interleaved pixels: the codecs' own layout, taken and given without a join or split.
  static int readPixels(void* handle, int line, int layout, void* pixels, char* error, size_t errorSize) {
    Handle& h = *static_cast<Handle*>(handle);
    const Picture& p = h.frames[size_t(h.current)];
    auto* px = static_cast<uint8_t*>(pixels);
    if (line < 0 || line >= p.height()) return -1;
    if constexpr (ReadStreams<Codec>) {
      if (line != h.nextLine++) return say(error, errorSize, "lines are read top first, in order"), -1;
      std::string why;
      bool ok;
      if constexpr (StreamsBgra<Codec>)
        ok = layout == IMF_PIXELS_BGRA8 ? Codec::readStreamLineBgra(h.stream, px, why) : Codec::readStreamLine(h.stream, px, why);
      else
        ok = layout == IMF_PIXELS_RECORD && Codec::readStreamLine(h.stream, px, why);
      return ok ? 0 : (say(error, errorSize, why), -1);
    }
    if (layout != IMF_PIXELS_RECORD) return -1;
    memcpy(px, p.row(rowOf(p, line)), p.rowBytes());
    return 0;
  }

  static int writePixels(void* handle, int line, int layout, const void* pixels, char* error, size_t errorSize) {
    Handle& h = *static_cast<Handle*>(handle);
    Picture& p = h.frames[size_t(h.current)];
    const auto* px = static_cast<const uint8_t*>(pixels);
    if (line < 0 || line >= p.height()) return -1;
    std::string why;
    if constexpr (Streams<Codec>) {
      if (h.stream) {
        if (line != h.nextLine++) return say(error, errorSize, "lines are written top first, in order"), -1;
        bool ok;
        if constexpr (StreamsBgra<Codec>)
          ok = layout == IMF_PIXELS_BGRA8 ? Codec::streamLineBgra(h.stream, px, why) : Codec::streamLine(h.stream, px, why);
        else
          ok = Codec::streamLine(h.stream, px, why);
        return ok ? 0 : (say(error, errorSize, why), -1);
      }
    }
    uint8_t* row = p.row(rowOf(p, line));
    if (layout == IMF_PIXELS_RECORD) return memcpy(row, px, p.rowBytes()), 0;
    // BGRA8 into a picture held whole (a codec that streams, given lines bottom first): rare.
    const int colour = p.image.colorChannels, n = p.channels();
    for (int x = 0; x < p.width(); ++x, px += 4, row += n) {
      if (colour == 3) row[0] = px[2], row[1] = px[1], row[2] = px[0];
      else row[0] = px[1];
      if (n > colour) row[colour] = px[3];
    }
    return 0;
  }

  static int close(void* handle, char* error, size_t errorSize) {
    auto* h = static_cast<Handle*>(handle);
    int r = 0;
    if constexpr (ReadStreams<Codec>) {
      if (!h->writing && h->stream) Codec::closeStream(h->stream);
    }
    if (h->writing) {
      std::string why;
      bool ok = false;
      try {
        if constexpr (Streams<Codec>) {
          const bool whole = h->stream && h->nextLine == h->frames[0].height();
          if (h->stream) ok = Codec::endStream(h->stream, whole, why) && whole;
          else ok = Codec::write(h->path.c_str(), h->frames, &h->settings, why);
          if (h->stream && !whole && why.empty()) why = "not every line was written";
        } else {
          ok = Codec::write(h->path.c_str(), h->frames, &h->settings, why);
        }
      } catch (const std::exception& e) {
        why = e.what();
      }
      if (!ok) say(error, errorSize, why.empty() ? "cannot be written" : why), r = -1, remove(h->path.c_str());  // no partial file
    }
    delete h;
    return r;
  }

  static const IMF_plugin* table() {
    constexpr uint32_t layouts = IMF_PIXELS_RECORD | (StreamsBgra<Codec> ? IMF_PIXELS_BGRA8 : 0);
    static const IMF_plugin t = {IMF_PLUGIN_ABI_VERSION, sizeof(IMF_plugin), Codec::flags, Codec::bitsMask,
                                 Codec::maxMatte, Codec::maxDepth, 0, Codec::scanOrders, probe, openRead,
                                 openWrite, (Codec::flags & IMF_MULTIFRAME) ? setFrame : nullptr, readLine,
                                 writeLine, close, layouts, readPixels, writePixels};
    return &t;
  }
};

}  // namespace vplug

// The exported identity and entry point of a plug-in over Codec.
#define VORA_IMAGE_PLUGIN(Codec, key, extension, name, description)                                     \
  extern "C" {                                                                                            \
  IMF_PLUGIN_EXPORT const char* type = "image";                                                           \
  IMF_PLUGIN_EXPORT const char* program = "Ferrant";                                                      \
  IMF_PLUGIN_EXPORT const char* imageKey = key;                                                           \
  IMF_PLUGIN_EXPORT const char* imageExtension = extension;                                               \
  IMF_PLUGIN_EXPORT const char* imageName = name;                                                         \
  IMF_PLUGIN_EXPORT const char* imageDescription = description;                                           \
  IMF_PLUGIN_EXPORT const IMF_plugin* IMF_plugin_entry(void) { return vplug::Adapter<Codec>::table(); } \
  }
