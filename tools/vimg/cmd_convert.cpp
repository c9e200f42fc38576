// vimg convert: between native IFF and SGI images and every format of the plug-ins (PNG, JPEG,
// TIFF, OpenEXR, GIF, WebP, TGA, BMP), and what else Qt reads (PPM).
#include <cstdio>
#include <memory>
#include <string>

#include <vora/ilib.h>

#include "commands.h"
#include "image_io.h"

namespace vimg {

namespace {

struct Options {
  std::string in, out, compress = "rle", tile;
  int bits = 0, quality = 0;
  bool topDown = false;
  std::vector<std::string> settings;
};

// "none", "rle", "qrl", "qr4": the compressor names of the table, in lower case.
int compressCode(const std::string& name) {
  for (int c = 0; c < 4; ++c) {
    std::string lower = ILcompressname(c);
    for (char& ch : lower) ch = char(tolower(static_cast<unsigned char>(ch)));
    if (name == lower) return c;
  }
  return -1;
}

void run(const Options& o) {
  WriteOptions w;
  w.compress = compressCode(o.compress);
  w.bits = o.bits;
  w.topDown = o.topDown;
  w.settings = o.settings;
  if (o.quality) w.settings.push_back("quality=" + std::to_string(o.quality));
  if (!o.tile.empty() && sscanf(o.tile.c_str(), "%dx%d", &w.tileWidth, &w.tileHeight) != 2) {
    return fail("convert: --tile wants WxH, such as 64x64", kStatusUsage);
  }
  Image img;
  std::string error;
  if (!readImage(o.in, img, error) || !writeImage(o.out, img, w, error)) fail(error);
}

}  // namespace

void registerConvert(CLI::App& app) {
  auto opt = std::make_shared<Options>();
  CLI::App* cmd = app.add_subcommand("convert", "convert an image between native IFF, SGI and the plug-in formats (see vimg plugins)");
  cmd->add_option("in", opt->in, "input image")->required();
  cmd->add_option("out", opt->out, "output image (format by extension; .iff is native)")->required();
  cmd->add_option("--compress", opt->compress, "native output: none, rle, qrl or qr4")
      ->check(CLI::IsMember({"none", "rle", "qrl", "qr4"}));
  cmd->add_option("--tile", opt->tile, "native output: tile size WxH (default: by image size)");
  cmd->add_option("--bits", opt->bits, "bits per channel of the output: 8 or 16")
      ->check(CLI::IsMember({8, 16}));
  cmd->add_flag("--top-down", opt->topDown, "native output: send lines top line first");
  cmd->add_option("--quality", opt->quality, "lossy plug-in formats (JPEG, WebP): 1 to 100")->check(CLI::Range(1, 100));
  cmd->add_option("--set", opt->settings, "a plug-in setting NAME=VALUE, such as compression=lzw (TIFF), "
                  "type=float (OpenEXR), delay=20 (GIF); repeatable");
  cmd->callback([opt] { guarded(opt->in, [&] { run(*opt); }); });
}

}  // namespace vimg
