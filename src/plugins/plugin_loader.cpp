// Plug-in discovery and loading: the directories searched, each file checked as an image plug-in
// of our maker, its key kept in the plug-in table, and the files handed to the IMF library.
#include <vora/plugins.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <vora/foundation/dynamic_load.h>
#include <vora/foundation/env.h>
#include <vora/foundation/tstring.h>
#include <vora/imf.h>

#include "platform/platform.h"

namespace {

// The plug-in table: parallel arrays of owned strings. Grown to 2 x capacity + 20 when the count
// reaches capacity - 1; rows are never removed.
char** tableNames = nullptr;
char** tableKeys = nullptr;
unsigned tableCount = 0, tableCapacity = 0;

TstringArray pathList;      // candidate files of the last scan
unsigned pathCursor = 0;    // the loading callback's place in pathList
bool warnOnce = true;       // the first scan's warnings only
bool verbose = false;       // no exported call sets these two
bool keyDetail = false;
std::atomic<uint32_t> onceState{0};  // 0 not started, 1 loading, 2 done

std::vector<std::string> lastSearchPath, lastMessages;

void error(const std::string& line) {
  fprintf(stderr, "%s\n", line.c_str());
  lastMessages.push_back(line);
}

void addRow(const char* name, const char* key) {
  if (tableCount + 1 >= tableCapacity) {  // count has reached capacity - 1 (or the table is new)
    const unsigned capacity = 2 * tableCapacity + 20;
    char** names = static_cast<char**>(calloc(capacity, sizeof(char*)));
    char** keys = static_cast<char**>(calloc(capacity, sizeof(char*)));
    if (!names || !keys) return free(names), free(keys);
    for (unsigned i = 0; i < tableCount; ++i) names[i] = tableNames[i], keys[i] = tableKeys[i];
    free(tableNames), free(tableKeys);
    tableNames = names, tableKeys = keys, tableCapacity = capacity;
  }
  tableNames[tableCount] = strdup(name);
  tableKeys[tableCount] = strdup(key);
  ++tableCount;
}

const char* text(const TdynamicLoad& lib, const char* symbol) {
  auto p = static_cast<const char* const*>(lib.symbol(symbol));
  return p ? *p : nullptr;
}

void scanDirectories() {
  lastSearchPath.clear(), lastMessages.clear();
  TstringArray dirs;
  const char* listed = VoraGetEnv("IMF_PLUG_IN_PATH");
  if (listed && *listed)
    for (const Tstring& d : Tstring(listed).split(";"))
      if (!d.isEmpty()) dirs.push_back(d);  // ";;" or a trailing ";" names no directory
  Tstring fallback;
  if (const char* location = GETENV("VORA_LOCATION")) fallback = Tstring(location) + "/bin/plug-ins/image/";
  else if (warnOnce) error("VORA_LOCATION is unset.");
  bool hasDefault = false;
  for (Tstring& d : dirs) {
    const std::string& s = d.str();
    if (s.empty() || (s.back() != '\\' && s.back() != '/')) d += "/";
    hasDefault |= d == fallback;
  }
  // An empty default directory is added too: it lists the current directory (kept as it was).
  if (!hasDefault) dirs.push_back(fallback);
  if (verbose) {
    printf("INFORMATION: IMF plug-in search path:\n");
    for (const Tstring& d : dirs) printf("\t%s\n", d.asChar());
  }
  for (const Tstring& dir : dirs) {
    lastSearchPath.push_back(dir.str());
    std::vector<std::string> names;
    if (!vora::platform::listDirectory(dir.str(), "*.*", names)) {
      if (warnOnce) error("IMF plugin path invalid:" + dir.str());
      continue;
    }
    if (verbose) printf("INFORMATION: Loading plugins from directory: `%s'\n", dir.asChar());
    for (const std::string& name : names) {
      if (name.empty() || name[0] == '.') continue;
      const Tstring ext = Tstring(name).extension();
      if (ext == Tstring("pdb") || ext == Tstring("manifest")) continue;
      if (dirs.size() > 1)
        for (const Tstring& earlier : pathList) {
          const std::string& e = earlier.str();
          // No separator check: an earlier xfoo.so also matches a later foo.so (kept as it was).
          if (e.size() > name.size() && e.compare(e.size() - name.size(), name.size(), name) == 0 && warnOnce)
            error("WARNING: local IMF plug-in `" + e + "' overrides `" + dir.str() + name);
        }
      pathList.push_back(dir + name.c_str());
    }
  }
  pathCursor = 0;
  warnOnce = false;
}

int loadingCallback(void** library, char** name) {
  if (pathCursor >= pathList.size()) return 0;
  *library = nullptr, *name = nullptr;
  Tstring& path = pathList[pathCursor++];
  std::string p = path.str();
  if (void* h = loadImagePlugin(p.data())) {
    *library = h;
    *name = const_cast<char*>(path.asChar());
  }
  return 1;
}

}  // namespace

