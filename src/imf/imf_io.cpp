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
  auto* o = static_cast<IMF_object*>(calloc(1, sizeof(IMF_object)));
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

int IMF_close(IMF_object* o) {
  if (!o) return -1;
  int r = o->format->plugin->close(o->pluginHandle, o->error, sizeof o->error);
  if (r != 0) fail(std::string(o->format->key) + ": " + (o->error[0] ? o->error : "close failed"));
  free(o);
  return r == 0 ? 0 : -1;
}

}  // extern "C"
