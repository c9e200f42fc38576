// vimg depth: a grey picture of a native image's depth channel (nearest white, farthest dark grey,
// no depth black).
#include <memory>
#include <string>

#include <vora/iff_image_file.h>

#include "commands.h"
#include "image_io.h"

namespace vimg {

namespace {

struct DepthOptions {
  std::string in, out;
};

void depth(const DepthOptions& o) {
  TiffImageFile f(o.in.c_str(), "r");
  int w = 0, h = 0;
  if (!f.isActive() || f.getSize(w, h) != 0) return fail(ilError(o.in, f.handle()));
  if (!(f.type() & IL_ZBUFFER)) return fail(o.in + ": the image has no depth channel");
  TpixelMap map;
  if (f.readZBuffer(map, w, h) != 0) return fail(ilError(o.in, f.handle()));
  Image img;
  img.width = w, img.height = h, img.channels = 1;
  const auto* px = reinterpret_cast<const uint8_t*>(map.pixels());
  img.pixels.assign(px, px + size_t(w) * h * 4);
  std::string error;
  if (!writeImage(o.out, img, WriteOptions{}, error)) fail(error);
}

}  // namespace

void registerDepth(CLI::App& app) {
  auto o = std::make_shared<DepthOptions>();
  CLI::App* cmd = app.add_subcommand("depth", "a grey picture of a native image's depth channel");
  cmd->add_option("in", o->in, "native image with depth")->required();
  cmd->add_option("out", o->out, "output image")->required();
  cmd->callback([o] { guarded(o->in, [&] { depth(*o); }); });
}

}  // namespace vimg
