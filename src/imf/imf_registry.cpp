// The IMF registry: plug-ins handed over by the loader's callback, checked against the entry-point
// table's version and size, and found again by key or extension.
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <vora/imf.h>

#include "imf/imf_internal.h"
#include "platform/platform.h"

static_assert(offsetof(IMF_format, name) == 16 && offsetof(IMF_format, alphaCount) == 88 &&
                  offsetof(IMF_format, depthCount) == 96 && offsetof(IMF_format, flags) == 128,
              "the loader reads these fields at fixed offsets");

namespace imf {

Registry& registry() {
  static Registry r;
  return r;
}

int errorMask = 3;

namespace {

bool sameIgnoringCase(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b) {
    char x = *a >= 'A' && *a <= 'Z' ? char(*a - 'A' + 'a') : *a, y = *b >= 'A' && *b <= 'Z' ? char(*b - 'A' + 'a') : *b;
    if (x != y) return false;
  }
  return *a == *b;
}

const char* text(void* library, const char* symbol) {
  auto p = static_cast<const char* const*>(vora::platform::librarySymbol(library, symbol));
  return p ? *p : nullptr;
}

// Why a plug-in's table cannot be used, or "" when it can.
std::string tableProblem(const IMF_plugin* p) {
  if (!p) return "its entry point returned no table";
  if (p->abiVersion < 1 || p->abiVersion > IMF_PLUGIN_ABI_VERSION)
    return "entry-point table of version " + std::to_string(p->abiVersion) + ", this library takes 1 to " +
           std::to_string(IMF_PLUGIN_ABI_VERSION);
  if (p->size != (p->abiVersion == 1 ? IMF_PLUGIN_V1_SIZE : sizeof(IMF_plugin)))
    return "entry-point table of " + std::to_string(p->size) + " bytes";
  if (!p->probe || !p->close) return "no probe or close entry point";
  if ((p->flags & IMF_CAN_READ) && (!p->openRead || !p->readLine)) return "reads without openRead and readLine";
  if ((p->flags & IMF_CAN_WRITE) && (!p->openWrite || !p->writeLine)) return "writes without openWrite and writeLine";
  if (!(p->flags & (IMF_CAN_READ | IMF_CAN_WRITE))) return "neither reads nor writes";
  return "";
}

void refuse(Registry& r, const std::string& path, const std::string& why) {
  r.refused.push_back(path + ": " + why);
  if (errorMask & 1) fprintf(stderr, "IMF: plug-in %s refused: %s\n", path.c_str(), why.c_str());
}

}  // namespace

const IMF_format* find(const char* name) {
  if (!name || !*name) return nullptr;
  Registry& r = registry();
  for (const auto& f : r.formats)
    if (sameIgnoringCase(f->format.key, name)) return &f->format;
  for (const auto& f : r.formats) {
    if (f->format.extension && sameIgnoringCase(f->format.extension, name)) return &f->format;
    for (const std::string& e : f->otherExtensions)
      if (sameIgnoringCase(e.c_str(), name)) return &f->format;
  }
  return nullptr;
}

}  // namespace imf

using namespace imf;

extern "C" {

int IMF_init(int, IMF_load_callback callback) {
  if (!callback) return -1;
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.refused.clear();
  void* library = nullptr;
  char* name = nullptr;
  while (callback(&library, &name)) {
    if (!library) continue;  // the loader refused this entry and said why
    const std::string path = name ? name : "";
    bool known = false;
    for (const auto& f : r.formats) known |= f->format.library == library;
    if (known) continue;  // registered by an earlier scan
    auto entry = reinterpret_cast<IMF_plugin_entry_fn>(vora::platform::librarySymbol(library, IMF_PLUGIN_ENTRY_SYMBOL));
    if (!entry) {
      refuse(r, path, std::string("no ") + IMF_PLUGIN_ENTRY_SYMBOL + " entry point");
      continue;
    }
    const IMF_plugin* p = entry();
    std::string problem = tableProblem(p);
    const char* key = text(library, "imageKey");
    if (problem.empty() && !key) problem = "no imageKey";
    if (problem.empty() && find(key) && sameIgnoringCase(find(key)->key, key))
      problem = std::string("key \"") + key + "\" is taken by " + find(key)->path;
    if (!problem.empty()) {
      refuse(r, path, problem);
      continue;
    }
    auto f = std::make_unique<Registered>();
    f->key = key, f->path = path;
    const char* n = text(library, "imageName");
    f->name = n ? n : key;
    // Names are made with the first extension; the others are found as well ("jp2 j2k j2c").
    const char* e = text(library, "imageExtension");
    for (const char* at = e ? e : ""; *at;) {
      const size_t n = strcspn(at, " "), skip = n + strspn(at + n, " ");
      if (n) (f->extension.empty() ? f->extension : f->otherExtensions.emplace_back()) = std::string(at, n);
      at += skip;
    }
    const char* d = text(library, "imageDescription");
    f->description = d ? d : "";
    IMF_format& fmt = f->format;
    fmt.abiVersion = p->abiVersion;
    fmt.key = f->key.c_str(), fmt.name = f->name.c_str(), fmt.extension = f->extension.c_str();
    fmt.description = f->description.c_str(), fmt.path = f->path.c_str();
    memcpy(&f->table, p, p->size);  // an earlier version's table: the later entry points stay null
    fmt.plugin = &f->table, fmt.library = library;
    fmt.bitsMask = p->bitsMask, fmt.scanOrders = p->scanOrders, fmt.depthMax = p->depthMax;
    fmt.alphaCount = p->maxMatte, fmt.depthCount = p->maxDepth, fmt.flags = p->flags;
    r.formats.push_back(std::move(f));
  }
  return 0;
}

const IMF_format* IMF_find(const char* name) { return find(name); }

const IMF_format* IMF_format_at(int index) {
  Registry& r = registry();
  return index >= 0 && size_t(index) < r.formats.size() ? &r.formats[size_t(index)]->format : nullptr;
}

int ERR_mask_s(int mask) {
  int old = errorMask;
  errorMask = mask;
  return old;
}

int IMF_refused_count(void) { return int(registry().refused.size()); }

const char* IMF_refused_at(int index) {
  Registry& r = registry();
  return index >= 0 && size_t(index) < r.refused.size() ? r.refused[size_t(index)].c_str() : nullptr;
}

}  // extern "C"
