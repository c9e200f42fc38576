// Test helpers: IFF byte builders, temporary files, child-process checks.
#include "support/test_support.h"

#include <vora/foundation/messages.h>
#include <vora/plugins.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vt {

Bytes chunk(const std::string& id, const Bytes& data, unsigned align) {
  Bytes b;
  text(b, id);
  be32(b, uint32_t(data.size()));
  b.insert(b.end(), data.begin(), data.end());
  while (b.size() % align) b.push_back(0);
  return b;
}

Bytes group(const std::string& id, const std::string& type, const Bytes& contents) {
  Bytes b;
  text(b, id);
  be32(b, uint32_t(contents.size() + 4));
  text(b, type);
  b.insert(b.end(), contents.begin(), contents.end());
  return b;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes& p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}

Bytes tbhd(uint32_t w, uint32_t h, uint32_t type, uint32_t bytesMinusOne, uint32_t tiles,
           uint32_t compress) {
  Bytes b;
  be32(b, w);
  be32(b, h);
  be16(b, 1);
  be16(b, 1);
  be32(b, type);
  be16(b, bytesMinusOne);
  be16(b, tiles);
  be32(b, compress);
  be32(b, 0);
  be32(b, 0);
  return b;
}

TempDir::TempDir() {
  char templ[] = "/tmp/vora_test_XXXXXX";
  if (!mkdtemp(templ)) throw std::runtime_error("mkdtemp");
  dir_ = templ;
}
TempDir::~TempDir() { run("rm -rf '" + dir_ + "'"); }

void writeFile(const std::string& path, const Bytes& data) {
  std::ofstream f(path, std::ios::binary);
  f.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

Bytes readFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

std::string hex(const Bytes& b) {
  std::string s;
  char x[4];
  for (uint8_t c : b) {
    snprintf(x, sizeof x, "%02x", c);
    s += x;
  }
  return s;
}

std::string sha256(const Bytes& b) {
  TempDir d;
  writeFile(d.path("x"), b);
  std::string out;
  run("sha256sum '" + d.path("x") + "'", &out);
  return out.substr(0, 64);
}

int vimg(const std::string& args, std::string* out) {
  if (out) out->clear();
  return run(std::string(VORA_VIMG) + " " + args + " 2>&1", out);
}

int childCount() {
  int n = 0;
  std::string self = std::to_string(getpid());
  DIR* d = opendir("/proc");
  if (!d) return -1;
  while (dirent* e = readdir(d)) {
    if (!isdigit(static_cast<unsigned char>(e->d_name[0]))) continue;
    std::ifstream st(std::string("/proc/") + e->d_name + "/stat");
    std::string line;
    std::getline(st, line);
    size_t close = line.rfind(')');
    if (close == std::string::npos) continue;
    char state;
    long ppid;
    if (sscanf(line.c_str() + close + 1, " %c %ld", &state, &ppid) == 2 &&
        std::to_string(ppid) == self)
      ++n;
  }
  closedir(d);
  return n;
}

int run(const std::string& command, std::string* out) {
  FILE* p = popen(command.c_str(), "r");
  if (!p) return -1;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0)
    if (out) out->append(buf, n);
  int st = pclose(p);
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

std::string magick(const std::string& path, const std::string& map, int depth) {
  std::string out;
  if (run("convert '" + path + "' -depth " + std::to_string(depth) + " -endian LSB " + map + ":-", &out) != 0) return {};
  return out;
}

void useBundledPlugins() {
  setenv("VORA_LOCATION", (std::string(VORA_PLUGIN_DIR) + "/../../..").c_str(), 1);
  loadImfPlugins();
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  const char* old = getenv(name);
  had_ = old != nullptr;
  if (had_) old_ = old;
  if (value) setenv(name, value, 1);
  else unsetenv(name);
}
ScopedEnv::~ScopedEnv() {
  if (had_) setenv(name_.c_str(), old_.c_str(), 1);
  else unsetenv(name_.c_str());
}

struct Messages::Handler : TerrorHandler {
  std::vector<std::string> lines;
  TerrorHandler* old = theErrorHandler;
  void reportError(const char* m) override { lines.push_back(m); }
};
Messages::Messages() : h_(new Handler) { theErrorHandler = h_; }
Messages::~Messages() {
  theErrorHandler = h_->old;
  delete h_;
}
const std::vector<std::string>& Messages::lines() const { return h_->lines; }
bool Messages::said(const std::string& line) const {
  for (const auto& l : h_->lines)
    if (l == line) return true;
  return false;
}

}  // namespace vt
