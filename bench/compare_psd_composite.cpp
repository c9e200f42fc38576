// Side by side: compositing a generated 10-layer 2048 x 2048 RGB 8-bit document (normal,
// multiply, screen, overlay, user masks) from file to pixels: the library in process, ImageMagick's
// `convert doc.psd -flatten`, and psd-tools' composite (timed inside Python, start-up excluded).
// Medians of interleaved rounds; memcpy of the layers' samples as the yardstick.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/photoshop.h>

#include "compare_common.h"

using namespace ktPhotoshop;
using namespace bench;

namespace {

// A layer of the picture shifted by k, with transparency, as the document holds it.
TpixelData16 layerPixels(const std::vector<uint8_t>& pic, int n, int k) {
  TpixelData16 p(k8Bits, n, n, true);
  const PHOTOSHOP_CHANNEL ids[4] = {RED, GREEN, BLUE, TRANSPARENCY};
  for (int c = 0; c < 4; ++c) {
    uint8_t* d = p.getChannelPixPtr(ids[c]);
    for (size_t i = 0; i < size_t(n) * n; ++i) d[i] = pic[((i + size_t(k) * 977) % (size_t(n) * n)) * 4 + c];
  }
  if (k % 3 == 2) {  // a user mask: a horizontal ramp
    p.addChannel(USER_MASK, n, n);
    uint8_t* m = p.getChannelPixPtr(USER_MASK);
    for (size_t i = 0; i < size_t(n) * n; ++i) m[i] = uint8_t((i % n) * 255 / (n - 1));
  }
  return p;
}

double timeCommand(const std::string& cmd) {
  return seconds([&] {
    if (system(cmd.c_str()) != 0) {
      fprintf(stderr, "failed: %s\n", cmd.c_str());
      exit(1);
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 2048, 5);
  const int n = args.size;
  const std::string path = args.dir + "/bench_composite.psd";
  std::vector<uint8_t> pic = picture(n);
  {
    TpsdFile doc;
    unsigned short w = uint16_t(n), h = uint16_t(n);
    doc.create(path.c_str(), w, h);
    const uint32_t keys[4] = {fourCC("norm"), fourCC("mul "), fourCC("scrn"), fourCC("over")};
    for (int k = 0; k < 10; ++k) {
      TpsdLayer& l = doc.addLayer(("layer " + std::to_string(k)).c_str(), 0, 0, layerPixels(pic, n, k));
      l.blendKey = keys[k % 4];
      if (l.pixels.channel(USER_MASK)) l.mask.right = n, l.mask.bottom = n, l.mask.defaultColor = 255;
    }
    if (doc.save(TfilePath(std::string()), RLE) != 0) {
      fprintf(stderr, "cannot write %s: %s\n", path.c_str(), doc.lastReadError().str().c_str());
      return 1;
    }
  }
  const std::string pyScript = args.dir + "/bench_psdtools.py";
  FILE* py = fopen(pyScript.c_str(), "w");
  fprintf(py,
          "import sys, time\nfrom psd_tools import PSDImage\nt = time.perf_counter()\n"
          "PSDImage.open(sys.argv[1]).composite(force=True, ignore_preview=True)\n"
          "print(time.perf_counter() - t)\n");
  fclose(py);
  std::vector<uint8_t> src(size_t(n) * n * 4 * 10), dst(src.size());
  std::vector<double> tMem, tOurs, tIm, tPt;
  for (int r = 0; r < args.rounds; ++r) {
    tMem.push_back(seconds([&] { memcpy(dst.data(), src.data(), src.size()); }));
    tOurs.push_back(seconds([&] {
      TpsdFile doc;
      doc.open(path.c_str(), true);
      TrgbaData out;
      if (doc.readFlattenedImage(out, true) != 0) exit(1);
    }));
    tIm.push_back(timeCommand("/usr/bin/convert '" + path + "' -flatten null: 2>/dev/null"));
    std::string cmd = "/usr/bin/python3 " + pyScript + " '" + path + "'";
    FILE* p = popen(cmd.c_str(), "r");
    double t = 0;
    if (!p || fscanf(p, "%lf", &t) != 1) return 1;
    pclose(p);
    tPt.push_back(t);
  }
  printf("10 layers of %dx%d RGB 8-bit (normal, multiply, screen, overlay, 3 masks), file to pixels, medians of %d\n",
         n, n, args.rounds);
  printf("%-40s %12s %12s %8s\n", "", "ours", "peer", "speedup");
  row("composite vs convert -flatten", median(tOurs), median(tIm), median(tMem));
  row("composite vs psd-tools composite", median(tOurs), median(tPt), median(tMem));
  return 0;
}
