// Foundation: Ttime, a point in time to the nanosecond (file modification times).
#pragma once

#include <cstdint>

struct Ttime {
  int64_t seconds = -1;  // since the epoch; -1: not known
  int32_t nanoseconds = 0;
  bool known() const { return seconds >= 0; }
  bool operator==(const Ttime&) const = default;
};
