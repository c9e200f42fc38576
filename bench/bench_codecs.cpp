// Codec kernels: one 64 x 64 RGBA 8-bit tile packed and unpacked by each codec, with memcpy of
// the same pixels as the yardstick. Throughput is in bytes of pixels.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include <vora/ilib.h>

namespace {

constexpr uint32_t kSide = 64;

// A tile of the kinds a render holds: flat areas, a ramp, some noise.
std::vector<unsigned char> tile() {
  std::vector<unsigned char> p(kSide * kSide * 4);
  std::mt19937 rng(1);
  for (uint32_t y = 0; y < kSide; ++y)
    for (uint32_t x = 0; x < kSide; ++x) {
      unsigned char* q = &p[(y * kSide + x) * 4];
      bool noisy = (x / 16 + y / 16) % 4 == 0;
      q[0] = noisy ? uint8_t(rng()) : uint8_t(x / 8);
      q[1] = noisy ? uint8_t(rng()) : uint8_t(y / 8);
      q[2] = uint8_t(x < 32 ? 200 : x * 4);
      q[3] = y < 8 ? 0 : 255;
    }
  return p;
}

ILpackdesc desc() {
  ILpackdesc d{};
  d.width = d.rows = kSide;
  d.bytes = 1;
  d.mask = 15;
  d.epp = 4;
  return d;
}

void packBench(benchmark::State& state, ILpacker pack) {
  std::vector<unsigned char> px = tile(), out(kSide * kSide * 4);
  ILpackdesc d = desc();
  for (auto _ : state) {
    uint32_t n = pack(&d, px.data(), out.data());
    benchmark::DoNotOptimize(n);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(px.size()));
  state.counters["packed_bytes"] = double(pack(&d, px.data(), out.data()));
}

void unpackBench(benchmark::State& state, ILpacker pack, ILunpacker unpack) {
  std::vector<unsigned char> px = tile(), packed(kSide * kSide * 4), back(px.size());
  ILpackdesc d = desc();
  d.packed = pack(&d, px.data(), packed.data());
  for (auto _ : state) {
    uint32_t n = unpack(&d, packed.data(), back.data());
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(px.size()));
}

void BM_MemcpyTile(benchmark::State& state) {
  std::vector<unsigned char> px = tile(), dst(px.size());
  for (auto _ : state) {
    memcpy(dst.data(), px.data(), px.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(px.size()));
}

}  // namespace

BENCHMARK(BM_MemcpyTile);
BENCHMARK_CAPTURE(unpackBench, rle, ILpackrle, ILunpackrle);
BENCHMARK_CAPTURE(unpackBench, qrl, ILpackqrl, ILunpackqrl);
BENCHMARK_CAPTURE(unpackBench, qr4, ILpackqr4, ILunpackqr4);
BENCHMARK_CAPTURE(unpackBench, none, ILpack, ILunpack);
BENCHMARK_CAPTURE(packBench, rle, ILpackrle);
BENCHMARK_CAPTURE(packBench, qrl, ILpackqrl);
BENCHMARK_CAPTURE(packBench, qr4, ILpackqr4);
BENCHMARK_MAIN();
