// What the IMF library's files share: the registered formats.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <vora/imf.h>

namespace imf {

// A registered plug-in: the descriptor and the texts it points to.
struct Registered {
  IMF_format format{};
  IMF_plugin table{};  // the plug-in's entry points, as of this library's version
  std::string key, name, extension, description, path;
  std::vector<std::string> otherExtensions;  // after the first word of imageExtension
};

struct Registry {
  std::mutex mutex;  // IMF_init against itself; lookups follow the loader's own serialisation
  std::vector<std::unique_ptr<Registered>> formats;
  std::vector<std::string> refused;
};

Registry& registry();
const IMF_format* find(const char* name);
extern int errorMask;

}  // namespace imf
