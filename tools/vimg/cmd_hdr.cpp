// vimg hdr: HDR pictures (OpenEXR, Radiance) described, and exposed to 8-bit images through the
// library's operators.
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <vora/hdr_readers.h>

#include "commands.h"
#include "image_io.h"
#include "json.h"

namespace vimg {

namespace {

struct HdrOptions {
  std::string file, out, mode = "film", size;
  float exposure = 0, gamma = 1, defog = 0, kneeLow = 0, kneeHigh = 5, grey = 0.36f;
  bool json = false, exposureGiven = false, gammaGiven = false;
};

std::unique_ptr<ThdrImageFile> openHdr(const std::string& file) {
  registerStandardHdrReaders();
  if (std::string why = openProblem(file); !why.empty()) return fail(file + ": " + why), nullptr;
  std::unique_ptr<ThdrImageFile> f(ThdrTranslationManager::instance().createAndOpen(file));
  if (!f) fail(file + ": not an HDR picture the readers here open (OpenEXR .exr, Radiance .hdr), or damaged");
  return f;
}

void info(const HdrOptions& o) {
  auto f = openHdr(o.file);
  if (!f) return;
  TgenericPixelMap<float> map;
  if (f->read(map, 0) != 0) return fail(o.file + ": the pixels cannot be read (damaged?)");
  const ThdrImageFileInfo& i = f->info();
  const unsigned c = map.channels();
  std::vector<double> mn(c, DBL_MAX), mx(c, -DBL_MAX), sum(c, 0);
  std::vector<size_t> odd(c, 0);  // NaN and infinities, left out of the figures
  for (size_t p = 0; p < size_t(map.width()) * map.height(); ++p)
    for (unsigned k = 0; k < c; ++k) {
      const double v = map.data()[p * c + k];
      if (!std::isfinite(v)) {
        ++odd[k];
        continue;
      }
      mn[k] = std::min(mn[k], v), mx[k] = std::max(mx[k], v), sum[k] += v;
    }
  const Tstring ext = Tstring(o.file).extension().toLower();
  const bool rgbe = ext == Tstring("hdr") || ext == Tstring("rgbe") || ext == Tstring("pic");
  const char* type = i.flags[1] ? "half" : rgbe ? "rgbe" : "float";
  const char* names4[] = {"R", "G", "B", "A"};
  auto name = [&](unsigned k) { return c == 1 ? std::string("Y") : std::string(names4[k < 4 ? k : 3]); };
  const double count = double(map.width()) * map.height();
  std::vector<double> mean(c, 0.0);
  for (unsigned k = 0; k < c; ++k)
    if (count > odd[k]) mean[k] = sum[k] / (count - double(odd[k]));
  if (o.json) {
    Json j;
    j.beginObject().field("file", o.file).field("width", i.values[0]).field("height", i.values[1]);
    j.field("channels", int(c)).field("type", type).field("tiled", i.flags[0]);
    j.key("data_window").beginArray().value(i.values[3]).value(i.values[4]).value(i.values[5]).value(i.values[6]).endArray();
    j.key("stats").beginArray();
    for (unsigned k = 0; k < c; ++k)
      j.beginObject().field("channel", name(k)).field("min", mn[k]).field("max", mx[k])
          .field("mean", mean[k]).field("nonfinite", int64_t(odd[k])).endObject();
    j.endArray().endObject();
    printf("%s\n", j.str().c_str());
    return;
  }
  printf("%s\n", o.file.c_str());
  printf("  size         %d x %d, %u channel%s, %s%s\n", i.values[0], i.values[1], c, c == 1 ? "" : "s", type,
         i.flags[0] ? ", tiled" : "");
  printf("  data window  (%d, %d) %d x %d\n", i.values[3], i.values[4], i.values[5], i.values[6]);
  for (unsigned k = 0; k < c; ++k)
    printf("  %-12s min %g, max %g, mean %g%s\n", name(k).c_str(), mn[k], mx[k], mean[k],
           odd[k] ? (", " + std::to_string(odd[k]) + " not finite").c_str() : "");
}

// The 8-bit pixels to the output image; alpha kept from the linear modes of 4-channel pictures.
void writeDisplay(const TpixelMap& px, const HdrOptions& o, bool fourChannels) {
  Image img;
  img.width = int(px.width()), img.height = int(px.height());
  img.alpha = o.mode == "linear" && fourChannels;
  img.channels = img.alpha ? 4 : 3;
  img.pixels.resize(img.rowBytes() * size_t(img.height));
  memcpy(img.pixels.data(), px.pixels(), img.pixels.size());  // both blue, green, red, alpha, bottom row first
  std::string error;
  if (!writeImage(o.out, img, WriteOptions(), error)) fail(error);
}

void expose(const HdrOptions& o) {
  unsigned w = 0, h = 0;
  char extra;
  if (!o.size.empty() && (sscanf(o.size.c_str(), "%ux%u%c", &w, &h, &extra) != 2 || !w || !h))
    return fail("hdr expose: --size wants WxH, such as 1920x1080", kStatusUsage);
  auto f = openHdr(o.file);
  if (!f) return;
  const bool gammaPath = o.mode == "linear" && (o.exposureGiven || o.gammaGiven);
  TpixelMap px;
  TgenericPixelMap<float> map;
  if (gammaPath && !w) {  // straight to display pixels (half EXR samples through a table)
    if (readExposedGamma(f.get(), px, o.exposure, o.gamma) != 0) return fail(o.file + ": the pixels cannot be read (damaged?)");
    return writeDisplay(px, o, f->info().values[2] >= 4);
  }
  if (f->read(map, 0) != 0) return fail(o.file + ": the pixels cannot be read (damaged?)");
  if (w && ThdrImageFile::resize(map, w, h) != 0) return fail(o.file + ": cannot be resized to " + o.size);
  ThdrLinearExposure linear;
  ThdrToneMap tone;
  ThdrOpenEXR film;
  ThdrExposure* op = &film;
  if (o.mode == "linear") {
    op = &linear;  // the picture's own range; with exposure or gamma, the display curve below
  } else if (o.mode == "tonemap") {
    op = &tone;
    tone.setMiddleGreyValue(o.grey);
  } else if (o.mode == "film") {
    film.setExposure(o.exposure), film.setDefog(o.defog), film.setKneeLow(o.kneeLow), film.setKneeHigh(o.kneeHigh);
  } else {
    return fail("hdr expose: --mode is linear, tonemap or film", kStatusUsage);
  }
  const int r = gammaPath ? hdrExposeGamma(map, px, o.exposure, o.gamma) : op->convert(map, px);
  if (r != 0) return fail(o.file + ": the " + o.mode + " operator refused this picture");
  writeDisplay(px, o, map.channels() >= 4);
}

}  // namespace

void registerHdr(CLI::App& app) {
  CLI::App* hdr = app.add_subcommand("hdr", "HDR pictures (OpenEXR, Radiance): describe, expose to 8 bits");
  hdr->require_subcommand(1);
  auto io = std::make_shared<HdrOptions>();
  CLI::App* i = hdr->add_subcommand("info", "size, channels, pixel type, data window, min/max/mean per channel");
  i->add_option("file", io->file, "an HDR picture")->required();
  i->add_flag("--json", io->json, "print one JSON document");
  i->callback([io] { guarded(io->file, [&] { info(*io); }); });
  auto eo = std::make_shared<HdrOptions>();
  CLI::App* e = hdr->add_subcommand("expose", "an 8-bit image through an exposure operator");
  e->add_option("file", eo->file, "an HDR picture")->required();
  e->add_option("out", eo->out, "the image to write (PNG, TIFF, native IFF, ...)")->required();
  e->add_option("--mode", eo->mode, "film (default; exposure, defog, knee), tonemap, or linear");
  e->add_option("--exposure", eo->exposure, "stops (film and linear)")->each([eo](const std::string&) { eo->exposureGiven = true; });
  e->add_option("--gamma", eo->gamma, "linear: the gamma after the exposure (2.2 for a display)")
      ->each([eo](const std::string&) { eo->gammaGiven = true; })
      ->check(CLI::PositiveNumber);
  e->add_option("--defog", eo->defog, "film: the share of the mean colour taken off");
  e->add_option("--knee-low", eo->kneeLow, "film: stops where highlights start to be compressed (default 0)");
  e->add_option("--knee-high", eo->kneeHigh, "film: stops compressed into the top of the range (default 5)");
  e->add_option("--grey", eo->grey, "tonemap: the middle grey (default 0.36)");
  e->add_option("--size", eo->size, "WxH: resized first (box filter on the floats)");
  e->callback([eo] { guarded(eo->file, [&] { expose(*eo); }); });
}

}  // namespace vimg
