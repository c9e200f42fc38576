// Side by side: a 4096 x 4096 RGBA 8-bit picture reduced to 1024 x 1024 with a lanczos3 filter,
// one thread each, in memory: the library's zoom, libvips' vips_resize and OpenImageIO's
// ImageBufAlgo::resize; medians of interleaved rounds; memcpy of the source as the yardstick.
#include <OpenImageIO/imagebufalgo.h>
#include <vips/vips.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include <vora/ilib.h>

#include "compare_common.h"

namespace {

using namespace bench;

struct Lines {
  const uint8_t* base;
  size_t stride;
  int next;
};

int line(void* s, void** colour, void** depth) {
  Lines* l = static_cast<Lines*>(s);
  *colour = const_cast<uint8_t*>(l->base + l->stride * size_t(l->next++));
  *depth = nullptr;
  return 0;
}

void ours(ILzoom* z, const std::vector<uint8_t>& src, int n, std::vector<uint8_t>& dst, int m) {
  Lines l{src.data(), size_t(n) * 4, 0};
  if (ILbindzoom(z, &l, line, IL_ZOOM_8, m, m, n, n)) exit(1);
  for (int y = 0; y < m; ++y) ILreadzoom(z, dst.data() + size_t(y) * m * 4, nullptr);
}

void viaVips(const std::vector<uint8_t>& src, int n, std::vector<uint8_t>& dst, int m) {
  VipsImage* in = vips_image_new_from_memory(src.data(), src.size(), n, n, 4, VIPS_FORMAT_UCHAR);
  VipsImage* out = nullptr;
  if (vips_resize(in, &out, double(m) / n, "kernel", VIPS_KERNEL_LANCZOS3, NULL)) exit(1);
  size_t size = 0;
  void* mem = vips_image_write_to_memory(out, &size);
  if (size == dst.size()) memcpy(dst.data(), mem, size);
  g_free(mem);
  g_object_unref(out);
  g_object_unref(in);
}

void viaOiio(const std::vector<uint8_t>& src, int n, std::vector<uint8_t>& dst, int m) {
  OIIO::ImageBuf in(OIIO::ImageSpec(n, n, 4, OIIO::TypeDesc::UINT8), const_cast<uint8_t*>(src.data()));
  OIIO::ImageBuf out(OIIO::ImageSpec(m, m, 4, OIIO::TypeDesc::UINT8), dst.data());
  if (!OIIO::ImageBufAlgo::resize(out, in, "lanczos3", 0, {}, 1)) exit(1);
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double se = 0;
  for (size_t i = 0; i < a.size(); ++i) se += double(a[i] - b[i]) * (a[i] - b[i]);
  return se == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(a.size()) / se);
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 4096, 7);
  const int n = args.size, m = n / 4;
  if (VIPS_INIT(argv[0])) return 1;
  vips_concurrency_set(1);
  std::vector<uint8_t> src = picture(n), copy(src.size());
  std::vector<uint8_t> a(size_t(m) * m * 4), b(a.size()), c(a.size());
  ILzoom* z = ILnewzoom("lanczos3");
  std::vector<double> tMem, tOurs, tVips, tOiio;
  for (int r = 0; r < args.rounds; ++r) {
    tMem.push_back(seconds([&] { memcpy(copy.data(), src.data(), src.size()); }));
    tOurs.push_back(seconds([&] { ours(z, src, n, a, m); }));
    tVips.push_back(seconds([&] { viaVips(src, n, b, m); }));
    tOiio.push_back(seconds([&] { viaOiio(src, n, c, m); }));
  }
  printf("%dx%d RGBA 8-bit -> %dx%d, lanczos3, one thread, medians of %d rounds\n", n, n, m, m, args.rounds);
  printf("%-40s %12s %12s %8s\n", "", "ours", "peer", "speedup");
  row("zoom vs vips_resize", median(tOurs), median(tVips), median(tMem));
  row("zoom vs OIIO ImageBufAlgo::resize", median(tOurs), median(tOiio), median(tMem));
  printf("agreement: PSNR %.1f dB with vips, %.1f dB with OpenImageIO\n", psnr(a, b), psnr(a, c));
  ILdelzoom(z);
  vips_shutdown();
  return 0;
}
