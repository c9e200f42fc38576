// Side by side with OpenColorIO (issue 4's speed goal): a 33^3 and a 65^3 .cube applied to the same
// 4096 x 4096 float RGBA pixels, OCIO's CPU processor with a FileTransform of the same file (linear
// interpolation), against ccLutApply on one thread and on every core; medians of interleaved
// rounds.
#include <OpenColorIO/OpenColorIO.h>
#include <vora/colorlut.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "compare_common.h"

namespace OCIO = OCIO_NAMESPACE;
using namespace bench;

namespace {

// A look worth a cube: saturation, a contrast curve and a hue twist.
void writeCube(const std::string& path, int n) {
  std::ofstream f(path);
  f << "TITLE \"bench\"\nLUT_3D_SIZE " << n << "\n";
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        float v[3] = {float(r) / (n - 1), float(g) / (n - 1), float(b) / (n - 1)};
        float y = 0.2126f * v[0] + 0.7152f * v[1] + 0.0722f * v[2];
        float o[3];
        for (int c = 0; c < 3; ++c) {
          float s = y + 1.3f * (v[c] - y);
          o[c] = std::pow(std::max(0.0f, s), 0.9f + 0.05f * c);
        }
        f << o[0] << " " << o[2] * 0.9f + o[1] * 0.1f << " " << o[1] << "\n";
      }
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 4096, 5);
  const int n = args.size, rounds = args.rounds;
  const std::string& dir = args.dir;
  const size_t count = size_t(n) * n;
  for (const std::string& kind : contentKinds(args.content)) {
    // The content class's picture as floats in [0, 1] (alpha 1).
    const std::vector<uint8_t> pic = content(kind, n);
    std::vector<float> src(count * 4);
    for (size_t i = 0; i < src.size(); ++i) src[i] = i % 4 == 3 ? 1.0f : float(pic[i]) / 255.0f;
    printf("%s: %d x %d float RGBA (%zu MB); medians of %d rounds\n", kind.c_str(), n, n,
           src.size() * 4 >> 20, rounds);
    printf("%-40s %12s %12s   %6s\n", "", "voraimage", "OpenColorIO", "speedup");
    for (int side : {33, 65}) {
      std::string path = dir + "/bench_" + std::to_string(side) + ".cube";
      writeCube(path, side);
      TfileStream s(path.c_str());
      std::unique_ptr<TccLut> lut(TccLutFile::read(s));
      if (!lut) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
      }
      auto config = OCIO::Config::CreateRaw();
      auto t = OCIO::FileTransform::Create();
      t->setSrc(path.c_str());
      t->setInterpolation(OCIO::INTERP_LINEAR);
      auto cpu = config->getProcessor(t)->getOptimizedCPUProcessor(
          OCIO::BIT_DEPTH_F32, OCIO::BIT_DEPTH_F32, OCIO::OPTIMIZATION_DEFAULT);
      std::vector<float> a(src.size()), b(src.size()), m(src.size());
      std::vector<double> tOne, tAll, tPeer, tMem;
      for (int r = 0; r < rounds; ++r) {
        a = src;
        tOne.push_back(seconds([&] { ccLutApply(*lut, nullptr, a.data(), count, 4, 1); }));
        a = src;
        tAll.push_back(seconds([&] { ccLutApply(*lut, nullptr, a.data(), count, 4, 0); }));
        b = src;
        tPeer.push_back(seconds([&] {
          OCIO::PackedImageDesc img(b.data(), n, n, 4);
          cpu->apply(img);
        }));
        tMem.push_back(seconds([&] { memcpy(m.data(), src.data(), src.size() * 4); }));
      }
      double worst = 0;
      for (size_t i = 0; i < a.size(); ++i)
        if ((i & 3) != 3) worst = std::max(worst, double(std::fabs(a[i] - b[i])));
      char what[96];
      snprintf(what, sizeof what, "%d^3 cube, one thread", side);
      row(what, median(tOne), median(tPeer), median(tMem));
      snprintf(what, sizeof what, "%d^3 cube, every core", side);
      row(what, median(tAll), median(tPeer), median(tMem));
      printf("%-40s largest difference from OpenColorIO: %.3g\n", "", worst);
    }
  }
  return 0;
}
