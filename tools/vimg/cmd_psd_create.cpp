// vimg psd create: a layered Photoshop document from images.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <vora/psd_texture.h>

#include "commands.h"
#include "image_io.h"

using namespace ktPhotoshop;

namespace vimg {

namespace {

struct CreateOptions {
  std::string out, size, compress = "rle";
  std::vector<std::string> layers, alphas;
  int bits = 8;
};

// Blend modes by the names users know, and the file's own four-character keys.
uint32_t blendKeyOf(const std::string& name) {
  static const std::map<std::string, std::string> names = {
      {"normal", "norm"},    {"multiply", "mul "}, {"darken", "dark"},     {"difference", "diff"},
      {"softlight", "smud"}, {"hardlight", "hLit"}, {"dodge", "div "},     {"lighten", "lite"},
      {"screen", "scrn"},    {"burn", "idiv"},     {"overlay", "over"},    {"hue", "hue "},
      {"saturation", "sat "}, {"luminosity", "lum "}, {"color", "colr"}, {"colour", "colr"}};
  auto it = names.find(name);
  std::string k = it != names.end() ? it->second : name;
  if (k.size() != 4) return 0;
  return uint32_t(uint8_t(k[0])) << 24 | uint32_t(uint8_t(k[1])) << 16 | uint32_t(uint8_t(k[2])) << 8 | uint8_t(k[3]);
}

struct LayerSpec {
  std::string name, image, set;
  int x = 0, y = 0;
  uint32_t blend = 0;
  int opacity = 255;
  bool hidden = false;
};

// NAME=IMAGE[@X,Y][:blend=MODE][:opacity=N][:hidden][:set=SET]
bool parseLayer(const std::string& text, LayerSpec& s, std::string& why) {
  size_t eq = text.find('=');
  if (eq == std::string::npos || eq == 0)
    return why = "--layer wants NAME=IMAGE[@X,Y][:blend=MODE][:opacity=N][:hidden][:set=SET]", false;
  s.name = text.substr(0, eq);
  std::string rest = text.substr(eq + 1);
  std::vector<std::string> parts;
  for (size_t at = 0;;) {
    size_t colon = rest.find(':', at);
    parts.push_back(rest.substr(at, colon == std::string::npos ? std::string::npos : colon - at));
    if (colon == std::string::npos) break;
    at = colon + 1;
  }
  s.image = parts[0];
  size_t atSign = s.image.rfind('@');
  if (atSign != std::string::npos) {
    if (sscanf(s.image.c_str() + atSign + 1, "%d,%d", &s.x, &s.y) != 2) return why = "bad position in " + text, false;
    s.image.resize(atSign);
  }
  s.blend = blendKeyOf("normal");
  for (size_t i = 1; i < parts.size(); ++i) {
    const std::string& p = parts[i];
    if (p.rfind("blend=", 0) == 0) {
      if (!(s.blend = blendKeyOf(p.substr(6)))) return why = "unknown blend mode " + p.substr(6), false;
    } else if (p.rfind("opacity=", 0) == 0) {
      s.opacity = std::atoi(p.c_str() + 8);
      if (s.opacity < 0 || s.opacity > 255) return why = "opacity is 0..255", false;
    } else if (p == "hidden") {
      s.hidden = true;
    } else if (p.rfind("set=", 0) == 0 && p.size() > 4) {
      s.set = p.substr(4);
    } else {
      return why = "unknown layer setting " + p, false;
    }
  }
  return true;
}

// The image's channels as the document holds them: top row first, red, green, blue, transparency.
TpixelData16 channelsOf(const Image& img, TdataFormat format) {
  const uint32_t w = uint32_t(img.width), h = uint32_t(img.height);
  TpixelData16 px(format, w, h, true);
  const PHOTOSHOP_CHANNEL ids[4] = {BLUE, GREEN, RED, TRANSPARENCY};  // the image's element order
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t* row = &img.pixels[size_t(h - 1 - y) * img.rowBytes()];
    for (uint32_t x = 0; x < w; ++x)
      for (int e = 0; e < 4; ++e) {
        uint32_t v = img.bytes == 2 ? reinterpret_cast<const uint16_t*>(row)[x * 4 + e] : row[x * 4 + e];
        if (e == 3 && !img.alpha) v = img.bytes == 2 ? 65535 : 255;
        px.setChannelValue(ids[e], y * w + x, uint16_t(v));
      }
  }
  return px;
}

// An alpha channel from an image of the document's size: its red samples (a grey image's grey).
TpixelData16 alphaOf(const Image& img, TdataFormat format) {
  const uint32_t w = uint32_t(img.width), h = uint32_t(img.height);
  TpixelData16 px = channelsOf(img, format), alpha(format);
  alpha.addChannel(RED, w, h);
  memcpy(alpha.getChannelPixPtr(RED), px.getChannelPixPtr(RED), size_t(w) * h * (format == k16Bits ? 2 : 1));
  return alpha;
}

void create(const CreateOptions& o) {
  const TCompressionMethod method = o.compress == "raw" ? RAW : o.compress == "zip" ? ZIP : RLE;
  if (o.bits == 16 && method == RLE)
    return fail("psd create: 16-bit run-length channels are packed by this library's own rule, which other readers "
                "misread; use --compress zip or raw", kStatusUsage);
  std::vector<LayerSpec> specs;
  std::set<std::string> names;  // settings find their layer by name
  for (const std::string& text : o.layers) {
    LayerSpec s;
    std::string why;
    if (!parseLayer(text, s, why)) return fail("psd create: " + why, kStatusUsage);
    if (!names.insert(s.name).second) return fail("psd create: two layers or sets named " + s.name, kStatusUsage);
    specs.push_back(s);
  }
  for (const LayerSpec& s : specs)
    if (names.count(s.set)) return fail("psd create: a set and a layer both named " + s.set, kStatusUsage);
  const TdataFormat format = o.bits == 16 ? k16Bits : k8Bits;
  std::vector<Image> images(specs.size()), alphas(o.alphas.size());
  int width = 0, height = 0;
  std::string error;
  for (size_t i = 0; i < specs.size(); ++i) {
    if (!readImage(specs[i].image, images[i], error)) return fail(error);
    images[i] = withBytes(images[i], o.bits / 8);
    width = std::max(width, specs[i].x + images[i].width);
    height = std::max(height, specs[i].y + images[i].height);
  }
  if (!o.size.empty() && sscanf(o.size.c_str(), "%dx%d", &width, &height) != 2)
    return fail("psd create: --size wants WxH", kStatusUsage);
  if (width < 1 || height < 1 || width > 30000 || height > 30000)
    return fail("psd create: the document size must be 1..30000 on each side", kStatusUsage);
  for (size_t i = 0; i < o.alphas.size(); ++i) {
    const size_t eq = o.alphas[i].find('=');
    if (eq == std::string::npos || eq == 0) return fail("psd create: --alpha wants NAME=IMAGE", kStatusUsage);
    if (!readImage(o.alphas[i].substr(eq + 1), alphas[i], error)) return fail(error);
    if (alphas[i].width != width || alphas[i].height != height)
      return fail("psd create: alpha channel " + o.alphas[i].substr(0, eq) + " is not " + std::to_string(width) + "x" +
                  std::to_string(height) + ", the document's size", kStatusUsage);
    alphas[i] = withBytes(alphas[i], o.bits / 8);
  }
  TpsdTextureFile doc;
  if (doc.create(o.out.c_str(), uint16_t(width), uint16_t(height), unsigned(o.bits)) != 0)
    return fail(o.out + ": cannot be created");
  auto& file = *static_cast<TpsdFile*>(doc.document());  // what the facade leaves out: the hidden flag, errors
  std::set<std::string> sets;
  for (size_t i = 0; i < specs.size(); ++i) {
    const LayerSpec& s = specs[i];
    TpixelData16 px = channelsOf(images[i], format);
    if (!s.set.empty() && sets.insert(s.set).second) doc.createLayerSet(s.set.c_str());
    const int made = s.set.empty() ? doc.createLayer(s.name.c_str(), s.x, s.y, std::move(px))
                                   : doc.addNewLayerToSet(s.set.c_str(), s.name.c_str(), s.x, s.y, std::move(px));
    if (made != 0 || doc.setBlendModeToLayer(s.name.c_str(), s.blend) != 0 ||
        doc.setLayerOpacity(s.name.c_str(), uint8_t(s.opacity)) != 0)
      return fail("psd create: layer " + s.name + " cannot be added");
    if (s.hidden) file.findLayer(s.name.c_str())->flags |= 2;
  }
  for (size_t i = 0; i < o.alphas.size(); ++i)
    if (doc.createChannel(o.alphas[i].substr(0, o.alphas[i].find('=')).c_str(), alphaOf(alphas[i], format)) != 0)
      return fail("psd create: alpha channel " + o.alphas[i] + " cannot be added");
  if (doc.saveAs(TfilePath(std::string()), method) != 0) fail(o.out + ": " + file.lastReadError().str());
}

}  // namespace

void registerPsdCreate(CLI::App& psd) {
  auto o = std::make_shared<CreateOptions>();
  auto* cmd = psd.add_subcommand("create", "build a layered document from images (bottom layer first)");
  cmd->add_option("out", o->out, "Photoshop document to write")->required();
  cmd->add_option("--layer", o->layers,
                  "NAME=IMAGE[@X,Y][:blend=MODE][:opacity=0..255][:hidden]; modes: normal, multiply, screen, "
                  "overlay, darken, lighten, difference, softlight, hardlight, dodge, burn, hue, saturation, "
                  "luminosity, color; set=SET puts the layer on top inside that set (made where first named)")
      ->required();
  cmd->add_option("--alpha", o->alphas, "NAME=IMAGE: an alpha channel from the image's red (grey) samples, document-sized");
  cmd->add_option("--bits", o->bits, "8 or 16 bits per channel")->check(CLI::IsMember({8, 16}));
  cmd->add_option("--compress", o->compress, "layer channels: raw, rle or zip")->check(CLI::IsMember({"raw", "rle", "zip"}));
  cmd->add_option("--size", o->size, "document size WxH (default: what holds every layer)");
  cmd->callback([o] { guarded(o->out, [&] { create(*o); }); });
}

}  // namespace vimg
