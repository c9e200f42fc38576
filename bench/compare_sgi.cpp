// Side by side with OpenImageIO (issue 6's speed goal): reading and writing an RLE SGI image of
// the same generated 4096 x 4096 RGBA 8-bit picture, in one process, medians of interleaved rounds.
// Both sides go between the file and an interleaved RGBA 8-bit buffer. OpenImageIO 2.4 writes SGI
// verbatim only, so its write is timed in that form (and ours both ways).
#include <vora/sgi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "compare_common.h"
#include "oiio_peer.h"

namespace {

using namespace bench;

// Ours: the whole picture through putpixels/getpixels, which take the interleaved pixels (top row
// first) and go a row of bytes per channel at a time through the interleaving kernels.
void oursWrite(const std::string& path, const std::vector<uint8_t>& px, int n, bool rle) {
  IMAGE* img = iopen(path.c_str(), "w", rle ? 0x0101 : 0x0001, 3, unsigned(n), unsigned(n), 4);
  if (!img || putpixels(img, px.data(), size_t(n) * 4) != 0 || iclose(img) != 0) {
    fprintf(stderr, "our SGI write failed\n");
    exit(1);
  }
}

void oursRead(const std::string& path, std::vector<uint8_t>& px, int n) {
  IMAGE* img = iopen(path.c_str(), "r", 0, 0, 0, 0, 0);
  if (!img || getpixels(img, px.data(), size_t(n) * 4) != 0) {
    fprintf(stderr, "our SGI read failed\n");
    exit(1);
  }
  iclose(img);
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 4096, 7);
  const int n = args.size, rounds = args.rounds;
  const std::string& dir = args.dir;
  for (const std::string& kind : contentKinds(args.content)) {
    std::vector<uint8_t> px = content(kind, n), a(px.size()), b(px.size()), dst(px.size());
    std::string rle = dir + "/bench_ours_rle.sgi", verb = dir + "/bench_ours_verbatim.sgi",
                peer = dir + "/bench_oiio.sgi";
    std::vector<double> tMem, tOwR, tOwV, tPw, tOr, tPr, tOrP, tPrP, tOwRNew, tPwNew;
    for (int r = 0; r < rounds; ++r) {
      tMem.push_back(seconds([&] { memcpy(dst.data(), px.data(), px.size()); }));
      tOwR.push_back(seconds([&] { oursWrite(rle, px, n, true); }));
      tOwV.push_back(seconds([&] { oursWrite(verb, px, n, false); }));
      tPw.push_back(seconds([&] { peerWrite(peer, px, n, nullptr); }));
      // The same into files that do not exist yet (the rounds above write over the last round's).
      remove(rle.c_str()), remove(peer.c_str());
      tOwRNew.push_back(seconds([&] { oursWrite(rle, px, n, true); }));
      tPwNew.push_back(seconds([&] { peerWrite(peer, px, n, nullptr); }));
      tOr.push_back(seconds([&] { oursRead(rle, a, n); }));
      tPr.push_back(seconds([&] { peerRead(rle, b); }));
      tOrP.push_back(seconds([&] { oursRead(peer, a, n); }));
      tPrP.push_back(seconds([&] { peerRead(peer, b); }));
    }
    oursRead(rle, a, n);
    peerRead(rle, b);
    if (a != px || b != px) {
      fprintf(stderr, "the readers disagree with the picture\n");
      return 1;
    }
    double mem = median(tMem);
    printf(
        "%s: %d x %d RGBA 8-bit, %zu MB of pixels; files: our RLE %.1f MB, our verbatim %.1f MB, "
        "OpenImageIO's (verbatim) %.1f MB; medians of %d rounds\n",
        kind.c_str(), n, n, px.size() >> 20, megabytes(rle), megabytes(verb), megabytes(peer),
        rounds);
    printf("%-40s %12s %12s   %6s\n", "", "voraimage", "OpenImageIO", "speedup");
    row("write: ours RLE, OIIO verbatim (its only)", median(tOwR), median(tPw), mem);
    row("write verbatim, both", median(tOwV), median(tPw), mem);
    row("write new files: ours RLE, OIIO verbatim", median(tOwRNew), median(tPwNew), mem);
    row("read our RLE file", median(tOr), median(tPr), mem);
    row("read OIIO's verbatim file", median(tOrP), median(tPrP), mem);
    printf("%-40s %9.1f ms  (%.1f GB/s)\n", "memcpy of the pixels", mem * 1e3,
           px.size() / mem / 1e9);
  }
  return 0;
}
