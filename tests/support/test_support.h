// Test helpers: IFF byte builders, temporary files, child-process checks.
#pragma once

#include <cmath>
#include <string>

#include "support/bytes.h"

namespace vt {

// id + big-endian size + data + zero padding to align.
Bytes chunk(const std::string& id, const Bytes& data, unsigned align = 4);
// id + size (type + contents) + type + contents.
Bytes group(const std::string& id, const std::string& type, const Bytes& contents);
Bytes cat(std::initializer_list<Bytes> parts);
// A 32-byte TBHD block.
Bytes tbhd(uint32_t w, uint32_t h, uint32_t type, uint32_t bytesMinusOne, uint32_t tiles,
           uint32_t compress);

// A fresh directory for one test, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
};

void writeFile(const std::string& path, const Bytes& data);
Bytes readFile(const std::string& path);
inline std::string readText(const std::string& path) {
  const Bytes b = readFile(path);
  return std::string(b.begin(), b.end());
}
std::string hex(const Bytes& b);
template <class Allocator>  // buffers of other allocators (the library's sample buffers)
std::string hex(const std::vector<uint8_t, Allocator>& b) {
  return hex(Bytes(b.begin(), b.end()));
}

// Peak signal-to-noise ratio of two sample vectors of one size, in dB (99 when equal).
template <class V>
double psnr(const V& a, const V& b, double peak) {
  double e = 0;
  for (size_t i = 0; i < a.size(); ++i) e += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
  return e == 0 ? 99 : 10 * std::log10(peak * peak * double(a.size()) / e);
}

// SHA-256 of the bytes, as hex (through sha256sum).
std::string sha256(const Bytes& b);

// Runs the vimg built with the tests with args; out (cleared first) gets stdout and stderr.
int vimg(const std::string& args, std::string* out = nullptr);

// ImageMagick's decode of a file: samples of map ("rgba", "bgr", "gray") of depth bits, low byte
// first, top row first; "" when it cannot decode it.
std::string magick(const std::string& path, const std::string& map = "rgba", int depth = 8);

// The bundled plug-ins, found as an installation has them (VORA_LOCATION), loaded.
void useBundledPlugins();

// Number of live (not yet reaped or running) children of this process.
int childCount();
// Runs a shell command, returns its exit status and fills out with its stdout.
int run(const std::string& command, std::string* out = nullptr);

// What a call throws (E's what()), or "nothing".
template <class E, class F>
std::string thrown(F&& call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "nothing";
}

// Collects what the library reports through theErrorHandler while it lives.
class Messages {
 public:
  Messages();
  ~Messages();
  const std::vector<std::string>& lines() const;
  bool said(const std::string& line) const;

 private:
  struct Handler;
  Handler* h_;
};

// Sets an environment variable for the scope of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();

 private:
  std::string name_;
  std::string old_;
  bool had_;
};

}  // namespace vt
