// vimg identify, copy, anytoiff, ifftoany: files through the image file front end and the
// conversions of the format plug-ins.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <vora/convert.h>
#include <vora/image_file.h>

#include "commands.h"
#include "image_plugins.h"

namespace vimg {

namespace {

struct FrontOptions {
  std::vector<std::string> files;
  std::string in, out, format, size;
  int frame = 0;
  bool fast = false, depth = false;
};

void identifyFiles(const FrontOptions& o) {
  ensurePlugins();
  TimageFile f;
  for (const std::string& name : o.files) {
    const Tstring key = f.getImageType(name.c_str(), true);
    unsigned w = 0, h = 0;
    if (key.str().empty()) {
      fail(name + ": " + (openProblem(name).empty() ? "not an image file read here" : openProblem(name)));
      continue;
    }
    if (f.getResolutionInAdvance(name.c_str(), w, h) == 0) printf("%s: %s %ux%u\n", name.c_str(), key.asChar(), w, h);
    else printf("%s: %s\n", name.c_str(), key.asChar());
  }
}

void copy(const FrontOptions& o) {
  ensurePlugins();
  TimageFile in;
  TpixelMap map;
  unsigned w = 0, h = 0;
  if (!o.size.empty() && (sscanf(o.size.c_str(), "%ux%u", &w, &h) != 2 || w < 1 || h < 1 || w > 32768 || h > 32768))
    return fail("copy: --size wants WxH", kStatusUsage);
  map.requestSize({0, 0, uint16_t(w), uint16_t(h)});
  map.setWantDepthMap(o.depth);
  const bool fast = o.fast && w == 0 && in.attemptFastLoad(o.in.c_str(), map);
  if (!fast && (in.identifyAndOpen(o.in.c_str()) != 0 || in.readPixelMap(map) != 0)) return fail(o.in + ": cannot be read");
  in.close();
  TimageFile out;
  const bool depth = o.depth && map.depth();
  if (out.create(o.out.c_str(), uint16_t(map.width()), uint16_t(map.height()), TiffImageFile::kRle,
                 o.format.empty() ? nullptr : o.format.c_str()) != 0 ||
      out.writePixelMap(map, depth) != 0 || out.close() != 0)
    fail(o.out + ": cannot be written");
}

}  // namespace

void registerImageFile(CLI::App& app) {
  auto o = std::make_shared<FrontOptions>();
  CLI::App* id = app.add_subcommand("identify", "the type key of files, by their bytes and the plug-ins, and their size");
  id->add_option("files", o->files, "files")->required();
  id->callback([o] { guarded(o->files.front(), [&] { identifyFiles(*o); }); });

  CLI::App* cp = app.add_subcommand("copy", "a picture read and written through the image file front end (8 bits)");
  cp->add_option("in", o->in, "any picture file")->required();
  cp->add_option("out", o->out, "output file")->required();
  cp->add_option("--format", o->format, "plug-in key to write (default: a native image)");
  cp->add_option("--size", o->size, "WxH: resampled while reading");
  cp->add_flag("--fast", o->fast, "load PNG, JPEG, GIF, BMP, PPM, TIFF and TGA straight by their suffix");
  cp->add_flag("--depth", o->depth, "carry the depth channel");
  cp->callback([o] { guarded(o->in, [&] { copy(*o); }); });

  CLI::App* any = app.add_subcommand("anytoiff", "any plug-in format (or a Photoshop document) to a native image");
  any->add_option("in", o->in, "input file")->required();
  any->add_option("out", o->out, "native image to write")->required();
  any->add_option("--format", o->format, "the input's plug-in key (default: detected)");
  any->add_option("--frame", o->frame, "frame of a multi-frame input");
  any->callback([o] {
    guarded(o->in, [&] {
      ensurePlugins();
      if (anytoiff(o->in.c_str(), o->out.c_str(), o->format.empty() ? nullptr : o->format.c_str(), o->frame) != 0)
        fail(o->in + ": not converted");
    });
  });

  CLI::App* iff = app.add_subcommand("ifftoany", "native images to a plug-in format (several: frames of one file)");
  iff->add_option("out", o->out, "output file")->required();
  iff->add_option("in", o->files, "native images")->required();
  iff->add_option("--format", o->format, "plug-in key, \"psd\" or \"gif\"")->required();
  iff->callback([o] {
    guarded(o->out, [&] {
      ensurePlugins();
      if (ifftoanyInit(o->files.front().c_str(), o->format.c_str()) != 0) return fail("ifftoany: unknown format " + o->format, kStatusUsage);
      for (const std::string& in : o->files)
        if (ifftoany(in.c_str(), o->out.c_str(), o->format.c_str()) != 0) fail(in + ": not converted");
      ifftoanyClose();
    });
  });
}

}  // namespace vimg
