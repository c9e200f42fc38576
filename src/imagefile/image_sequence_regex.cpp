// The regular-expression algorithm (convertToRegex, matchesFormat, atFrame).
#include <string>
#include <unordered_map>

#include "imagefile/image_sequence.h"

namespace {

struct Converted {
  std::string regex;
  int padWidth;
  bool throws;
};

Converted convert(const std::string& format) {
  Tstring s = format;
  s.substitute(".", "(\\.)");
  bool nameThenNumber = format.find("name#") != std::string::npos;
  s.substitute("name", nameThenNumber ? "(.*[^\\.0-9])" : "(.*[^\\.])");
  int pad = 0;
  for (char c : format) pad += c == '#';
  if (pad < 2) {
    s.substitute("#", "([0-9]|[1-9][0-9]*)");
  } else {
    std::string run(size_t(pad < 127 ? pad : 127), '#');
    s.substitute(run.c_str(), Tstring::tFormat("([0-9]{%d})", pad).asChar());
  }
  bool throws = s.str().find('#') != std::string::npos;  // e.g. two separate runs
  s.substitute("ext", "([a-zA-Z]+)");
  return {s.str(), pad, throws};
}

// convertToRegex is pure: its results are kept per format (tools match many names).
const Converted& converted(const std::string& format) {
  thread_local std::unordered_map<std::string, Converted> cache;
  auto it = cache.find(format);
  if (it != cache.end()) return it->second;
  if (cache.size() > 256) cache.clear();
  return cache.emplace(format, convert(format)).first->second;
}

}  // namespace

Tstring TimageSequence::convertToRegex(const Tstring& format, int& padWidth) {
  const Converted& c = converted(format.str());
  padWidth = c.padWidth;
  if (c.throws) throw 1;
  return Tstring(c.regex);
}

bool TimageSequenceRegexImpl::matchesFormat(const Tstring& fileName, unsigned& score) {
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  int pad = 0;
  Tstring re = TimageSequence::convertToRegex(format, pad);
  padWidth = uint32_t(pad);
  // A format without any '#' would bind here by the regex steps alone (name.ext against
  // shot.iff); it must never bind: there is no frame to give.
  if (pad == 0) {
    score = 0;
    return false;
  }
  score = unsigned(base.matchesRegexp(re));
  return score != 0;
}

Tstring TimageSequenceRegexImpl::atFrame(int frame) {
  if (!matched) return Tstring();
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  int pad = 0;
  Tstring re = TimageSequence::convertToRegex(format, pad);
  std::vector<Tstring> groups;
  if (!base.matchesRegexp(re, &groups, 9)) return Tstring();
  std::string out;
  for (const Tstring& g : groups) out += g.isInt32() ? paddedNum(frame).str() : g.str();
  return dir + "/" + Tstring(out);
}

bool TimageSequenceRegexImpl::frameInfo(int& frame, Tstring& pattern) const {
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  int pad = 0;
  Tstring re = TimageSequence::convertToRegex(format, pad);
  std::vector<Tstring> groups;
  if (!base.matchesRegexp(re, &groups, 9)) return false;
  // The groups are pieces of the base name in order, with the format's literal characters
  // between them; the last integer group is the frame number. Its place is found by walking the
  // name, so the pattern keeps those literals (atFrame, by design, does not).
  const std::string& b = base.str();
  size_t at = 0, numAt = std::string::npos, numLen = 0;
  for (const Tstring& g : groups) {
    size_t found = b.find(g.str(), at);
    if (found == std::string::npos) return false;
    int32_t v;
    if (g.isInt32(&v)) frame = v, numAt = found, numLen = g.length();
    at = found + g.length();
  }
  if (numAt == std::string::npos) return false;
  std::string out = b;
  out.replace(numAt, numLen, std::string(size_t(pad > 1 ? pad : 1), '#'));
  pattern = Tstring(out);
  return true;
}
