// vimg seq: grouping file names into frame sequences with TimageSequence.
#include "seq_group.h"

#include <algorithm>
#include <unordered_map>

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

namespace {

// Names whose base names differ only in the values of their digits match the formats alike: the
// matchers see digits as a class (zero apart, since padding decides between formats). So the
// matcher runs once per such shape, and the frame of each further name is read from where it stood
// in the first; what cannot be learnt so (a frame of ten digits or more may not fit, a negative
// frame, a format with digits of its own) runs the matcher for every name.
struct Shape {
  bool learnt = false, matched = false;
  size_t begin = 0, end = 0;  // the frame's digits in the base name
  std::string middle;         // what stands for them in the pattern
};

std::string shapeOf(const std::string& base) {
  std::string key = base;
  for (char& c : key)
    if (c >= '1' && c <= '9') c = '1';
  return key;
}

bool isDigits(const std::string& s, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return to > from;
}

Shape learn(const std::string& base, bool matched, int frame, const std::string& pattern) {
  Shape s;
  s.matched = matched;
  if (!matched) {  // learnt when no run of digits could be a frame too large for the matcher
    size_t run = 0, longest = 0;
    for (char c : base) longest = std::max(longest, run = (c >= '0' && c <= '9') ? run + 1 : 0);
    s.learnt = longest < 10;
    return s;
  }
  size_t head = 0, tail = 0;
  while (head < base.size() && head < pattern.size() && base[head] == pattern[head]) ++head;
  while (tail < base.size() - head && tail < pattern.size() - head &&
         base[base.size() - 1 - tail] == pattern[pattern.size() - 1 - tail])
    ++tail;
  s.begin = head, s.end = base.size() - tail;
  s.middle = pattern.substr(head, pattern.size() - tail - head);
  s.learnt = isDigits(base, s.begin, s.end) && s.end - s.begin < 10 && !s.middle.empty() &&
             s.middle.find_first_not_of('#') == std::string::npos &&
             std::stoi(base.substr(s.begin, s.end - s.begin)) == frame;
  return s;
}

}  // namespace

Grouping groupSequences(const std::vector<std::string>& names, const TstringArray& formats, bool learnShapes) {
  bool byShape = learnShapes;
  for (const Tstring& f : formats) byShape &= f.str().find_first_of("0123456789") == std::string::npos;
  std::unordered_map<std::string, Shape> shapes;
  TstringArray saved;
  TimageSequence::getFileNameFormats(saved);
  TimageSequence::setFileNameFormats(formats);
  std::map<std::pair<std::string, std::string>, std::vector<int>> groups;
  Grouping out;
  TimageSequence seq;
  for (const std::string& name : names) {
    const size_t slash = name.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : name.substr(0, slash);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    Shape* shape = nullptr;  // stays where it is as the map grows
    bool fresh = false;
    if (byShape) {
      auto [it, inserted] = shapes.try_emplace(shapeOf(base));
      shape = &it->second, fresh = inserted;
    }
    if (shape && shape->learnt) {
      if (!shape->matched) {
        out.singles.push_back(name);
      } else {
        const std::string digits = base.substr(shape->begin, shape->end - shape->begin);
        groups[{dir, base.substr(0, shape->begin) + shape->middle + base.substr(shape->end)}].push_back(std::stoi(digits));
      }
      continue;
    }
    int frame = 0;
    Tstring pattern;
    const bool matched = TimageSequence::initializeToBestMatch(name, seq, 0) && seq.frameInfo(frame, pattern);
    if (fresh) *shape = learn(base, matched, frame, pattern.str());
    if (matched) groups[{dir, pattern.str()}].push_back(frame);
    else out.singles.push_back(name);
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
