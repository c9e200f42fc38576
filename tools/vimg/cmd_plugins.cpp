// vimg plugins: the plug-in search path, each plug-in found (its key, extension, name,
// description, what it holds) and each file refused with the reason; plugins probe FILE: which
// plug-in claims a file.
#include <cstdio>
#include <memory>
#include <string>

#include <vora/imf.h>
#include <vora/plugins.h>

#include "commands.h"
#include "image_plugins.h"
#include "json.h"

namespace vimg {

namespace {

struct Options {
  bool json = false;
  std::string file;
};

std::string bitsText(uint32_t mask) {
  std::string s;
  for (int b = 1; b <= 32; ++b)
    if (mask >> (b - 1) & 1) s += (s.empty() ? "" : "/") + std::to_string(b);
  return s;
}

void list(const Options& o) {
  ensurePlugins();
  Json j;
  if (o.json) {
    j.beginObject().key("search_path").beginArray();
    for (const std::string& d : vora::pluginSearchPath()) j.value(d);
    j.endArray().key("plugins").beginArray();
  } else {
    printf("search path\n");
    for (const std::string& d : vora::pluginSearchPath()) printf("  %s\n", d.c_str());
    printf("plug-ins\n");
  }
  for (int i = 0; const IMF_format* f = IMF_format_at(i); ++i) {
    const bool read = f->flags & IMF_CAN_READ, write = f->flags & IMF_CAN_WRITE, multi = f->flags & IMF_MULTIFRAME;
    if (o.json) {
      j.beginObject().field("file", f->path).field("key", f->key).field("extension", f->extension).field("name", f->name);
      j.field("description", f->description).field("read", read).field("write", write).field("bits", bitsText(f->bitsMask));
      j.field("alpha", f->alphaCount > 0).field("depth", f->depthCount > 0).field("multiframe", multi).endObject();
    } else {
      printf("  %-5s %-30s %s%s, %s bits%s%s%s\n    %s\n", f->key, f->name, read ? "read" : "",
             write ? (read ? "/write" : "write") : "", bitsText(f->bitsMask).c_str(), f->alphaCount > 0 ? ", alpha" : "",
             f->depthCount > 0 ? ", depth" : "", multi ? ", multi-frame" : "", f->path);
    }
  }
  std::vector<std::string> refused = vora::pluginLoadMessages();
  for (int i = 0; i < IMF_refused_count(); ++i) refused.push_back(IMF_refused_at(i));
  if (o.json) {
    j.endArray().key("refused").beginArray();
    for (const std::string& r : refused) j.value(r);
    printf("%s\n", j.endArray().endObject().str().c_str());
  } else if (!refused.empty()) {
    printf("refused\n");
    for (const std::string& r : refused) printf("  %s\n", r.c_str());
  }
}

void probe(const Options& o) {
  const std::string problem = openProblem(o.file);
  if (!problem.empty()) return fail(o.file + ": " + problem);
  const char* key = pluginFor(o.file, false);
  if (!key) return fail(o.file + ": no plug-in claims this file");
  const IMF_format* f = IMF_find(key);
  if (o.json) {
    Json j;
    printf("%s\n", j.beginObject().field("file", o.file).field("key", key).field("plugin", f->path).endObject().str().c_str());
  } else {
    printf("%s: %s (%s)\n", o.file.c_str(), key, f->path);
  }
}

}  // namespace

void registerPlugins(CLI::App& app) {
  auto op = std::make_shared<Options>();  // one per run: vimg can run again in one process
  Options& o = *op;
  CLI::App* p = app.add_subcommand("plugins", "format plug-ins: the search path, each plug-in found and each refused");
  p->add_flag("--json", o.json, "one JSON document");
  p->callback([op] {
    if (op->file.empty()) list(*op);
  });
  CLI::App* pr = p->add_subcommand("probe", "which plug-in claims a file");
  pr->add_option("file", o.file, "the file")->required();
  pr->add_flag("--json", o.json, "one JSON document");
  pr->callback([op] { guarded(op->file, [op] { probe(*op); }); });
}

}  // namespace vimg
