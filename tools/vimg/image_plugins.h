// vimg: pictures through the format plug-ins (every format but the library's own).
#pragma once

#include <string>

#include "image_io.h"

namespace vimg {

// Loads the plug-ins once (those bundled with vimg are found beside it).
void ensurePlugins();
// The key of the plug-in that reads this file (by its bytes) or writes this extension; null.
const char* pluginFor(const std::string& path, bool writing, const std::string& extension = "");
bool readPlugin(const std::string& path, const char* key, Image& img, std::string& error);
bool writePlugin(const std::string& path, const char* key, const Image& img, const WriteOptions& opt,
                 std::string& error);

}  // namespace vimg
