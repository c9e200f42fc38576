// Side by side with OpenImageIO (issue 7's speed goal): reading a generated 10-layer 2048 x 2048
// RGB 8-bit run-length Photoshop document and decoding every layer (colour and transparency), in
// one process, medians of interleaved rounds. OpenImageIO (one thread) hands out each layer (a
// subimage) interleaved; ours is timed as the channel planes the library decodes, on one thread and
// on every core (decodeAllChannels), and with the same interleaving into RGBA; the results must
// agree byte for byte.
#include <OpenImageIO/imageio.h>
#include <vora/photoshop.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "compare_common.h"
#include "support/psd_builder.h"

namespace {

using namespace bench;
using namespace ktPhotoshop;

// Ten layers of a picture of the content class, each shifted so that no two are the same.
std::vector<uint8_t> makeDocument(int n, int layers, const std::string& kind) {
  std::vector<uint8_t> pic = content(kind, n + 8 * layers);
  const int pn = n + 8 * layers;
  vt::psd::Document d;
  d.width = d.height = uint32_t(n);
  for (int l = 0; l < layers; ++l) {
    vt::psd::Layer layer;
    layer.bottom = layer.right = n;
    layer.name = "layer " + std::to_string(l);
    for (int c : {3, 0, 1, 2}) {  // transparency first, as Photoshop writes
      std::vector<uint8_t> plane(size_t(n) * n);
      for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
          plane[size_t(y) * n + x] = pic[(size_t(y + 8 * l) * pn + x + 8 * l) * 4 + c];
      layer.channels.push_back(vt::psd::rleChannel(int16_t(c == 3 ? -1 : c), n, n, plane));
    }
    d.layers.push_back(std::move(layer));
  }
  d.compositeCompression = 1;  // a small stored composite: flat rows
  std::vector<uint8_t> flat(size_t(n), 128), packed(size_t(n) * 2), table, rows;
  size_t len = codec::packBitsRow(flat.data(), flat.size(), packed.data());
  for (int r = 0; r < 3 * n; ++r)
    vt::be16(table, uint32_t(len)),
        rows.insert(rows.end(), packed.begin(), packed.begin() + long(len));
  d.composite = table;
  vt::psd::append(d.composite, rows);
  return vt::psd::build(d);
}

// Ours: structure, channel data, every channel decoded; interleave: also into RGBA buffers.
void oursRead(const std::string& path, std::vector<std::vector<uint8_t>>* rgba, int threads = 0) {
  TphotoshopFile* f = nullptr;
  if (openPsdFile(path.c_str(), f, true) != kSuccess) exit(1);
  std::unique_ptr<TpsdFile> doc(static_cast<TpsdFile*>(f));
  if (doc->readAllChannelData() != 0) {
    fprintf(stderr, "our read failed: %s\n", doc->lastReadError().asChar());
    exit(1);
  }
  doc->decodeAllChannels(threads);  // 0: every core
  if (rgba) rgba->resize(doc->layers().size());
  for (size_t i = 0; i < doc->layers().size(); ++i) {
    TpixelData16& px = doc->layers()[i]->pixels;
    const uint8_t* p[4] = {px.getRedPixelPtr(), px.getGreenPixelPtr(), px.getBluePixelPtr(),
                           px.getTransparencyPixelPtr()};
    if (!rgba) continue;
    size_t count = px.size(RED);
    std::vector<uint8_t>& out = (*rgba)[i];
    out.resize(count * 4);
    for (size_t k = 0; k < count; ++k) {  // one 32-bit store per pixel (vectorises)
      uint32_t v = uint32_t(p[0][k]) | uint32_t(p[1][k]) << 8 | uint32_t(p[2][k]) << 16 |
                   uint32_t(p[3][k]) << 24;
      memcpy(&out[4 * k], &v, 4);  // little-endian: red first
    }
  }
}

void peerRead(const std::string& path, std::vector<std::vector<uint8_t>>& rgba) {
  OIIO::ImageSpec config;  // the stored values, as ours: no premultiplication by alpha
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    fprintf(stderr, "OIIO open failed: %s\n", OIIO::geterror().c_str());
    exit(1);
  }
  size_t count = 0;
  for (int s = 1; in->seek_subimage(s, 0); ++s, ++count) {  // subimage 0 is the composite
    const OIIO::ImageSpec& spec = in->spec();
    if (rgba.size() <= count) rgba.emplace_back();
    rgba[count].resize(size_t(spec.width) * spec.height *
                       4);  // buffers kept between rounds, as ours
    if (!in->read_image(s, 0, 0, 4, OIIO::TypeDesc::UINT8, rgba[count].data())) {
      fprintf(stderr, "OIIO read failed: %s\n", in->geterror().c_str());
      exit(1);
    }
  }
  rgba.resize(count);
  in->close();
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv, 2048, 7);
  const int n = args.size, rounds = args.rounds;
  const int layers = 10;
  const std::string& dir = args.dir;
  const std::string path = dir + "/bench_layers_rle.psd";
  for (const std::string& kind : contentKinds(args.content)) {
    {
      std::vector<uint8_t> doc = makeDocument(n, layers, kind);
      FILE* out = fopen(path.c_str(), "wb");
      if (!out || fwrite(doc.data(), 1, doc.size(), out) != doc.size() || fclose(out) != 0)
        return 1;
    }
    std::vector<std::vector<uint8_t>> a, b;
    oursRead(path, &a);
    peerRead(path, b);
    if (a.size() != size_t(layers) || a != b) {
      fprintf(stderr, "the readers disagree (%zu and %zu layers)\n", a.size(), b.size());
      for (size_t l = 0; l < a.size() && l < b.size(); ++l)
        for (size_t k = 0; k < a[l].size() && k < b[l].size(); ++k)
          if (a[l][k] != b[l][k]) {
            fprintf(stderr, "layer %zu byte %zu (pixel %zu channel %zu): ours %u, OIIO %u\n", l, k,
                    k / 4, k % 4, unsigned(a[l][k]), unsigned(b[l][k]));
            break;
          }
      return 1;
    }
    const size_t bytes = size_t(n) * n * 4 * layers;
    std::vector<uint8_t> src(bytes, 1), dst(bytes);
    std::vector<double> tMem, tPlanes, tOne, tRgba, tPeer;
    for (int r = 0; r < rounds; ++r) {
      tMem.push_back(seconds([&] { memcpy(dst.data(), src.data(), bytes); }));
      tPlanes.push_back(seconds([&] { oursRead(path, nullptr); }));
      tOne.push_back(seconds([&] { oursRead(path, nullptr, 1); }));
      tRgba.push_back(seconds([&] { oursRead(path, &a); }));
      tPeer.push_back(seconds([&] { peerRead(path, b); }));
    }
    double mem = median(tMem);
    printf(
        "%s: %d layers of %d x %d RGB + transparency, 8-bit run-length, %zu MB of pixels, file "
        "%.1f MB; "
        "medians of %d rounds\n",
        kind.c_str(), layers, n, n, bytes >> 20, megabytes(path), rounds);
    printf("%-40s %12s %12s   %6s\n", "", "voraimage", "OpenImageIO", "speedup");
    row("read + decode every layer, one thread", median(tOne), median(tPeer), mem);
    row("read + decode every layer (planes)", median(tPlanes), median(tPeer), mem);
    row("read + decode + interleave RGBA", median(tRgba), median(tPeer), mem);
    printf("%-40s %9.1f ms  (%.1f GB/s)\n", "memcpy of the pixels", mem * 1e3, bytes / mem / 1e9);
  }
  return 0;
}
