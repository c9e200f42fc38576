// The bundled plug-ins through vimg convert's path (readPlugin / writePlugin: the plug-in, the IMF
// library and the conversion to vimg's pictures) side by side with OpenImageIO reading and
// writing the same files, one thread each: 4096 x 4096 RGBA 8-bit PNG, JPEG (RGB, quality 90),
// TIFF (ZIP), OpenEXR (half, ZIP) and JPEG 2000 (lossless), decoded and encoded. Those end on the
// same codec libraries: what differs is the overhead around them. Radiance RGBE (RGB floats) and
// PPM are coded by each library itself.
#include <OpenImageIO/imageio.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "compare_common.h"
#include "image_plugins.h"

int main(int argc, char** argv) {
  bench::Args a = bench::parseArgs(argc, argv, 4096, 5);
  const int n = a.size;
  OIIO::attribute("threads", 1);
  OIIO::attribute("exr_threads", 1);
  const std::vector<uint8_t> pic = bench::picture(n);
  struct Format {
    const char* ext;
    int channels;
    const char* oiioCompression;
    std::vector<std::string> settings;
  } formats[] = {{"png", 4, "zip:6", {"compression=6"}},
                 {"jpg", 3, "jpeg:90", {"quality=90"}},
                 {"tif", 4, "zip", {"compression=zip"}},
                 {"exr", 4, "zip", {"compression=zip"}},
                 {"jp2", 4, "", {}},
                 {"hdr", 3, "", {}},
                 {"ppm", 3, "", {}}};
  vimg::ensurePlugins();
  printf("%dx%d RGBA 8-bit (JPEG RGB), vimg's plug-in path vs OpenImageIO, one thread, medians of %d\n", n, n, a.rounds);
  for (const Format& f : formats) {
    if (!a.only.empty() && a.only != f.ext) continue;
    const std::string path = a.dir + "/vora_plugins_bench." + f.ext, ours = a.dir + "/vora_plugins_ours." + f.ext;
    std::vector<uint8_t> rgb;  // the picture with the channels of the format
    for (size_t i = 0; i < pic.size(); ++i)
      if (f.channels == 4 || i % 4 != 3) rgb.push_back(pic[i]);
    OIIO::ImageSpec spec(n, n, f.channels, std::string(f.ext) == "exr" ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::UINT8);
    if (*f.oiioCompression) spec.attribute("compression", f.oiioCompression);
    auto write = [&](const std::string& p) {
      auto out = OIIO::ImageOutput::create(p);
      if (!out || !out->open(p, spec) || !out->write_image(OIIO::TypeDesc::UINT8, rgb.data()) || !out->close())
        fprintf(stderr, "peer write failed\n");
    };
    write(path);
    // vimg's picture of the same pixels: bottom line first, blue, green, red, alpha.
    vimg::Image img;
    img.width = img.height = n, img.alpha = f.channels == 4, img.channels = f.channels;
    img.pixels.resize(size_t(n) * n * 4);
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        const uint8_t* s = &pic[(size_t(y) * n + x) * 4];
        uint8_t* d = &img.pixels[(size_t(n - 1 - y) * n + x) * 4];
        d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = f.channels == 4 ? s[3] : 255;
      }
    vimg::WriteOptions w;
    w.settings = f.settings;
    const char* key = vimg::pluginFor(ours, true, f.ext);
    std::vector<double> rOurs, rPeer, wOurs, wPeer, mem;
    std::vector<uint8_t> copy(img.pixels.size());
    for (int r = 0; r < a.rounds; ++r) {
      rOurs.push_back(bench::seconds([&] {
        vimg::Image got;
        std::string error;
        if (!vimg::readPlugin(path, vimg::pluginFor(path, false), got, error)) fprintf(stderr, "ours: %s\n", error.c_str());
      }));
      rPeer.push_back(bench::seconds([&] {  // its picture made per file, as a converting program makes it
        std::vector<uint8_t> peerPixels(rgb.size());
        auto in = OIIO::ImageInput::open(path);
        if (!in || !in->read_image(0, 0, 0, f.channels, OIIO::TypeDesc::UINT8, peerPixels.data())) fprintf(stderr, "peer read failed\n");
      }));
      wOurs.push_back(bench::seconds([&] {
        std::string error;
        if (!vimg::writePlugin(ours, key, img, w, error)) fprintf(stderr, "ours: %s\n", error.c_str());
      }));
      wPeer.push_back(bench::seconds([&] { write(path + ".peer." + f.ext); }));
      mem.push_back(bench::seconds([&] { memcpy(copy.data(), img.pixels.data(), copy.size()); }));
    }
    const std::string readLabel = std::string(f.ext) + " decode vs OpenImageIO", writeLabel = std::string(f.ext) + " encode vs OpenImageIO";
    bench::row(readLabel.c_str(), bench::median(rOurs), bench::median(rPeer), bench::median(mem));
    bench::row(writeLabel.c_str(), bench::median(wOurs), bench::median(wPeer), bench::median(mem));
    remove(path.c_str()), remove(ours.c_str()), remove((path + ".peer." + f.ext).c_str());
  }
  return 0;
}
