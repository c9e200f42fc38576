// vimg load: pictures read by the background loader, in order, each answer said as it comes.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <vora/image_process.h>

#include "commands.h"
#include "image_plugins.h"

namespace vimg {

namespace {

struct LoadOptions {
  std::vector<std::string> files;
  std::string size;
};

void load(const LoadOptions& o) {
  ensurePlugins();
  unsigned w = 0, h = 0;
  if (!o.size.empty() && (sscanf(o.size.c_str(), "%ux%u", &w, &h) != 2 || w < 1 || h < 1 || w > 32767 || h > 32767))
    return fail("load: --size wants WxH", kStatusUsage);
  TmpImageProcess* p = TmpImageProcess::imageProcess();
  for (const std::string& f : o.files) p->request(f.c_str(), {0, 0, uint16_t(w), uint16_t(h)});
  for (size_t i = 0; i < o.files.size(); ++i) {
    TimageLoadAnswer a = p->answer();
    std::unique_ptr<TpixelMap> map(a.pixelMap);
    if (map->width() == 0) fail(a.fileName.str() + ": not loaded");
    else printf("%s: %ux%u\n", a.fileName.asChar(), map->width(), map->height());
  }
  TmpImageProcess::shutdownImageProcess();
}

}  // namespace

void registerLoad(CLI::App& app) {
  auto o = std::make_shared<LoadOptions>();
  CLI::App* cmd = app.add_subcommand("load", "pictures read by the background loader, scaled to a size");
  cmd->add_option("files", o->files, "any picture files")->required();
  cmd->add_option("--size", o->size, "WxH: each picture scaled to it");
  cmd->callback([o] { guarded(o->files.front(), [&] { load(*o); }); });
}

}  // namespace vimg
