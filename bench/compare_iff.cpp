// Side by side with OpenImageIO (issue 3's speed goal): reading a whole RLE IFF image into memory
// and writing it, on the same generated RGBA 8-bit image, in one process; medians of interleaved
// rounds; memcpy of the same pixels as the memory-bandwidth yardstick.
#include <vora/ilib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "compare_common.h"
#include "oiio_peer.h"

namespace {

using namespace bench;

// Ours: bottom line first, blue green red alpha.
std::vector<uint8_t> toIl(const std::vector<uint8_t>& rgba, int n) {
  std::vector<uint8_t> b(rgba.size());
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const uint8_t* s = &rgba[(size_t(y) * n + x) * 4];
      uint8_t* d = &b[(size_t(n - 1 - y) * n + x) * 4];
      d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = s[3];
    }
  return b;
}

void oursWrite(const std::string& path, const std::vector<uint8_t>& px, int n) {
  ILimage* img = ILopen(path.c_str(), "w");
  ILsetsize(img, n, n);
  ILsetcompress(img, IL_RLE);
  if (ILsave(img, px.data(), nullptr, 0) || ILclose(img)) {
    fprintf(stderr, "our write failed: %s\n", FLstrerror(flerrno));
    exit(1);
  }
}

void oursRead(const std::string& path, std::vector<uint8_t>& px) {
  ILimage* img = ILopen(path.c_str(), "r");
  if (!img || ILload(img, px.data(), nullptr)) {
    fprintf(stderr, "our read failed: %s\n", FLstrerror(flerrno));
    exit(1);
  }
  ILclose(img);
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 4096, 7);
  const int n = args.size, rounds = args.rounds;
  const std::string& dir = args.dir;
  for (const std::string& kind : contentKinds(args.content)) {
    std::vector<uint8_t> rgba = content(kind, n), il = toIl(rgba, n);
    std::string ours = dir + "/bench_ours.iff", peer = dir + "/bench_oiio.iff";
    std::vector<double> tMem, tOw, tPw, tOrO, tOrP, tPrO, tPrP;
    std::vector<uint8_t> dst(rgba.size()), a(rgba.size()), b(rgba.size());
    for (int r = 0; r < rounds; ++r) {
      tMem.push_back(seconds([&] { memcpy(dst.data(), il.data(), il.size()); }));
      tOw.push_back(seconds([&] { oursWrite(ours, il, n); }));
      tPw.push_back(seconds([&] { peerWrite(peer, rgba, n, "rle"); }));
      tOrO.push_back(seconds([&] { oursRead(ours, a); }));
      tPrO.push_back(seconds([&] { peerRead(ours, b); }));
      tOrP.push_back(seconds([&] { oursRead(peer, a); }));
      tPrP.push_back(seconds([&] { peerRead(peer, b); }));
    }
    // Both readers must agree on both files.
    oursRead(peer, a);
    peerRead(peer, b);
    if (toIl(b, n) != a) {
      fprintf(stderr, "readers disagree on %s\n", peer.c_str());
      return 1;
    }
    oursRead(ours, a);
    if (a != il) {
      fprintf(stderr, "our round trip differs\n");
      return 1;
    }
    double mem = median(tMem);
    printf(
        "%s: %d x %d RGBA 8-bit, %zu MB of pixels; RLE files: ours %.1f MB, OpenImageIO %.1f MB; "
        "medians of %d rounds\n",
        kind.c_str(), n, n, il.size() >> 20, megabytes(ours), megabytes(peer), rounds);
    printf("%-40s %12s %12s   %6s\n", "", "voraimage", "OpenImageIO", "speedup");
    row("write RLE", median(tOw), median(tPw), mem);
    row("read RLE (file written by us)", median(tOrO), median(tPrO), mem);
    row("read RLE (file written by OIIO)", median(tOrP), median(tPrP), mem);
    printf("%-40s %9.1f ms  (%.1f GB/s)\n", "memcpy of the pixels", mem * 1e3,
           il.size() / mem / 1e9);
  }
  return 0;
}
