// vimg lut: colour lookup tables: describe a LUT file, evaluate it at a colour,
// apply it to an image.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include <vora/colorlut.h>

#include "commands.h"
#include "image_io.h"
#include "json.h"

namespace vimg {

namespace {

struct Options {
  std::string file, in, out;
  float rgb[3] = {0, 0, 0};
  bool json = false, lin2log = false;
  int threads = 0;
};

std::unique_ptr<TccLut> load(const std::string& file, const char** parser) {
  TfileStream s(file.c_str());
  if (!s.isOpen()) {
    fail(file + ": " + openProblem(file));
    return nullptr;
  }
  Tstring why;
  std::unique_ptr<TccLut> lut(TccLutFile::read(s, parser, &why));
  if (!lut) fail(file + ": not a LUT file of a known format (csp, lut, look, cube, 3dl); " + why.str());
  return lut;
}

const char* kindName(uint32_t k) {
  return k == TccLut::kGamma ? "gamma" : k == TccLut::kTable ? "1D table" : k == TccLut::kCube ? "3D cube" : "unknown";
}

void info(const Options& o) {
  const char* parser;
  std::unique_ptr<TccLut> lut = load(o.file, &parser);
  if (!lut) return;
  unsigned r, g, b;
  lut->cubeSize(r, g, b);
  float lo = INFINITY, hi = -INFINITY;
  for (const TscLutColor& c : lut->table())
    for (float v : {c.red, c.green, c.blue}) lo = std::min(lo, v), hi = std::max(hi, v);
  size_t pre[3] = {lut->preLut(0).size(), lut->preLut(1).size(), lut->preLut(2).size()};
  if (o.json) {
    Json j;
    j.beginObject().field("file", o.file).field("parser", parser).field("kind", kindName(lut->kind()));
    if (lut->kind() == TccLut::kCube) j.key("size").beginArray().value(r).value(g).value(b).endArray();
    if (lut->kind() == TccLut::kTable) j.field("entries", int64_t(lut->table().size()));
    j.key("prelut_points").beginArray().value(int64_t(pre[0])).value(int64_t(pre[1])).value(int64_t(pre[2])).endArray();
    j.field("prelut_out_of_range", lut->preLutOutOfRange());
    if (!lut->table().empty()) j.key("range").beginArray().value(double(lo)).value(double(hi)).endArray();
    j.endObject();
    printf("%s\n", j.str().c_str());
    return;
  }
  printf("%s\n  parser       %s\n  kind         %s\n", o.file.c_str(), parser, kindName(lut->kind()));
  if (lut->kind() == TccLut::kCube) printf("  size         %u x %u x %u\n", r, g, b);
  if (lut->kind() == TccLut::kTable) printf("  entries      %zu\n", lut->table().size());
  printf("  pre-LUT      %zu, %zu, %zu points%s\n", pre[0], pre[1], pre[2],
         lut->preLutOutOfRange() ? " (inputs outside 0..1)" : "");
  if (!lut->table().empty()) printf("  values       %.9g .. %.9g\n", double(lo), double(hi));
}

void eval(const Options& o) {
  const char* parser;
  std::unique_ptr<TccLut> lut = load(o.file, &parser);
  if (!lut) return;
  TscLutColor in(o.rgb[0], o.rgb[1], o.rgb[2], 0.0f), out = in;
  if (o.lin2log) TscLutLin2LogPreTransform().PreTransform(in, in);
  lut->convert(in, out);
  if (o.json) {
    Json j;
    j.beginObject().field("file", o.file).field("parser", parser).key("in").beginArray();
    for (float v : o.rgb) j.value(double(v));
    j.endArray().key("out").beginArray().value(double(out.red)).value(double(out.green)).value(double(out.blue));
    j.endArray().endObject();
    printf("%s\n", j.str().c_str());
    return;
  }
  printf("%.9g %.9g %.9g\n", double(out.red), double(out.green), double(out.blue));
}

void apply(const Options& o) {
  const char* parser;
  std::unique_ptr<TccLut> lut = load(o.file, &parser);
  if (!lut) return;
  Image img;
  std::string error;
  if (!readImage(o.in, img, error)) return fail(error);
  TscLutLin2LogPreTransform lin2log;
  const TscLutLin2LogPreTransform* pre = o.lin2log ? &lin2log : nullptr;
  size_t n = size_t(img.width) * img.height;
  if (img.bytes == 1) {
    ccLutApplyBGRA8(*lut, pre, img.pixels.data(), n, o.threads);
  } else {
    // 16-bit: through floats in red, green, blue order, back to 16 bits.
    std::vector<float> f(n * 3);
    auto* p = reinterpret_cast<uint16_t*>(img.pixels.data());
    for (size_t i = 0; i < n; ++i)
      for (int c = 0; c < 3; ++c) f[3 * i + size_t(c)] = float(p[4 * i + size_t(2 - c)]) / 65535.0f;
    ccLutApply(*lut, pre, f.data(), n, 3, o.threads);
    for (size_t i = 0; i < n; ++i)
      for (int c = 0; c < 3; ++c) {
        float v = f[3 * i + size_t(c)];
        p[4 * i + size_t(2 - c)] = uint16_t(std::lround((!(v >= 0) ? 0 : v > 1 ? 1 : v) * 65535.0f));
      }
  }
  if (!writeImage(o.out, img, WriteOptions{}, error)) fail(error);
}

}  // namespace

void registerLut(CLI::App& app) {
  auto o = std::make_shared<Options>();
  CLI::App* cmd = app.add_subcommand("lut", "colour lookup tables: info, eval, apply");
  cmd->require_subcommand(1);
  CLI::App* i = cmd->add_subcommand("info", "the parser that takes FILE, kind, sizes, pre-LUTs, values");
  i->add_option("file", o->file, "LUT file (.csp, .lut, .look, .cube, .3dl)")->required();
  i->add_flag("--json", o->json, "print one JSON document");
  i->callback([o] { guarded(o->file, [&] { info(*o); }); });
  CLI::App* e = cmd->add_subcommand("eval", "the LUT at one colour (each value printed with %.9g)");
  e->add_option("file", o->file)->required();
  e->add_option("r", o->rgb[0])->required();
  e->add_option("g", o->rgb[1])->required();
  e->add_option("b", o->rgb[2])->required();
  e->add_flag("--lin2log", o->lin2log, "apply the lin-to-log pre-transform first (defaults)");
  e->add_flag("--json", o->json, "print one JSON document");
  e->callback([o] { guarded(o->file, [&] { eval(*o); }); });
  CLI::App* a = cmd->add_subcommand("apply", "apply the LUT to an image (native IFF, SGI, PNG, ...)");
  a->add_option("file", o->file)->required();
  a->add_option("in", o->in)->required();
  a->add_option("out", o->out)->required();
  a->add_flag("--lin2log", o->lin2log, "apply the lin-to-log pre-transform first (defaults)");
  a->add_option("--threads", o->threads, "threads (0: one per core)");
  a->callback([o] { guarded(o->file, [&] { apply(*o); }); });
}

}  // namespace vimg
