// The older split-at-dots algorithm (matchesFormat, atFrame).
#include <string>
#include <vector>

#include "imagefile/image_sequence.h"

namespace {

std::vector<std::string> splitDots(const std::string& s) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t dot = s.find('.', start);
    parts.push_back(s.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
    if (dot == std::string::npos) return parts;
    start = dot + 1;
  }
}

std::string join(const std::vector<std::string>& parts) {
  std::string s;
  for (size_t i = 0; i < parts.size(); ++i) s += (i ? "." : "") + parts[i];
  return s;
}

// The digits a text ends with ("" when none).
std::string trailingDigits(const std::string& s) {
  size_t i = s.size();
  while (i > 0 && s[i - 1] >= '0' && s[i - 1] <= '9') --i;
  return s.substr(i);
}

}  // namespace

bool TimageSequenceImpl::matchesFormat(const Tstring& fileName, unsigned& score) {
  score = 0;
  std::vector<std::string> fparts = splitDots(format.str());
  padWidth = 0;
  numberPart = -1;
  if (fparts.size() < 2) {
    for (char c : format.str()) padWidth += c == '#';
    if (padWidth) numberPart = 0;
  } else {
    for (size_t i = 0; i < fparts.size(); ++i) {
      for (char c : fparts[i]) padWidth += c == '#';
      if (numberPart < 0 && padWidth > 0) numberPart = int32_t(i);
    }
  }
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  std::vector<std::string> bparts = splitDots(base.str());
  std::string digits;
  if (bparts.size() == 1) {
    if (fparts.size() != 1 || numberPart < 0) return false;
    digits = trailingDigits(bparts[0]);
  } else {
    if (bparts.size() != fparts.size() || numberPart < 0) return false;
    digits = trailingDigits(bparts[size_t(numberPart)]);
  }
  if (digits.empty()) return false;
  number = Tstring(digits);
  if (padWidth > 1 && digits.size() != padWidth) return false;
  if (padWidth == 1 && digits[0] == '0' && digits.size() != 1) return false;
  if (padWidth == 0) return false;
  score = unsigned(fparts.size());
  return true;
}

Tstring TimageSequenceImpl::atFrame(int frame) {
  if (!matched) return Tstring();
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  std::vector<std::string> parts = splitDots(base.str());
  if (parts.size() < 2) {
    base.substitute(number.asChar(), paddedNum(frame).asChar());
  } else {
    Tstring part = Tstring(parts[size_t(numberPart)]);
    part.substitute(number.asChar(), paddedNum(frame).asChar());
    parts[size_t(numberPart)] = part.str();
    base = Tstring(join(parts));
  }
  return dir + "/" + base;
}

bool TimageSequenceImpl::frameInfo(int& frame, Tstring& pattern) const {
  Tstring dir, base;
  vora::seq::splitPath(fileName, dir, base);
  int32_t v;
  if (!number.isInt32(&v)) return false;
  frame = v;
  std::vector<std::string> parts = splitDots(base.str());
  std::string& part = parts[parts.size() < 2 ? 0 : size_t(numberPart)];
  part.replace(part.size() - number.length(), number.length(),
               std::string(size_t(padWidth > 1 ? padWidth : 1), '#'));
  pattern = Tstring(join(parts));
  return true;
}
