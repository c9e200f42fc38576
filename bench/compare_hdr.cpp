// HDR reading and exposure side by side with OpenImageIO in one run, one thread each: a
// 4096 x 2160 RGBA half EXR (ZIP, a render-like picture) read and exposed to 8 bits (exposure
// -2 stops, gamma 2.2). OpenImageIO reads to float and multiplies, raises to the power and
// converts to 8 bits with ImageBufAlgo, as a pipeline using it would; ours reads the half
// samples and exposes them through a table (readExposedGamma).
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <vora/hdr_readers.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "compare_common.h"

int main(int argc, char** argv) {
  bench::Args a = bench::parseArgs(argc, argv, 4096, 5);
  const int w = 4096, h = 2160;
  const std::string path = a.dir + "/vora_hdr_bench.exr";
  OIIO::attribute("threads", 1);
  OIIO::attribute("exr_threads", 1);
  {
    // Render-like: the shared generator's ramps, flats and noise as light levels up to 16.
    std::vector<uint8_t> pic = bench::picture(w);
    std::vector<float> f(size_t(w) * h * 4);
    for (size_t i = 0; i < f.size(); ++i) f[i] = (i % 4 == 3) ? pic[i] / 255.0f : std::pow(pic[i] / 255.0f, 2.2f) * 16.0f;
    OIIO::ImageSpec spec(w, h, 4, OIIO::TypeDesc::HALF);
    spec.attribute("compression", "zip");
    auto out = OIIO::ImageOutput::create(path);
    if (!out || !out->open(path, spec) || !out->write_image(OIIO::TypeDesc::FLOAT, f.data())) return fprintf(stderr, "write failed\n"), 1;
    out->close();
  }
  registerStandardHdrReaders();
  const float exposure = -2, gamma = 2.2f;
  std::vector<uint8_t> peerOut(size_t(w) * h * 4);
  std::vector<double> tOurs, tPeer, tMem;
  std::vector<uint8_t> src(size_t(w) * h * 4 * 2, 1), dst(src.size());  // the half samples' bytes
  for (int r = 0; r < a.rounds; ++r) {
    TpixelMap px;
    tOurs.push_back(bench::seconds([&] {
      std::unique_ptr<ThdrImageFile> f(ThdrTranslationManager::instance().createAndOpen(path));
      if (!f || readExposedGamma(f.get(), px, exposure, gamma) != 0) fprintf(stderr, "ours failed\n");
    }));
    tPeer.push_back(bench::seconds([&] {
      OIIO::ImageBuf buf(path);
      if (!buf.read(0, 0, true, OIIO::TypeDesc::FLOAT)) fprintf(stderr, "peer failed\n");
      OIIO::ImageBufAlgo::mul(buf, buf, std::exp2(exposure), {}, 1);
      OIIO::ImageBufAlgo::pow(buf, buf, 1.0f / gamma, {}, 1);
      buf.get_pixels(OIIO::ROI::All(), OIIO::TypeDesc::UINT8, peerOut.data());
    }));
    tMem.push_back(bench::seconds([&] { memcpy(dst.data(), src.data(), src.size()); }));
    src[r] = dst[r + 1];
  }
  printf("4096x2160 RGBA half EXR (ZIP) read and exposed to 8 bits (exposure -2, gamma 2.2), one thread, medians of %d\n", a.rounds);
  bench::row("read + expose vs OpenImageIO", bench::median(tOurs), bench::median(tPeer), bench::median(tMem));
  remove(path.c_str());
  return 0;
}