extern "C" {

void* loadImagePlugin(char* path) {
  TstatNT st;
  if (statNT(path, &st) != 0) return error(std::string("Plugin ") + path + " not found."), nullptr;
  if (st.mode & 0x4000) return error(std::string("File ") + path + " is a directory."), nullptr;
  TdynamicLoad lib;
  if (!lib.open(path, 0)) {
    const std::string why = TdynamicLoad::fsErrorMsg();
    return error(std::string("Cannot open plugin ") + path + (why.empty() ? "" : ": " + why) + "."), nullptr;
  }
  // Compared whole, terminating NUL included: "image2" or "Ferrant X" is not ours.
  const char* type = text(lib, "type");
  const char* program = text(lib, "program");
  if (!type || !program || strcmp(type, "image") != 0 || strcmp(program, "Ferrant") != 0) {
    error(std::string("Error: plugin ") + path + " does not have valid entry point type/name");
    lib.close();
    return nullptr;
  }
  const char* key = text(lib, "imageKey");
  if (!key) {
    error(std::string("Error; plugin ") + path + " has no key.");
    lib.close();
    return nullptr;
  }
  // Only "/" separates here: a path built on a directory ending in "\" is entered whole.
  const char* slash = strrchr(path, '/');
  const char* name = slash ? slash + 1 : path;
  addRow(name, key);
  if (verbose) printf("Adding plugin %s with key %s to table.\n", name, key);
  if (keyDetail) {
    printf("      key=%s\n", key);
    if (const char* v = text(lib, "imageExtension")) printf("      extension=%s\n", v);
    if (const char* v = text(lib, "imageName")) printf("      name=%s\n", v);
    if (const char* v = text(lib, "imageDescription")) printf("      description=%s\n", v);
  }
  return lib.handle();  // stays loaded for the life of the process
}

int loadAllIMFPlugins() {
  VoraPutEnv("KE_IMF_SGI_MATTE", "1");
  scanDirectories();
  ERR_mask_s(0);
  ERR_mask_s(2);
  if (IMF_init(0, loadingCallback) != 0) {
    fprintf(stderr, "IMF initialize failed\n");
    return -1;
  }
  pathList.clear();
  if (verbose) printf("Loaded plugins.\n");
  return 0;
}

void loadImfPlugins() {
  uint32_t expected = 0;
  if (onceState.compare_exchange_strong(expected, 1)) {
    if (loadAllIMFPlugins() != 0) Tstring("Image file loader didn't initialize\n");  // silent, as it was
    onceState.store(2);
  }
  while (onceState.load() != 2) std::this_thread::yield();
}

char* keyFromPluginTable(char* name) {
  for (unsigned i = 0; name && i < tableCount; ++i)
    if (strcmp(tableNames[i], name) == 0) return tableKeys[i];
  return nullptr;
}

// The queries load the plug-ins once rather than scanning again on every call: IMF_init keeps
// what earlier scans registered, so the answers are the same.
bool formatIsMultiframe(const char* name) {
  loadImfPlugins();
  const IMF_format* f = IMF_find(name);
  return f && (f->flags & IMF_MULTIFRAME);
}

bool formatSupportsAlpha(const char* name) {
  loadImfPlugins();
  return IMF_find(name)->alphaCount > 0;
}

bool formatSupportsDepth(const char* name) {
  loadImfPlugins();
  return IMF_find(name)->depthCount > 0;
}

}  // extern "C"

namespace vora {
std::vector<std::string> pluginSearchPath() { return lastSearchPath; }
std::vector<std::string> pluginLoadMessages() { return lastMessages; }
std::vector<std::pair<std::string, std::string>> pluginTable() {
  std::vector<std::pair<std::string, std::string>> rows;
  for (unsigned i = 0; i < tableCount; ++i) rows.emplace_back(tableNames[i], tableKeys[i]);
  return rows;
}
}  // namespace vora
