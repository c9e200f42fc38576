// What the six LUT parsers share: the line reader, comment skipping, the bit-depth scale.
#pragma once

#include <string>

#include <vora/colorlut.h>
#include <vora/foundation/fl.h>
#include <vora/ilib.h>

#include "foundation/status.h"

namespace vora::lut {

// The shared line reader: skips white space (blank lines too), then takes everything up to the
// next line feed. A carriage return before the line feed stays at the end of the line
// (deliberate). False when the stream has failed or ended.
bool readLine(TfileStream& s, std::string& line);

// Reads lines while they are comments ('#' first), at most budget of them (the budget is
// decremented); false at the end of the stream.
bool readSkippingComments(TfileStream& s, std::string& line, int& budget);
inline bool isComment(const std::string& line) { return !line.empty() && line[0] == '#'; }

// Bytes from the current position to the end of the stream (-1 when it cannot tell).
long long bytesLeft(TfileStream& s);

// Why the parser at work refused its stream: the line it reached (from 1) and the status saying
// what was wrong. One per thread; TccLutFile::read resets it before each parser.
struct Refusal {
  long line = 0;  // of the line last read
  Status status;
  long newlines = 0;
};
Refusal& refusal();
// Records the reason at the current line and answers null: parsers say return refuse("...").
TccLut* refuse(const char* reason);

// 2^n with n = round(log2(m)), raised to even, at least 8 (m <= 0: 256).
float bitDepthDivisor(long long largest);

}  // namespace vora::lut
