// vimg seq: grouping file names into frame sequences with TimageSequence.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <vora/foundation/tstring.h>

namespace vimg {

// The formats vimg tries by default, most specific first (ties keep the earlier one).
const TstringArray& defaultSequenceFormats();

struct Sequence {
  std::string dir;      // "" for names given without a directory
  std::string pattern;  // the base name with the frame number as '#'
  std::vector<int> frames;  // sorted, unique
};

struct Grouping {
  std::vector<Sequence> sequences;      // by directory, then pattern
  std::vector<std::string> singles;     // names that fit no format
};

// Groups names (with or without directories) using the given formats, in order. learnShapes
// false runs the matcher for every name (the plain way the shortcut is checked against).
Grouping groupSequences(const std::vector<std::string>& names, const TstringArray& formats, bool learnShapes = true);
// "1-4,6,10-12" for sorted frames; "" for none.
std::string frameRanges(const std::vector<int>& frames);
// The frames between the first and last that are not there.
std::vector<int> missingFrames(const std::vector<int>& frames);

}  // namespace vimg
