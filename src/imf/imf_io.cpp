// Opening, reading and writing files through the registered plug-ins. Everything a plug-in
// reports about a file is checked before a caller sizes buffers by it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/imf.h>

#include "imf/imf_internal.h"

using namespace imf;

namespace {

thread_local std::string lastError;

void fail(const std::string& why) {
  lastError = why;
  if (errorMask & 2) fprintf(stderr, "IMF: %s\n", why.c_str());
}

// Largest side accepted from a plug-in: as large as any format bundled here can describe.
constexpr int64_t kMaxSide = 1 << 20;

// Why an image record cannot be used, or null.
const char* recordProblem(const IMF_image& i) {
  const int64_t w = int64_t(i.xMax) - i.xMin + 1, h = int64_t(i.yMax) - i.yMin + 1;
  if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide) return "a window of no or impossible size";
  if (i.colorChannels != 0 && i.colorChannels != 1 && i.colorChannels != 3) return "a colour channel count other than 0, 1 or 3";
  if (i.colorBits != 8 && i.colorBits != 16 && i.colorBits != 32) return "colour bits other than 8, 16 or 32";
  if (i.colorType != IMF_TYPE_INT && !(i.colorType == IMF_TYPE_FLOAT && i.colorBits == 32)) return "an unknown colour type";
  if (i.matteChannels < 0 || i.matteChannels > 1 || i.depthChannels < 0 || i.depthChannels > 1) return "more than one matte or depth channel";
  if (i.depthChannels && (i.depthBits != 32 || (i.depthType != IMF_TYPE_INT && i.depthType != IMF_TYPE_FLOAT)))
    return "depth other than 32-bit integers or floats";
  if (i.colorChannels + i.matteChannels + i.depthChannels == 0) return "no channels";
  if (i.frames < 1) return "no frames";
  return nullptr;
}

int height(const IMF_image& i) { return i.yMax - i.yMin + 1; }
int width(const IMF_image& i) { return i.xMax - i.xMin + 1; }

// An open file with what the library keeps for it: the planes a line of interleaved pixels goes
// through for a plug-in that does not take them, made at the first such line.
struct Object {
  IMF_object object;  // first: callers hold a pointer to it
  void** planes;
  uint8_t* spare;  // the width's opaque matte, then three planes of what a format drops
  int32_t planesWidth;
};
Object* of(IMF_object* o) { return reinterpret_cast<Object*>(o); }

void dropPlanes(Object* x) {
  IMF_chan_free(x->planes);
  free(x->spare);
  x->planes = nullptr, x->spare = nullptr;
}

// The planes for the current record; false when out of memory.
bool planesFor(Object* x) {
  const int w = width(x->object.image);
  if (x->planes && x->planesWidth == w) return true;
  dropPlanes(x);
  x->planes = IMF_chan_alloc(&x->object.image, w, nullptr);
  x->spare = static_cast<uint8_t*>(malloc(size_t(w) * 4));
  if (!x->planes || !x->spare) return dropPlanes(x), false;
  memset(x->spare, 255, size_t(w));
  x->planesWidth = w;
  return true;
}

// Where each of blue, green, red and matte of a BGRA8 pixel goes to or comes from.
void bgraPlanes(Object* x, bool reading, void* out[4]) {
  const IMF_image& r = x->object.image;
  const size_t w = size_t(width(r));
  const bool rgb = r.colorChannels == 3;
  void* const* p = x->planes;
  // Reading grey repeats it in all three; writing keeps green and drops blue and red.
  out[0] = rgb ? p[2] : reading ? p[0] : x->spare + w;
  out[1] = p[0 + (rgb ? 1 : 0)];
  out[2] = rgb ? p[0] : reading ? p[0] : x->spare + 2 * w;
  out[3] = r.matteChannels ? p[r.colorChannels] : reading ? static_cast<void*>(x->spare) : x->spare + 3 * w;
}

// Why a line of pixels in this layout cannot be, or null.
const char* pixelsProblem(const IMF_image& r, int layout) {
  if (r.depthChannels) return "a record with depth takes its lines as planes";
  if (layout == IMF_PIXELS_BGRA8 && (r.colorBits != 8 || r.colorChannels == 0)) return "BGRA8 pixels need 8-bit colour";
  if (layout != IMF_PIXELS_RECORD && layout != IMF_PIXELS_BGRA8) return "an unknown pixel layout";
  return nullptr;
}

}  // namespace

