// vimg psd: Photoshop documents: describe a document's structure, extract a
// layer's or the composite's pixels to an image file.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <vora/foundation/fl.h>
#include <vora/photoshop.h>

#include "commands.h"
#include "image_io.h"
#include "json.h"

namespace vimg {

using namespace ktPhotoshop;

namespace {

struct Options {
  std::string file, layer, out, set, alpha;
  bool json = false, composite = false, all = false;
  int bits = 0;
};

const char* modeName(uint16_t mode) {
  static const char* const names[] = {"bitmap", "grayscale", "indexed", "RGB",  "CMYK",
                                      "?",      "?",         "multichannel", "duotone", "Lab"};
  return mode < 10 ? names[mode] : "?";
}

const char* methodName(TCompressionMethod m) {
  static const char* const names[] = {"raw", "rle", "zip", "zip-prediction"};
  return m <= ZIP_PREDICTION ? names[m] : "?";
}

const char* sectionName(uint32_t type) {
  static const char* const names[] = {"layer", "open set", "closed set", "divider"};
  return type < 4 ? names[type] : "?";
}

std::string flagText(uint8_t flags) {
  std::string s;
  if (flags & 1) s += " transparency-protected";
  if (flags & 2) s += " hidden";
  if (flags & 8) s += " bit4-used";
  if (flags & 16) s += " pixels-irrelevant";
  return s;
}

// Opens a document; false (with the one failure line) when it cannot be opened or is not one.
bool open(const std::string& path, std::unique_ptr<TpsdFile>& doc) {
  TphotoshopFile* file = nullptr;
  std::string problem = openProblem(path);
  if (problem.empty() && openPsdFile(path.c_str(), file, true) == kSuccess) {
    doc.reset(static_cast<TpsdFile*>(file));
    return true;
  }
  fail(path + ": " + (problem.empty() ? "not a Photoshop document (version 1)" : problem));
  return false;
}

// Reads the structure and channel data; "" or why the reading stopped (the records read before
// it stay in the document).
std::string readAll(TpsdFile& doc) {
  try {
    if (doc.readAllChannelData() == 0) return "";
    return doc.lastReadError().isEmpty() ? "cannot be read" : doc.lastReadError().str();
  } catch (const TpsdException& e) {
    return e.what();
  }
}

void printWarnings(FILE* to, const char* prefix) {
  for (const Tstring& m : TpsdFileWarning::instance().messages()) fprintf(to, "%swarning: %s\n", prefix, m.asChar());
}

// Nesting depth of every layer in file order, from the section types read top first: a set opens
// a level, its divider closes it.
std::vector<int> depths(const TpsdLayerPtrArray& layers) {
  std::vector<int> d(layers.size());
  int level = 0;
  for (size_t i = layers.size(); i-- > 0;) {
    if (layers[i]->sectionType == 3 && level > 0) --level;
    d[i] = level;
    if (layers[i]->isLayerSet()) ++level;
  }
  return d;
}

void infoText(const std::string& path, TpsdFile& doc, int compositeOk) {
  printf("%s: Photoshop document, version 1\n", path.c_str());
  printf("  %u x %u, %u channels, %u bits, colour mode %s (%u)\n", doc.imageWidth(), doc.imageHeight(),
         unsigned(doc.channels()), unsigned(doc.bitDepth()), modeName(doc.colorMode()), unsigned(doc.colorMode()));
  printf("  colour mode data: %d bytes\n", doc.colorModeDataLength());
  printf("  image resources: %u", doc.imageResourceCount());
  for (const TpsdImageResource& r : doc.imageResources()) printf(" %u", unsigned(r.id));
  printf("\n");
  for (size_t i = 0; i < doc.alphaNames().size(); ++i) printf("  alpha channel: %s\n", doc.alphaNames()[i].asChar());
  printf("  layer and mask information: %u bytes, layer info %u bytes, %u layers\n", doc.layerAndMaskLength(),
         doc.layerInfoLength(), doc.layerCount());
  printf("  global layer mask: %u bytes\n", doc.globalLayerMaskLength());
  for (const TpsdInfoBlock& b : doc.additionalGlobalInfo())
    printf("  global information: %s, %u bytes\n", fourCCText(b.key).asChar(), b.length);
  printf("  composite: %s\n", compositeOk == 0 ? methodName(TCompressionMethod(doc.compression())) : "unreadable");
  printf("  layers, top first:\n");
  std::vector<int> depth = depths(doc.layers());
  for (size_t i = doc.layers().size(); i-- > 0;) {
    const TpsdLayer& l = *doc.layers()[i];
    std::string indent(4 + 2 * size_t(depth[i]), ' ');
    if (l.sectionType != 0) {
      printf("%s[%zu] %s \"%s\"", indent.c_str(), i, sectionName(l.sectionType), l.name.asChar());
      if (l.sectionType != 3) printf(" blend %s", fourCCText(l.sectionBlendKey ? l.sectionBlendKey : l.blendKey).asChar());
      printf("%s\n", flagText(l.flags).c_str());
      continue;
    }
    printf("%s[%zu] \"%s\" rect (%d, %d)-(%d, %d) %ux%u, blend %s/%s, opacity %u, clipping %u, flags 0x%02x%s\n",
           indent.c_str(), i, l.name.asChar(), l.left, l.top, l.right, l.bottom, l.width(), l.height(),
           fourCCText(l.blendSignature).asChar(), fourCCText(l.blendKey).asChar(), unsigned(l.opacity),
           unsigned(l.clipping), unsigned(l.flags), flagText(l.flags).c_str());
    printf("%s    channels:", indent.c_str());
    for (const TpsdChannelInfo& c : l.channelInfo)
      printf(" %d:%s(%u)", int(c.id), l.pixels.channel(c.id) ? methodName(l.pixels.compressionMethod(c.id)) : "empty",
             c.length);
    printf("\n");
    if (l.mask.length)
      printf("%s    mask: rect (%d, %d)-(%d, %d), default %u, flags 0x%02x, %u bytes\n", indent.c_str(), l.mask.left,
             l.mask.top, l.mask.right, l.mask.bottom, unsigned(l.mask.defaultColor), unsigned(l.mask.flags),
             l.mask.length);
    if (!l.additionalInfo.empty()) {
      printf("%s    blocks:", indent.c_str());
      for (const TpsdInfoBlock& b : l.additionalInfo) printf(" %s", fourCCText(b.key).asChar());
      printf("\n");
    }
  }
}

void infoJson(const std::string& path, TpsdFile& doc, int compositeOk) {
  Json j;
  j.beginObject().field("file", path).field("width", doc.imageWidth()).field("height", doc.imageHeight());
  j.field("channels", uint32_t(doc.channels())).field("depth", uint32_t(doc.bitDepth()));
  j.field("color_mode", uint32_t(doc.colorMode())).field("color_mode_name", modeName(doc.colorMode()));
  j.field("color_mode_data_bytes", int64_t(doc.colorModeDataLength()));
  j.key("image_resources").beginArray();
  for (const TpsdImageResource& r : doc.imageResources()) j.value(uint32_t(r.id));
  j.endArray();
  j.key("alpha_channels").beginArray();
  for (const Tstring& n : doc.alphaNames()) j.value(n.str());
  j.endArray();
  j.field("layer_and_mask_length", doc.layerAndMaskLength()).field("layer_info_length", doc.layerInfoLength());
  j.field("global_layer_mask_bytes", doc.globalLayerMaskLength());
  j.key("global_blocks").beginArray();
  for (const TpsdInfoBlock& b : doc.additionalGlobalInfo()) j.value(fourCCText(b.key).str());
  j.endArray();
  j.key("composite_compression");
  if (compositeOk == 0) j.value(methodName(TCompressionMethod(doc.compression())));
  else j.value(static_cast<const char*>(nullptr));
  j.key("layers").beginArray();
  std::vector<int> depth = depths(doc.layers());
  for (size_t i = 0; i < doc.layers().size(); ++i) {
    const TpsdLayer& l = *doc.layers()[i];
    j.beginObject().field("index", int64_t(i)).field("name", l.name.str()).field("section", sectionName(l.sectionType));
    j.field("depth", depth[i]).field("top", int64_t(l.top)).field("left", int64_t(l.left));
    j.field("bottom", int64_t(l.bottom)).field("right", int64_t(l.right));
    j.field("blend_signature", fourCCText(l.blendSignature).str()).field("blend_key", fourCCText(l.blendKey).str());
    j.field("opacity", uint32_t(l.opacity)).field("clipping", uint32_t(l.clipping)).field("flags", uint32_t(l.flags));
    j.field("visible", l.isVisible()).field("layer_id", l.layerId);
    if (l.sectionType != 0) j.field("section_blend_key", fourCCText(l.sectionBlendKey).str());
    j.key("channels").beginArray();
    for (const TpsdChannelInfo& c : l.channelInfo) {
      j.beginObject().field("id", int(c.id)).field("length", c.length);
      j.field("compression", l.pixels.channel(c.id) ? methodName(l.pixels.compressionMethod(c.id)) : "empty");
      j.endObject();
    }
    j.endArray();
    if (l.mask.length) {
      j.key("mask").beginObject().field("length", l.mask.length).field("top", int64_t(l.mask.top));
      j.field("left", int64_t(l.mask.left)).field("bottom", int64_t(l.mask.bottom)).field("right", int64_t(l.mask.right));
      j.field("default_color", uint32_t(l.mask.defaultColor)).field("flags", uint32_t(l.mask.flags)).endObject();
    }
    j.key("blocks").beginArray();
    for (const TpsdInfoBlock& b : l.additionalInfo) j.value(fourCCText(b.key).str());
    j.endArray().endObject();
  }
  j.endArray();
  j.key("warnings").beginArray();
  const auto& w = TpsdFileWarning::instance();
  for (size_t i = 0; i < w.messages().size(); ++i)
    j.beginObject().field("bit", w.warningBits()[i]).field("message", w.messages()[i].str()).endObject();
  j.endArray().endObject();
  printf("%s\n", j.str().c_str());
}

// A document that cannot be read whole is described as far as it was read, then the failure.
void info(const Options& o) {
  TpsdFileWarning::instance().clear();
  std::unique_ptr<TpsdFile> doc;
  if (!open(o.file, doc)) return;
  std::string stopped = readAll(*doc);
  TrgbaData composite;
  int compositeOk = stopped.empty() ? doc->readFlattenedImage(composite) : -1;
  if (o.json) infoJson(o.file, *doc, compositeOk);
  else infoText(o.file, *doc, compositeOk), printWarnings(stdout, "  ");
  if (!stopped.empty())
    fail(o.file + ": " + stopped + " (described as far as it was read: " + std::to_string(doc->layers().size()) +
         " layer records)");
}

int64_t fileBytes(const std::string& path) {
  std::error_code ec;
  const auto n = std::filesystem::file_size(path, ec);
  return ec ? -1 : int64_t(n);
}

// Interleaves the grey or red/green/blue channels and the transparency of pixels into an image
// (stored values, no colour conversion). A layer's rectangle may be larger than any data behind
// it: the picture must be what a file of fileBytes could decode to, else this throws.
Image toImage(TpixelData16& px, uint32_t width, uint32_t height, bool grey, int64_t fileBytes) {
  const uint64_t bytes = uint64_t(width) * height * 4 * px.bytesPerChannel();
  if (!FLdecodeok(bytes, fileBytes, 1032))
    throw std::runtime_error(std::to_string(width) + " x " + std::to_string(height) +
                             " pixels cannot come from a file of " + std::to_string(fileBytes) + " bytes");
  Image img;
  img.width = int(width), img.height = int(height), img.bytes = int(px.bytesPerChannel());
  img.alpha = px.channel(TRANSPARENCY) != nullptr;
  img.channels = (grey ? 1 : 3) + (img.alpha ? 1 : 0);
  img.pixels.assign(img.rowBytes() * height, 0);
  const PHOTOSHOP_CHANNEL ids[4] = {BLUE, GREEN, RED, TRANSPARENCY};  // our element order
  for (int e = 0; e < 4; ++e) {
    PHOTOSHOP_CHANNEL id = grey && e < 3 ? RED : ids[e];
    const Tchannel* c = px.channel(id);
    const uint8_t* s = c && c->width == width && c->height == height ? px.getChannelPixPtr(id) : nullptr;
    for (uint32_t y = 0; y < height; ++y) {
      uint8_t* row = &img.pixels[size_t(height - 1 - y) * img.rowBytes()];
      for (uint32_t x = 0; x < width; ++x) {
        size_t at = size_t(y) * width + x;
        if (img.bytes == 1) row[x * 4 + e] = s ? s[at] : (e == 3 ? 255 : 0);
        else reinterpret_cast<uint16_t*>(row)[x * 4 + e] = s ? reinterpret_cast<const uint16_t*>(s)[at] : (e == 3 ? 65535 : 0);
      }
    }
  }
  return img;
}

void extract(const Options& o) {
  if (int(o.composite) + !o.layer.empty() + !o.alpha.empty() != 1)
    return fail("psd extract: give one of --layer NAME, --composite, --alpha NAME, --all", kStatusUsage);
  std::unique_ptr<TpsdFile> doc;
  TrgbaData composite;
  Image img;
  bool grey = false, runLength = false;
  if (!o.alpha.empty()) {  // one channel: a grey picture
    if (!open(o.file, doc)) return;
    if (doc->readAlphaChannel(o.alpha.c_str(), composite) != 0) return fail(o.file + ": " + doc->lastReadError().str());
    img = toImage(composite.pixelData(), composite.width(), composite.height(), true, fileBytes(o.file));
    runLength = doc->compression() == RLE;
  } else if (o.composite) {
    if (!open(o.file, doc)) return;
    if (doc->readFlattenedImage(composite) != 0) return fail(o.file + ": " + doc->lastReadError().str());
    grey = composite.channelCount() < 3;
    // The composite's alpha channels are for the alpha readers: the picture is opaque.
    if (Tchannel* t = composite.pixelData().channel(TRANSPARENCY)) t->defaultValue = uint16_t(composite.pixelData().getMaxColor());
    img = toImage(composite.pixelData(), composite.width(), composite.height(), grey, fileBytes(o.file));
    img.alpha = false, img.channels = grey ? 1 : 3;
    runLength = doc->compression() == RLE;
  } else {
    if (!open(o.file, doc)) return;
    std::string stopped = readAll(*doc);
    if (!stopped.empty()) return printWarnings(stderr, "vimg: "), fail(o.file + ": " + stopped);
    TpsdLayer* layer = doc->findLayer(o.layer.c_str());
    if (!layer) return fail(o.file + ": no layer named \"" + o.layer + "\"");
    if (layer->width() == 0 || layer->height() == 0) return fail(o.file + ": layer \"" + o.layer + "\" has no pixels");
    grey = doc->colorMode() == 1;
    img = toImage(layer->pixels, layer->width(), layer->height(), grey, fileBytes(o.file));
    for (PHOTOSHOP_CHANNEL id : layer->pixels.channelListArray()) runLength |= layer->pixels.compressionMethod(id) == RLE;
  }
  if (doc->bitDepth() == 16 && runLength)
    fprintf(stderr, "vimg: %s: 16-bit run-length channels decode by this library's own rule, which differs from "
            "Photoshop's PackBits: the pixels will not match\n", o.file.c_str());
  if (doc->colorMode() != 1 && doc->colorMode() != 3)
    fprintf(stderr, "vimg: %s: colour mode %s: the first three channels are written as stored\n", o.file.c_str(),
            modeName(doc->colorMode()));
  WriteOptions w;
  w.bits = o.bits;
  std::string error;
  if (!writeImage(o.out, img, w, error)) fail(error);
}

// The layers composited by the library (the whole document or one set), with transparency.
void composite(const Options& o) {
  std::unique_ptr<TpsdFile> doc;
  if (!open(o.file, doc)) return;
  TrgbaData c;
  int r = o.set.empty() ? doc->readFlattenedImage(c, true) : doc->readLayerSetImage(o.set.c_str(), c);
  printWarnings(stderr, "vimg: ");
  if (r != 0) return fail(o.file + ": " + doc->lastReadError().str());
  WriteOptions w;
  w.bits = o.bits;
  std::string error;
  if (!writeImage(o.out, toImage(c.pixelData(), c.width(), c.height(), false, fileBytes(o.file)), w, error)) fail(error);
}

// Every layer with pixels to OUTDIR/NN_NAME.png (NN its place from the bottom).
void extractAll(const Options& o) {
  std::unique_ptr<TpsdFile> doc;
  if (!open(o.file, doc)) return;
  std::string stopped = readAll(*doc);
  if (!stopped.empty()) return printWarnings(stderr, "vimg: "), fail(o.file + ": " + stopped);
  const bool grey = doc->colorMode() == 1;
  WriteOptions w;
  w.bits = o.bits;
  std::error_code ec;
  std::filesystem::create_directories(o.out, ec);  // the folder is made when it is not there
  if (ec) return fail(o.out + ": cannot be made: " + ec.message());
  const int64_t bytes = fileBytes(o.file);
  for (size_t i = 0; i < doc->layers().size(); ++i) {
    TpsdLayer& l = *doc->layers()[i];
    if (l.width() == 0 || l.height() == 0) continue;
    std::string name = l.name.str();
    for (char& ch : name)
      if (!isalnum(static_cast<unsigned char>(ch)) && ch != '-' && ch != '_') ch = '_';
    std::string number = std::to_string(i);
    if (number.size() < 2) number.insert(0, "0");
    std::string error, out = o.out + "/" + number + "_" + name + ".png";
    if (!writeImage(out, toImage(l.pixels, l.width(), l.height(), grey, bytes), w, error)) return fail(error);
    printf("%s\n", out.c_str());
  }
}

}  // namespace

void registerPsd(CLI::App& app) {
  auto* psd = app.add_subcommand("psd", "Photoshop documents: describe, extract, composite the layers, create");
  psd->require_subcommand(1);
  auto op = std::make_shared<Options>();  // one per run: vimg can run again in one process
  Options& o = *op;
  auto* inf = psd->add_subcommand("info", "header, resources, the layer tree, channels, masks and warnings");
  inf->add_option("file", o.file, "Photoshop document (.psd)")->required();
  inf->add_flag("--json", o.json, "one JSON document for scripts");
  inf->callback([op] { guarded(op->file, [op] { info(*op); }); });
  auto* ext = psd->add_subcommand("extract", "write a layer's or the composite's pixels to an image file");
  ext->add_option("file", o.file, "Photoshop document (.psd)")->required();
  ext->add_option("out", o.out, "image to write (format by extension, as vimg convert)")->required();
  ext->add_option("--layer", o.layer, "the layer of this name (the first from the bottom)");
  ext->add_flag("--composite", o.composite, "the stored composite image");
  ext->add_option("--alpha", o.alpha, "the alpha channel of this name, as a grey image");
  ext->add_flag("--all", o.all, "every layer, as OUT/NN_NAME.png (OUT a directory)");
  ext->add_option("--bits", o.bits, "8 or 16 bits per channel in the output (default: the document's)")
      ->check(CLI::IsMember({8, 16}));
  ext->callback([op] { guarded(op->file, [op] { op->all ? extractAll(*op) : extract(*op); }); });
  auto* comp = psd->add_subcommand("composite", "composite the layers (not the stored composite) to an image file");
  comp->add_option("file", o.file, "Photoshop document (.psd)")->required();
  comp->add_option("out", o.out, "image to write, with transparency")->required();
  comp->add_option("--set", o.set, "only the layers of this layer set");
  comp->add_option("--bits", o.bits, "8 or 16 bits per channel in the output (default: the document's)")
      ->check(CLI::IsMember({8, 16}));
  comp->callback([op] { guarded(op->file, [op] { composite(*op); }); });
  registerPsdCreate(*psd);
}

}  // namespace vimg
