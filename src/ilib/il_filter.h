// Zoom filters: a kernel f(x) on -radius .. radius kept as 512 samples of its running integral,
// loaded from a filter file or from the built-in kernels.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vora::il {

struct Filter {
  static constexpr int kSamples = 512;
  std::string name;
  std::string origin;  // the file it came from, or "built-in"
  float radius = 0;
  float start = 0;      // -radius
  bool noclip = false;  // taps past the image edge read the edge pixel instead of being dropped
  float integral[kSamples] = {};

  // The running integral at t (linear between samples; 0 below -radius, the total above).
  double at(double t) const;
};

// Radii a filter may declare: wider kernels would only cost taps (and time) without changing
// the result measurably.
constexpr double kMinRadius = 0.01;
constexpr double kMaxRadius = 64;

// Loads a filter by name (see ILnewzoom); null with flerrno 112 and the reason in *why.
std::shared_ptr<const Filter> loadFilter(const std::string& name, std::string* why);

// Every filter reachable by name, files first in search order, then the built-ins not shadowed.
struct FilterEntry {
  std::string name, origin;
};
std::vector<FilterEntry> filterEntries();

// Records why the last filter of this thread could not be loaded (ILfilterwhy).
void setWhy(const std::string& why);

}  // namespace vora::il
