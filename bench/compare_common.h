// Shared by the side-by-side comparers: timing, medians, the generated picture, file sizes.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace bench {

// The comparers' command line: [--size N] [--rounds N] [--only CASE] [--content flat|render] [DIR]
// (DIR: where the files go; CASE: one of the comparer's cases, by its name; content: one class of
// picture rather than both).
struct Args {
  int size = 0, rounds = 0;
  std::string dir = "/tmp", only, content;
};

inline Args parseArgs(int argc, char** argv, int size, int rounds) {
  Args a;
  a.size = size, a.rounds = rounds;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--size" && i + 1 < argc) a.size = std::atoi(argv[++i]);
    else if (arg == "--rounds" && i + 1 < argc) a.rounds = std::atoi(argv[++i]);
    else if (arg == "--only" && i + 1 < argc) a.only = argv[++i];
    else if (arg == "--content" && i + 1 < argc) a.content = argv[++i];
    else a.dir = arg;
  }
  return a;
}

inline double seconds(const std::function<void()>& f) {
  auto t0 = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

inline double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// The flat/synthetic picture: flat blocks (most of it), ramps, noisy patches, an alpha with a
// transparent band on top, a ramp, and an opaque bottom. RGBA 8-bit, top line first. Run-length
// codecs find long runs almost everywhere.
inline std::vector<uint8_t> picture(int n) {
  std::vector<uint8_t> p(size_t(n) * n * 4);
  std::mt19937 rng(42);
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      uint8_t* q = &p[(size_t(y) * n + x) * 4];
      int bx = x / 256, by = y / 256;
      int kind = (bx * 7 + by * 3) % 5;
      if (kind == 0) {  // noise
        uint32_t r = rng();
        q[0] = uint8_t(r), q[1] = uint8_t(r >> 8), q[2] = uint8_t(r >> 16);
      } else if (kind == 1) {  // ramps
        q[0] = uint8_t(x), q[1] = uint8_t(y), q[2] = uint8_t((x + y) / 2);
      } else {  // flat
        q[0] = uint8_t(bx * 16), q[1] = uint8_t(by * 16), q[2] = uint8_t(kind * 60);
      }
      q[3] = y < n / 8 ? 0 : y > n / 2 ? 255 : uint8_t((y - n / 8) * 255 / (n / 2 - n / 8));
    }
  return p;
}

// The render-like picture: smooth gradients in every channel with a little sensor noise (+-2
// everywhere, so runs are rare), a horizontal band of full noise across the middle eighth, and a
// few flat shapes (discs and a rectangle) as a render's mattes and backgrounds leave them; alpha a
// soft ramp. RGBA 8-bit, top line first.
inline std::vector<uint8_t> renderLike(int n) {
  std::vector<uint8_t> p(size_t(n) * n * 4);
  std::mt19937 rng(7);
  auto clamp = [](int v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); };
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      uint8_t* q = &p[(size_t(y) * n + x) * 4];
      const uint32_t r = rng();
      const bool band = y >= n * 7 / 16 && y < n * 9 / 16;
      const int dx = x - n / 4, dy = y - n / 4, ex = x - n * 3 / 4, ey = y - n * 3 / 4;
      const bool disc = dx * dx + dy * dy < n * n / 64 || ex * ex + ey * ey < n * n / 100;
      const bool rect = x > n * 5 / 8 && x < n * 7 / 8 && y > n / 16 && y < n / 4;
      for (int c = 0; c < 3; ++c) {
        const int smooth = (x * (c + 1) + y * (3 - c)) * 255 / (4 * n) + int((r >> (8 * c)) % 5) - 2;
        q[c] = band ? uint8_t(r >> (8 * c)) : disc ? uint8_t(40 + 60 * c) : rect ? uint8_t(200 - 50 * c) : clamp(smooth);
      }
      q[3] = disc || rect ? 255 : clamp(y * 255 / n + int(r >> 24 & 3) - 1);
    }
  return p;
}

// The comparers' two content classes by name ("flat", "render"), and the names to run: CASE
// --content, or both.
inline std::vector<uint8_t> content(const std::string& kind, int n) { return kind == "flat" ? picture(n) : renderLike(n); }
inline std::vector<std::string> contentKinds(const std::string& only) {
  return only.empty() ? std::vector<std::string>{"flat", "render"} : std::vector<std::string>{only};
}

inline double megabytes(const std::string& path) {
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return 0;
  fseek(f, 0, SEEK_END);
  long n = ftell(f);
  fclose(f);
  return n / 1048576.0;
}

// One row of the results table: times, the speedup over the peer, ours in memcpys.
inline void row(const char* what, double ours, double peer, double memcpy) {
  printf("%-40s %9.1f ms %9.1f ms   %5.2fx   ours %5.1fx memcpy\n", what, ours * 1e3, peer * 1e3,
         peer / ours, ours / memcpy);
}

}  // namespace bench
