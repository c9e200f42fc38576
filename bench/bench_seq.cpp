// vimg seq: grouping a directory listing of 100,000 names of 20 sequences (with gaps,
// in directory order, not sorted) into sequences, as vimg seq does after reading the directory.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "../tools/vimg/seq_group.h"

namespace {

std::vector<std::string> listing() {
  static const char* kinds[] = {"%s.%04d.exr", "%s.%d.iff", "%s_%04d.tif", "%s%04d.png"};
  std::vector<std::string> names;
  char buf[128];
  for (int s = 0; s < 20; ++s) {
    std::string base = "shot" + std::to_string(s) + "_v" + std::to_string(s % 3) + "_comp";
    for (int f = 1; names.size() < size_t(s + 1) * 5000; ++f) {
      if (f % 97 == 0) continue;  // gaps
      snprintf(buf, sizeof buf, kinds[s % 4], base.c_str(), f);
      names.push_back(std::string("/shots/seq") + std::to_string(s % 5) + "/" + buf);
    }
  }
  std::shuffle(names.begin(), names.end(), std::mt19937(7));
  return names;
}

void BM_GroupListing(benchmark::State& state) {
  std::vector<std::string> names = listing();
  size_t sequences = 0;
  for (auto _ : state) {
    vimg::Grouping g = vimg::groupSequences(names, vimg::defaultSequenceFormats());
    sequences = g.sequences.size();
    benchmark::DoNotOptimize(g);
  }
  state.counters["names"] = double(names.size());
  state.counters["sequences"] = double(sequences);
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(names.size()));
}

}  // namespace

BENCHMARK(BM_GroupListing)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_MAIN();
