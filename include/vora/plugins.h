// Format plug-ins: finding the plug-in files, checking them, handing them to the IMF library, and
// what a format can hold. The loading is process-wide.
#pragma once

#include <string>
#include <vector>

#include <vora/export.h>

extern "C" {
// Loads the plug-ins once per process; callers on other threads wait until it is done. A failure
// is silent here (the plug-ins are then simply not there).
VORA_API void loadImfPlugins();
// One full scan of the plug-in directories and registration with the IMF library: 0, or -1 when
// the IMF library refuses to initialise.
VORA_API int loadAllIMFPlugins();
// Opens and checks one plug-in file: the library handle, or null (the reason on standard error).
VORA_API void* loadImagePlugin(char* path);
// The key of the first table row of this file name (case-sensitive), or null.
VORA_API char* keyFromPluginTable(char* name);
VORA_API bool formatIsMultiframe(const char* name);
// An unknown format is the caller's error: check it with IMF_find first.
VORA_API bool formatSupportsAlpha(const char* name);
VORA_API bool formatSupportsDepth(const char* name);
}

namespace vora {
// The directories the last scan searched, in order, and what it said about each file it refused
// (one line each, as printed); for tools that show the plug-in setup.
VORA_API std::vector<std::string> pluginSearchPath();
VORA_API std::vector<std::string> pluginLoadMessages();
// The rows of the plug-in table: file name and key.
VORA_API std::vector<std::pair<std::string, std::string>> pluginTable();
}  // namespace vora
