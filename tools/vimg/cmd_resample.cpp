// vimg resize, blur and filters: the library's zoom, quick blur and filter search.
#include <cstdio>
#include <memory>
#include <string>

#include <vora/ilib.h>

#include "commands.h"
#include "image_io.h"

namespace vimg {

namespace {

struct ResizeOptions {
  std::string in, out, size, filter = "auto", blur, offset, margin;
};

// "A" or "A,B" (the second defaults to the first); false when it is neither.
bool pair(const std::string& text, float* a, float* b) {
  if (text.empty()) return true;
  char extra;
  int n = sscanf(text.c_str(), "%f,%f%c", a, b, &extra);
  if (n == 1) *b = *a;
  return n == 1 || n == 2;
}

// Lines of an image in memory, bottom line first.
struct MemoryLines {
  const Image* img;
  int next;
};

int memoryLine(void* source, void** colour, void** depth) {
  MemoryLines* m = static_cast<MemoryLines*>(source);
  *colour = const_cast<uint8_t*>(m->img->pixels.data() + m->img->rowBytes() * size_t(m->next++));
  *depth = nullptr;
  return 0;
}

void resize(const ResizeOptions& o) {
  int w = 0, h = 0;
  char extra;
  if (sscanf(o.size.c_str(), "%dx%d%c", &w, &h, &extra) != 2)
    return fail("resize: --size wants WxH, such as 640x480", kStatusUsage);
  float bx = 0, by = 0, ox = 0.5f, oy = 0.5f, m[4] = {0, 0, 0, 0};
  if (!pair(o.blur, &bx, &by) || !pair(o.offset, &ox, &oy))
    return fail("resize: --blur and --offset want X or X,Y", kStatusUsage);
  if (!o.margin.empty() && sscanf(o.margin.c_str(), "%f,%f,%f,%f%c", &m[0], &m[1], &m[2], &m[3], &extra) != 4)
    return fail("resize: --margin wants L,B,R,T", kStatusUsage);
  Image img;
  std::string error;
  if (!readImage(o.in, img, error)) return fail(error);
  flerrno = 0;
  std::unique_ptr<ILzoom, void (*)(ILzoom*)> zoom(ILnewzoom(o.filter.c_str()), ILdelzoom);
  if (!zoom || flerrno == IL_ENOFILTER)
    return fail("resize: filter " + o.filter + ": " + ILfilterwhy() + " (vimg filters lists them)");
  ILsetzoomblur(zoom.get(), bx, by);
  ILsetzoomoffset(zoom.get(), ox, oy);
  ILsetzoommargin(zoom.get(), m[0], m[1], m[2], m[3]);
  MemoryLines src{&img, 0};
  int mode = img.bytes == 2 ? IL_ZOOM_16 : IL_ZOOM_8;
  if (int r = ILbindzoom(zoom.get(), &src, memoryLine, mode, w, h, img.width, img.height))
    return fail("resize: " + o.in + " to " + o.size + ": " + FLstrerror(r));
  Image out = img;
  out.width = w;
  out.height = h;
  out.pixels.assign(out.rowBytes() * size_t(h), 0);
  for (int y = 0; y < h; ++y)
    if (int r = ILreadzoom(zoom.get(), out.pixels.data() + out.rowBytes() * y, nullptr))
      return fail("resize: " + o.in + ": " + FLstrerror(r));
  if (!writeImage(o.out, out, WriteOptions{}, error)) fail(error);
}

struct BlurOptions {
  std::string in, out;
  float percent = 1;
};

void blur(const BlurOptions& o) {
  Image img;
  std::string error;
  if (!readImage(o.in, img, error)) return fail(error);
  Image out = withBytes(img, 1);  // the quick blur works on 8-bit pixels
  if (int r = ILqblur(out.pixels.data(), out.pixels.data(), out.width, out.height, o.percent))
    return fail("blur: " + o.in + ": " + FLstrerror(r) + " " + ILfilterwhy());
  if (!writeImage(o.out, out, WriteOptions{}, error)) fail(error);
}

void listFilter(const char* name, float radius, int noclip, const char* origin, void*) {
  if (radius > 0)
    printf("%-14s radius %-6g %s %s\n", name, radius, noclip ? "noclip" : "      ", origin);
  else
    printf("%-14s cannot be loaded: %s\n", name, origin);
}

}  // namespace

void registerResample(CLI::App& app) {
  auto ro = std::make_shared<ResizeOptions>();
  CLI::App* cmd = app.add_subcommand("resize", "resample an image to another size through a filter");
  cmd->add_option("in", ro->in, "input image")->required();
  cmd->add_option("out", ro->out, "output image")->required();
  cmd->add_option("--size", ro->size, "output size WxH")->required();
  cmd->add_option("--filter", ro->filter, "auto (box to shrink, else sinc), impulse, or a name from vimg filters");
  cmd->add_option("--blur", ro->blur, "extra blur in percent of the size: X or X,Y");
  cmd->add_option("--offset", ro->offset, "sampling position inside an output pixel, 0..1: X or X,Y");
  cmd->add_option("--margin", ro->margin, "source pixels (0..1) left out at the left, bottom, right, top edges");
  cmd->callback([ro] { guarded(ro->in, [&] { resize(*ro); }); });

  auto bo = std::make_shared<BlurOptions>();
  CLI::App* b = app.add_subcommand("blur", "quick gauss blur by a percentage of the image size");
  b->add_option("in", bo->in, "input image")->required();
  b->add_option("out", bo->out, "output image (8 bits per channel)")->required();
  b->add_option("--percent", bo->percent, "blur size in percent of the image size")->required();
  b->callback([bo] { guarded(bo->in, [&] { blur(*bo); }); });

  CLI::App* f = app.add_subcommand("filters", "list the resampling filters: VORA_FILTER_PATH, ./filters, built-ins");
  f->callback([] { ILlistfilters(listFilter, nullptr); });
}

}  // namespace vimg
