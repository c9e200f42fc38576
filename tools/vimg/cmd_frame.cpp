// vimg frame: a picture written as one frame of a render: named by base, frame number and naming
// convention into the project's images directory, with mask and depth files where the format
// holds neither.
#include <cstdio>
#include <memory>
#include <string>

#include <vora/image_file_io.h>

#include "commands.h"
#include "image_plugins.h"

namespace vimg {

namespace {

struct FrameOptions {
  std::string in, base, project, plugin, extension;
  unsigned frame = 1;
  int convention = 6, type = TimageFileIO::kIff;
  bool alpha = false, depth = false;
  std::vector<float> clip;
};

void frame(const FrameOptions& o) {
  ensurePlugins();
  if (o.convention < 0 || o.convention > 6) return fail("frame: --convention is 0 to 6", kStatusUsage);
  TimageFile in;
  TpixelMap map;
  map.setWantDepthMap(o.depth);
  if (in.identifyAndOpen(o.in.c_str()) != 0 || in.readPixelMap(map) != 0) return fail(o.in + ": cannot be read");
  in.close();
  if (!o.project.empty()) TprojectManager::theManager().setRoot(o.project.c_str());
  TimageFileIO io;
  const int data = TimageFileIO::kColour | (o.alpha ? TimageFileIO::kAlpha : 0) | (o.depth ? TimageFileIO::kDepth : 0);
  io.setFormat(TimageFileIO::TimageType(o.type), data, o.plugin.c_str(), o.extension.c_str());
  TimageFN fn(o.convention, o.base.c_str(), o.frame);
  if (!io.create(fn, uint16_t(map.width()), uint16_t(map.height()))) return fail(o.base + ": the frame's files cannot be made");
  if (o.clip.size() == 2) io.writeClippingPlanes(o.clip[0], o.clip[1]);
  TdepthBuffer* z = map.depth();
  io.writeImage(map.pixels(), z ? z->values.data() : nullptr);
  if (!io.close()) return fail(io.mainPath().str() + ": cannot be written");
  printf("%s\n", io.mainPath().asChar());
  if (!io.maskPath().str().empty()) printf("%s\n", io.maskPath().asChar());
  if (!io.depthPath().str().empty()) printf("%s\n", io.depthPath().asChar());
  printf("sequence: %s\n", TimageFileIO::makeGlanceName(fn, TimageFileIO::TimageType(o.type), o.extension.c_str()).asChar());
}

}  // namespace

void registerFrame(CLI::App& app) {
  auto o = std::make_shared<FrameOptions>();
  CLI::App* cmd = app.add_subcommand("frame", "a picture written as a named frame of a render, with mask and depth files");
  cmd->add_option("in", o->in, "any picture file")->required();
  cmd->add_option("base", o->base, "base name of the frames")->required();
  cmd->add_option("--frame", o->frame, "frame number (default 1)");
  cmd->add_option("--convention", o->convention, "0 name, 1 name.N, 2 name.ext.N, 3 name.N.ext, 4-6 the same padded to 4 digits (default 6)");
  cmd->add_option("--type", o->type, "image type: 7 native (default), 19 tga, 32 png, 3 tif, 0 gif, 31 psd, 50 a plug-in");
  cmd->add_option("--plugin", o->plugin, "with --type 50: the plug-in key");
  cmd->add_option("--ext", o->extension, "with --type 50: the file extension");
  cmd->add_flag("--alpha", o->alpha, "keep alpha (in a _mask file when the type holds none)");
  cmd->add_flag("--depth", o->depth, "keep depth (in a _depth file when the type holds none)");
  cmd->add_option("--project", o->project, "project root: frames go to ROOT/images, ROOT/mask, ROOT/depth");
  cmd->add_option("--clip", o->clip, "near and far clipping planes, recorded with the frame")->expected(2);
  cmd->callback([o] { guarded(o->in, [&] { frame(*o); }); });
}

}  // namespace vimg
