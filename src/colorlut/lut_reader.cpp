// The shared line reader, comment skipping and bit-depth scale.
#include "colorlut/lut_reader.h"

#include <cctype>
#include <cmath>

namespace vora::lut {

Refusal& refusal() {
  thread_local Refusal r;
  return r;
}

TccLut* refuse(const char* reason) {
  refusal().status = Status(IL_EDAMAGED, reason);
  if (refusal().line == 0) refusal().line = 1;
  return nullptr;
}

bool readLine(TfileStream& s, std::string& line) {
  line.clear();
  for (int c; (c = s.peek()) != EOF && isspace(c);) {  // blank space, counting the line ends
    if (s.get() == '\n') ++refusal().newlines;
  }
  if (s.fail() || s.eof()) return false;
  refusal().line = refusal().newlines + 1;
  for (int c; (c = s.peek()) != EOF && c != '\n';) line.push_back(char(s.get()));
  return !line.empty();  // the end of the stream mid-line ends the line normally
}

bool readSkippingComments(TfileStream& s, std::string& line, int& budget) {
  for (;;) {
    if (!readLine(s, line)) return false;
    if (!isComment(line) || budget <= 0) return true;
    --budget;
  }
}

long long bytesLeft(TfileStream& s) {
  std::streampos here = s.tellg();
  if (here < 0) return -1;
  s.seekg(0, std::ios::end);
  std::streampos end = s.tellg();
  s.seekg(here);
  return end < 0 ? -1 : (long long)(end - here);
}

float bitDepthDivisor(long long m) {
  if (m <= 0) return 256.0f;  // log(0) is undefined: the 8-bit scale
  long long n = (long long)std::floor(std::log(double(m)) / std::log(2.0) + 0.5);
  if (n % 2) ++n;
  if (n < 8) n = 8;
  if (n > 62) n = 62;
  return float(std::ldexp(1.0, int(n)));
}


}  // namespace vora::lut
