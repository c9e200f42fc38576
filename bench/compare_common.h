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

// The comparers' command line: [--size N] [--rounds N] [--only CASE] [DIR] (DIR: where the files
// go; CASE: one of the comparer's cases, by its name).
struct Args {
  int size = 0, rounds = 0;
  std::string dir = "/tmp", only;
};

inline Args parseArgs(int argc, char** argv, int size, int rounds) {
  Args a;
  a.size = size, a.rounds = rounds;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--size" && i + 1 < argc) a.size = std::atoi(argv[++i]);
    else if (arg == "--rounds" && i + 1 < argc) a.rounds = std::atoi(argv[++i]);
    else if (arg == "--only" && i + 1 < argc) a.only = argv[++i];
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

// A render-like picture: flat regions, smooth ramps, noisy patches, an alpha with a transparent
// band on top, a ramp, and an opaque bottom. RGBA 8-bit, top line first.
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
