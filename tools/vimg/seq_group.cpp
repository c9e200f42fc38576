// vimg seq: grouping file names into frame sequences with TimageSequence.
#include "seq_group.h"

#include <algorithm>

#include <vora/imagefile.h>

namespace vimg {

// name####.ext comes before name_####.ext: both score alike on plate_0007.exr, and atFrame (which
// joins only the format's groups) keeps the '_' only when it is in the name.
const TstringArray& defaultSequenceFormats() {
  static const TstringArray formats = {
      "name.####.ext", "name.###.ext", "name.#####.ext", "name.######.ext", "name.##.ext",
      "name.#.ext",    "name####.ext", "name#.ext",      "name_####.ext",   "name_#.ext",
  };
  return formats;
}

Grouping groupSequences(const std::vector<std::string>& names, const TstringArray& formats) {
  TstringArray saved;
  TimageSequence::getFileNameFormats(saved);
  TimageSequence::setFileNameFormats(formats);
  std::map<std::pair<std::string, std::string>, std::vector<int>> groups;
  Grouping out;
  TimageSequence seq;
  for (const std::string& name : names) {
    int frame = 0;
    Tstring pattern;
    if (TimageSequence::initializeToBestMatch(name, seq, 0) && seq.frameInfo(frame, pattern)) {
      size_t slash = name.rfind('/');
      std::string dir = slash == std::string::npos ? "" : name.substr(0, slash);
      groups[{dir, pattern.str()}].push_back(frame);
    } else {
      out.singles.push_back(name);
    }
  }
  TimageSequence::setFileNameFormats(saved);
  // An unpadded sequence also fits the padded formats where its numbers have that many digits
  // (shot.1000.iff fits name.####.ext): a padded group without any leading zero joins the
  // unpadded group of the same name, when there is one.
  for (auto it = groups.begin(); it != groups.end();) {
    const std::string& pat = it->first.second;
    size_t first = pat.find('#'), last = pat.find_last_of('#');
    size_t width = first == std::string::npos ? 0 : last - first + 1;
    long long lowest = 1;
    for (size_t k = 1; k < width; ++k) lowest *= 10;
    bool noLeadingZero = width > 1 && *std::min_element(it->second.begin(), it->second.end()) >= lowest;
    auto unpadded = noLeadingZero
                        ? groups.find({it->first.first, pat.substr(0, first) + "#" + pat.substr(last + 1)})
                        : groups.end();
    if (unpadded != groups.end()) {
      unpadded->second.insert(unpadded->second.end(), it->second.begin(), it->second.end());
      it = groups.erase(it);
    } else {
      ++it;
    }
  }
  for (auto& [key, frames] : groups) {
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    out.sequences.push_back({key.first, key.second, std::move(frames)});
  }
  std::sort(out.singles.begin(), out.singles.end());
  return out;
}

std::string frameRanges(const std::vector<int>& f) {
  std::string s;
  for (size_t i = 0; i < f.size();) {
    size_t j = i;
    while (j + 1 < f.size() && (long long)f[j + 1] == (long long)f[j] + 1) ++j;
    if (!s.empty()) s += ',';
    s += std::to_string(f[i]);
    if (j > i) {
      s += '-';
      s += std::to_string(f[j]);
    }
    i = j + 1;
  }
  return s;
}

std::vector<int> missingFrames(const std::vector<int>& f) {
  std::vector<int> m;
  for (size_t i = 1; i < f.size(); ++i)
    for (long long k = (long long)f[i - 1] + 1; k < f[i] && m.size() < 1000000; ++k) m.push_back(int(k));
  return m;
}

}  // namespace vimg
