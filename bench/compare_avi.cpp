// AVI writing side by side with ffmpeg on the same frames in one run: 300 frames of 1920 x 1080
// (ten render-like frames, repeated) written uncompressed at 24 bits and as Motion JPEG at the same
// quantiser. Both read the frames from one raw file; each tool uses the threads it chooses.
#include <vora/movie.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "compare_common.h"

namespace {

constexpr int kW = 1920, kH = 1080, kDistinct = 10, kFrames = 300;

std::vector<uint8_t> readAll(const std::string& path) {
  std::vector<uint8_t> b;
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return b;
  fseek(f, 0, SEEK_END);
  b.resize(size_t(ftell(f)));
  fseek(f, 0, SEEK_SET);
  if (fread(b.data(), 1, b.size(), f) != b.size()) b.clear();
  fclose(f);
  return b;
}

bool writeOurs(const std::string& raw, const std::string& out, const char* compressor, int quality) {
  std::vector<uint8_t> frames = readAll(raw);
  const size_t frameBytes = size_t(kW) * kH * 4;
  TaviMovie m;
  if (frames.size() != frameBytes * kDistinct || !m.create(out, 25) || !m.setCompression(compressor, quality) ||
      m.createVideoTrack(kW, kH) != 1)
    return false;
  for (int i = 0; i < kFrames; ++i)
    if (!m.writeFrame(frames.data() + frameBytes * (i % kDistinct))) return false;
  return m.closeTrack() && m.close();
}

double timeCommand(const std::string& cmd) {
  return bench::seconds([&] {
    if (system(cmd.c_str()) != 0) fprintf(stderr, "failed: %s\n", cmd.c_str());
  });
}

}  // namespace

int main(int argc, char** argv) {
  bench::Args a = bench::parseArgs(argc, argv, kW, 3);
  const std::string raw = a.dir + "/vora_avi_frames.bgra", ours = a.dir + "/vora_avi_ours.avi",
                    peer = a.dir + "/vora_avi_ffmpeg.avi";
  {
    std::vector<uint8_t> pic = bench::picture(kW);  // rows 0 .. 1079, shifted a little each frame
    FILE* f = fopen(raw.c_str(), "wb");
    for (int n = 0; n < kDistinct; ++n) fwrite(pic.data() + size_t(n) * 16 * kW * 4, 1, size_t(kW) * kH * 4, f);
    fclose(f);
  }
  const std::string input = "ffmpeg -y -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -r 25 -stream_loop " +
                            std::to_string(kFrames / kDistinct - 1) + " -i '" + raw + "' ";
  const int quality = 90;  // the quantiser 31 - 90 * 30 / 100 = 4
  std::vector<double> oursRaw, peerRaw, oursJpeg, peerJpeg, mem;
  std::vector<uint8_t> src(size_t(kW) * kH * 4, 1), dst(src.size());
  for (int r = 0; r < a.rounds; ++r) {
    oursRaw.push_back(bench::seconds([&] {
      if (!writeOurs(raw, ours, "none", 0)) fprintf(stderr, "ours failed\n");
    }));
    peerRaw.push_back(timeCommand(input + "-c:v rawvideo -pix_fmt bgr24 '" + peer + "'"));
    oursJpeg.push_back(bench::seconds([&] {
      if (!writeOurs(raw, ours, "mjpeg", quality)) fprintf(stderr, "ours failed\n");
    }));
    peerJpeg.push_back(timeCommand(input + "-c:v mjpeg -q:v 4 '" + peer + "'"));
    mem.push_back(bench::seconds([&] {
      for (int i = 0; i < kFrames; ++i) memcpy(dst.data(), src.data(), src.size()), src[i] = dst[i + 1];
    }));
  }
  printf("%d frames of %dx%d BGRA to AVI, medians of %d (peer: ffmpeg)\n", kFrames, kW, kH, a.rounds);
  bench::row("uncompressed 24-bit vs ffmpeg rawvideo", bench::median(oursRaw), bench::median(peerRaw), bench::median(mem));
  bench::row("Motion JPEG q4 vs ffmpeg mjpeg", bench::median(oursJpeg), bench::median(peerJpeg), bench::median(mem));
  remove(raw.c_str()), remove(ours.c_str()), remove(peer.c_str());
  return 0;
}
