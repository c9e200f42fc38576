// What the fuzz targets that read files share: one temporary file per process, rewritten with
// each input.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

inline const std::string& tempPath() {
  static const std::string path = [] {
    char name[] = "/tmp/vora_fuzz_XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    return std::string(name);
  }();
  return path;
}

// Writes the input to tempPath() + suffix (readers that choose by extension need one).
inline bool writeInput(const uint8_t* data, size_t size, const std::string& suffix = "") {
  FILE* out = fopen((tempPath() + suffix).c_str(), "wb");
  if (!out) return false;
  fwrite(data, 1, size, out);
  fclose(out);
  return true;
}

}  // namespace fuzz