extern "C" {

const char* IMF_last_error(void) { return lastError.c_str(); }

void IMF_info_init(IMF_info* info) {
  if (!info) return;
  memset(info, 0, sizeof *info);
  info->count = 1;
  info->image.aspectWidth = info->image.aspectHeight = 1;
  info->image.pixelAspect = 1.0f;
  info->image.colorBits = 8, info->image.colorType = IMF_TYPE_INT;
  info->image.depthBits = 32, info->image.depthType = IMF_TYPE_FLOAT;
  info->image.frames = 1;
}

const char* IMF_get_file_type(const char* name, int, IMF_info*) {
  FILE* f = name ? fopen(name, "rb") : nullptr;
  if (!f) return nullptr;
  unsigned char head[512];
  const size_t n = fread(head, 1, sizeof head, f);
  fclose(f);
  for (int i = 0; const IMF_format* fmt = IMF_format_at(i); ++i)
    if ((fmt->flags & IMF_CAN_READ) && fmt->plugin->probe(head, n)) return fmt->key;
  return nullptr;
}

IMF_object* IMF_open(const IMF_info* info, const char* mode) {
  if (!info || !info->name || !mode || (mode[0] != 'r' && mode[0] != 'w')) return fail("IMF_open: no file or mode"), nullptr;
  const bool writing = mode[0] == 'w';
  const char* key = info->key ? info->key : writing ? nullptr : IMF_get_file_type(info->name, 0, nullptr);
  const IMF_format* fmt = key ? find(key) : nullptr;
  if (!fmt) return fail(std::string(info->name) + ": no plug-in " + (key ? std::string("for \"") + key + "\"" : "claims this file")), nullptr;
  if (!(fmt->flags & (writing ? IMF_CAN_WRITE : IMF_CAN_READ)))
    return fail(std::string(info->name) + ": " + fmt->key + " cannot be " + (writing ? "written" : "read")), nullptr;
  auto* o = static_cast<IMF_object*>(calloc(1, sizeof(Object)));
  if (!o) return fail("out of memory"), nullptr;
  o->format = fmt, o->writing = writing;
  if (writing) {
    o->image = info->image;
    if (const char* why = recordProblem(o->image)) {
      fail(std::string(info->name) + ": cannot write " + why);
      free(o);
      return nullptr;
    }
    o->pluginHandle = fmt->plugin->openWrite(info->name, &o->image, &info->settings, o->error, sizeof o->error);
  } else {
    o->pluginHandle = fmt->plugin->openRead(info->name, &o->image, o->error, sizeof o->error);
  }
  if (!o->pluginHandle) {
    fail(std::string(info->name) + ": " + (o->error[0] ? o->error : "the plug-in cannot open it"));
    free(o);
    return nullptr;
  }
  if (const char* why = writing ? nullptr : recordProblem(o->image)) {
    fail(std::string(info->name) + ": the " + fmt->key + " plug-in describes " + why);
    fmt->plugin->close(o->pluginHandle, o->error, sizeof o->error);
    free(o);
    return nullptr;
  }
  return o;
}

int IMF_set_frame(IMF_object* o, int frame) {
  if (!o || frame < 0) return -1;
  if (!o->format->plugin->setFrame) return frame == 0 ? 0 : (fail(std::string(o->format->key) + ": one frame only"), -1);
  IMF_image next = o->image;
  const int got = o->format->plugin->setFrame(o->pluginHandle, frame, &next, o->error, sizeof o->error);
  if (got < 0) return fail(o->error), -1;
  if (const char* why = o->writing ? nullptr : recordProblem(next)) return fail(std::string("frame describes ") + why), -1;
  o->image = next, o->frame = got;
  dropPlanes(of(o));  // the frame may have other channels
  return got;
}

void** IMF_chan_alloc(const IMF_image* image, int w, int* planesOut) {
  if (!image || w < 1 || w > kMaxSide || recordProblem(*image)) return nullptr;
  const int colour = image->colorChannels + image->matteChannels, n = colour + image->depthChannels;
  void** planes = static_cast<void**>(calloc(size_t(n) + 1, sizeof(void*)));
  if (!planes) return nullptr;
  for (int c = 0; c < n; ++c) {
    const size_t bytes = size_t(w) * (c < colour ? size_t(image->colorBits / 8) : 4);
    if (!(planes[c] = calloc(bytes, 1))) return IMF_chan_free(planes), nullptr;
  }
  if (planesOut) *planesOut = n;
  return planes;
}

void IMF_chan_free(void** planes) {
  if (!planes) return;
  for (void** p = planes; *p; ++p) free(*p);
  free(planes);
}

int IMF_scan_read(IMF_object* o, int line, void* const* planes) {
  if (!o || o->writing || !planes || line < 0 || line >= height(o->image)) return -1;
  if (o->format->plugin->readLine(o->pluginHandle, line, planes, o->error, sizeof o->error) != 0)
    return fail(std::string(o->format->key) + ": line " + std::to_string(line) + ": " + o->error), -1;
  return 0;
}

int IMF_scan_write(IMF_object* o, int line, const void* const* planes) {
  if (!o || !o->writing || !planes || line < 0 || line >= height(o->image)) return -1;
  if (o->format->plugin->writeLine(o->pluginHandle, line, planes, o->error, sizeof o->error) != 0)
    return fail(std::string(o->format->key) + ": line " + std::to_string(line) + ": " + o->error), -1;
  return 0;
}

int IMF_scan_read_pixels(IMF_object* o, int line, int layout, void* pixels) {
  if (!o || o->writing || !pixels || line < 0 || line >= height(o->image)) return -1;
  if (const char* why = pixelsProblem(o->image, layout)) return fail(std::string(o->format->key) + ": " + why), -1;
  const IMF_plugin& p = *o->format->plugin;
  if (p.readPixels && (p.pixelLayouts & uint32_t(layout))) {
    if (p.readPixels(o->pluginHandle, line, layout, pixels, o->error, sizeof o->error) != 0)
      return fail(std::string(o->format->key) + ": line " + std::to_string(line) + ": " + o->error), -1;
    return 0;
  }
  Object* x = of(o);
  if (!planesFor(x)) return fail("out of memory"), -1;
  if (IMF_scan_read(o, line, x->planes) != 0) return -1;
  const IMF_image& r = o->image;
  if (layout == IMF_PIXELS_RECORD) {
    IMF_planes_join(x->planes, r.colorChannels + r.matteChannels, r.colorBits / 8, width(r), pixels);
  } else {
    void* bgra[4];
    bgraPlanes(x, true, bgra);
    IMF_planes_join(bgra, 4, 1, width(r), pixels);
  }
  return 0;
}

int IMF_scan_write_pixels(IMF_object* o, int line, int layout, const void* pixels) {
  if (!o || !o->writing || !pixels || line < 0 || line >= height(o->image)) return -1;
  if (const char* why = pixelsProblem(o->image, layout)) return fail(std::string(o->format->key) + ": " + why), -1;
  const IMF_plugin& p = *o->format->plugin;
  if (p.writePixels && (p.pixelLayouts & uint32_t(layout))) {
    if (p.writePixels(o->pluginHandle, line, layout, pixels, o->error, sizeof o->error) != 0)
      return fail(std::string(o->format->key) + ": line " + std::to_string(line) + ": " + o->error), -1;
    return 0;
  }
  Object* x = of(o);
  if (!planesFor(x)) return fail("out of memory"), -1;
  const IMF_image& r = o->image;
  if (layout == IMF_PIXELS_RECORD) {
    IMF_line_split(pixels, r.colorChannels + r.matteChannels, r.colorBits / 8, width(r), x->planes);
  } else {
    void* bgra[4];
    bgraPlanes(x, false, bgra);
    IMF_line_split(pixels, 4, 1, width(r), bgra);
  }
  return IMF_scan_write(o, line, x->planes);
}

int IMF_close(IMF_object* o) {
  if (!o) return -1;
  dropPlanes(of(o));
  int r = o->format->plugin->close(o->pluginHandle, o->error, sizeof o->error);
  if (r != 0) fail(std::string(o->format->key) + ": " + (o->error[0] ? o->error : "close failed"));
  free(o);
  return r == 0 ? 0 : -1;
}

}  // extern "C"
