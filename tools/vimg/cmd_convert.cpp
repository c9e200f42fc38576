// vimg convert: between native IFF images and PNG, JPEG, TIFF, PPM (and what else Qt reads).
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
  int bits = 0;
  bool topDown = false;
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
  CLI::App* cmd = app.add_subcommand("convert", "convert an image: native IFF <-> PNG, JPEG, TIFF, PPM");
  cmd->add_option("in", opt->in, "input image")->required();
  cmd->add_option("out", opt->out, "output image (format by extension; .iff is native)")->required();
  cmd->add_option("--compress", opt->compress, "native output: none, rle, qrl or qr4")
      ->check(CLI::IsMember({"none", "rle", "qrl", "qr4"}));
  cmd->add_option("--tile", opt->tile, "native output: tile size WxH (default: by image size)");
  cmd->add_option("--bits", opt->bits, "bits per channel of the output: 8 or 16")
      ->check(CLI::IsMember({8, 16}));
  cmd->add_flag("--top-down", opt->topDown, "native output: send lines top line first");
  cmd->callback([opt] { guarded(opt->in, [&] { run(*opt); }); });
}

}  // namespace vimg
