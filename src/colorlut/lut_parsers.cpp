// The six LUT file parsers and TccLutFile. Every parser reads through the shared line
// reader; tables grow only as lines arrive, so a declared size never allocates more than the file
// holds.

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "colorlut/lut_reader.h"
#include "foundation/byteorder.h"

using vora::lut::bitDepthDivisor;
using vora::lut::isComment;
using vora::lut::readLine;
using vora::lut::readSkippingComments;
using vora::lut::refuse;

namespace {

constexpr int kCommentBudget = 64;
constexpr long long kMaxCubeSide = 1 << 10;  // 1024^3 lattice points: far beyond any real file

bool startsWith(const std::string& s, const char* p) { return s.compare(0, strlen(p), p) == 0; }

// ---- CSP ------------------------------------------------------------------------------------

// The next line that is neither a comment nor inside a metadata block.
bool nextCounted(TfileStream& s, std::string& line) {
  while (readLine(s, line)) {
    if (isComment(line)) continue;
    if (line == "BEGIN METADATA") {
      while (readLine(s, line) && line != "END METADATA") {
      }
      continue;
    }
    return true;
  }
  return false;
}

// count values from the start of the line, then after each run of blanks.
bool parseValues(const std::string& line, long long count, std::vector<float>& out) {
  const char* p = line.c_str();
  for (long long i = 0; i < count; ++i) {
    if (i > 0) {
      while (*p && *p != ' ' && *p != '\t') ++p;
      while (*p == ' ' || *p == '\t') ++p;
    }
    float v;
    if (sscanf(p, "%f", &v) != 1) return false;
    out.push_back(v);
  }
  return true;
}

// ---- shared building ------------------------------------------------------------------------

TccLut* table1D(std::vector<TscLutColor>& t, long long largest) {
  float d = bitDepthDivisor(largest);
  for (TscLutColor& c : t) c.red /= d, c.green /= d, c.blue /= d;
  return new TccLut(t);
}

}  // namespace

// ---- 1: CSP ------------------------------------------------------------------------------------

Tstring TccLutParserCSP::extension() const { return "csp"; }

TccLut* TccLutParserCSP::parse(TfileStream& s) const {
  std::string line;
  if (!readLine(s, line) || line != "CSPLUTV100") return refuse("no \"CSPLUTV100\" line first (a CR LF file fails here)");  // CR LF files fail here
  if (!readLine(s, line) || (line != "1D" && line != "3D")) return refuse("\"1D\" or \"3D\" expected");
  bool cube = line == "3D";
  TccLut::Curve curves[3];
  for (TccLut::Curve& c : curves) {
    long long count;
    if (!nextCounted(s, line) || sscanf(line.c_str(), "%lld", &count) != 1) return refuse("a pre-LUT point count expected");
    std::vector<float> in, out;
    if (!nextCounted(s, line) || (count > 0 && !parseValues(line, count, in))) return refuse("pre-LUT input values missing");
    if (!nextCounted(s, line) || (count > 0 && !parseValues(line, count, out))) return refuse("pre-LUT output values missing");
    for (size_t i = 0; i < in.size(); ++i) c.emplace_back(in[i], out[i]);
  }
  long long sizes[3] = {0, 0, 0};
  if (!nextCounted(s, line)) return refuse("the table size is missing");
  long long entries;
  if (cube) {
    if (sscanf(line.c_str(), "%lld %lld %lld", &sizes[0], &sizes[1], &sizes[2]) != 3) return refuse("three cube sizes expected");
    for (long long z : sizes)
      if (z < 1 || z > kMaxCubeSide) return refuse("a cube side outside 1..1024");
    entries = sizes[0] * sizes[1] * sizes[2];
  } else {
    if (sscanf(line.c_str(), "%lld", &entries) != 1 || entries < 1 || entries > (1LL << 30)) return refuse("a table size outside 1..2^30");
  }
  std::vector<TscLutColor> table;
  while ((long long)table.size() < entries) {
    TscLutColor c;
    if (!nextCounted(s, line) || sscanf(line.c_str(), "%f %f %f", &c.red, &c.green, &c.blue) != 3)
      return refuse("three numbers expected");
    table.push_back(c);
  }
  TccLut* lut = cube ? new TccLut(unsigned(sizes[0]), unsigned(sizes[1]), unsigned(sizes[2]), table)
                     : new TccLut(table);
  lut->setPreLUT(curves[0], curves[1], curves[2]);
  return lut;
}

// ---- 2: MORAINE ----------------------------------------------------------------------------------

Tstring TccLutParserMORAINE::extension() const { return "lut"; }

TccLut* TccLutParserMORAINE::parse(TfileStream& s) const {
  std::string line;
  int budget = kCommentBudget;
  long long channels, entries;
  if (!readSkippingComments(s, line, budget) ||
      sscanf(line.c_str(), "LUT: %lld %lld", &channels, &entries) != 2)
    return refuse("no \"LUT: channels entries\" line");
  if ((channels != 1 && channels != 3) || entries < 0 || entries > (1LL << 30)) return refuse("1 or 3 channels and at most 2^30 entries expected");
  std::vector<TscLutColor> table(size_t(entries > 4096 ? 0 : entries));
  long long largest = 0;
  for (long long k = 0; k < channels * entries; ++k) {
    do {
      if (!readLine(s, line)) return refuse("the table ends early");
    } while (isComment(line));
    long long v;
    if (sscanf(line.c_str(), "%lld", &v) != 1) return refuse("an integer expected");
    largest = std::max(largest, v);
    long long entry = k % entries, channel = k / entries;  // channel by channel
    if ((long long)table.size() <= entry) table.resize(size_t(entry) + 1);  // grows as data comes
    TscLutColor& c = table[size_t(entry)];
    if (channels == 1) c.red = c.green = c.blue = float(v);
    else (channel == 0 ? c.red : channel == 1 ? c.green : c.blue) = float(v);
  }
  return table1D(table, largest);
}

// ---- 3: IRIDAS look -----------------------------------------------------------------------------

Tstring TccLutParserIRIDAS::extension() const { return "look"; }

TccLut* TccLutParserIRIDAS::parse(TfileStream& s) const {
  std::string line;
  if (!readLine(s, line)) return refuse("empty file");
  size_t a = line.find("<?xml");
  size_t b = a == std::string::npos ? a : line.find("version=\"1.0\"", a);
  size_t c = b == std::string::npos ? b : line.find("?>", b);
  if (c == std::string::npos) return refuse("no <?xml version=\"1.0\" ?> line first");
  for (const char* tag : {"<look>", "<LUT>", "<size>"}) {
    do {
      if (!readLine(s, line)) return refuse("the <look>, <LUT> and <size> tags are missing");
    } while (line.find(tag) == std::string::npos);
  }
  long long n;
  if (sscanf(line.c_str(), "<size>\"%lld\"</size>", &n) != 1 || n < 2 || n > kMaxCubeSide) return refuse("a cube side of 2..1024 expected in <size>");
  do {
    if (!readLine(s, line)) return refuse("no <data> tag");
  } while (line.find("<data>") == std::string::npos);
  const long long want = 3 * n * n * n;
  std::vector<TscLutColor> table;
  std::vector<float> pending;
  for (long long got = 0; got < want;) {
    if (!readLine(s, line)) return refuse("the data ends early");
    // Consecutive pieces of eight characters; a short piece at the line's end stands alone.
    for (size_t at = 0; at < line.size() && got < want; at += 8, ++got) {
      std::string piece = line.substr(at, 8);
      unsigned int bits;
      if (sscanf(piece.c_str(), "%8x", &bits) != 1) return refuse("eight hex digits expected");
      // The eight digits are the float's bytes in little-endian order, whatever the host.
      uint32_t host = vora::swap32(bits);
      float v;
      memcpy(&v, &host, 4);
      pending.push_back(v);
      if (pending.size() == 3) {
        table.emplace_back(pending[0], pending[1], pending[2]);
        pending.clear();
      }
    }
  }
  return new TccLut(unsigned(n), unsigned(n), unsigned(n), table);
}

// ---- 4: ARRICUBE --------------------------------------------------------------------------------

Tstring TccLutParserARRICUBE::extension() const { return "cube"; }

TccLut* TccLutParserARRICUBE::parse(TfileStream& s) const {
  std::string line;
  int others = 0;
  for (;;) {
    if (!readLine(s, line)) return refuse("no LUT_3D_SIZE line");
    if (startsWith(line, "LUT_3D_SIZE") || others++ >= kCommentBudget) break;
  }
  long long n;
  if (!startsWith(line, "LUT_3D_SIZE")) return refuse("no LUT_3D_SIZE line in the header");
  if (sscanf(line.c_str(), "LUT_3D_SIZE %lld", &n) != 1 || n < 2 || n > kMaxCubeSide) return refuse("a cube side of 2..1024 expected");
  std::vector<TscLutColor> table;
  while ((long long)table.size() < n * n * n) {
    do {
      if (!readLine(s, line)) return refuse("the table ends early");
    } while (isComment(line));
    TscLutColor c;
    if (sscanf(line.c_str(), "%f %f %f", &c.red, &c.green, &c.blue) != 3) return refuse("three numbers expected");
    table.push_back(c);
  }
  return new TccLut(unsigned(n), unsigned(n), unsigned(n), table);
}

// ---- 5: TALLOW 3D mesh ---------------------------------------------------------------------------

Tstring TccLutParserTALLOW::extension() const { return "3dl"; }

TccLut* TccLutParserTALLOW::parse(TfileStream& s) const {
  std::string line;
  int budget = kCommentBudget;  // shared by every header skip
  int meshBits = 4, outBits = 12;
  if (!readSkippingComments(s, line, budget)) return refuse("empty file");
  if (startsWith(line, "3DMESH")) {
    if (!readSkippingComments(s, line, budget)) return refuse("the header ends early");
    int m, o;
    if (sscanf(line.c_str(), "Mesh %d %d", &m, &o) == 2) {
      meshBits = m, outBits = o;
      if (!readSkippingComments(s, line, budget)) return refuse("the header ends early");
    }
  }
  int v[17];
  if (sscanf(line.c_str(), "%d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d", &v[0], &v[1], &v[2],
             &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10], &v[11], &v[12], &v[13], &v[14],
             &v[15], &v[16]) == 17) {
    // The shaper is fixed whatever the mesh bits say (deliberate).
    for (int i = 0; i < 16; ++i)
      if (v[i] != 64 * i) return refuse("the shaper line is not 0 64 ... 960 1023");
    if (v[16] != 1023) return refuse("the shaper line does not end in 1023");
    if (!readSkippingComments(s, line, budget)) return refuse("no data after the shaper");
  }
  // Sizes a file could not hold, and an output scale of zero, are refused (ours).
  if (meshBits < 0 || meshBits > 10 || outBits < 1 || outBits > 31) return refuse("mesh bits above 10 or output bits outside 1..31");
  const long long n = (1LL << meshBits) + 1;
  const float scale = float(1.0 / (double((1LL << outBits) - 1)));
  // The lines arrive blue fastest, so the lattice is placed whole: it must fit in what is left of
  // the file (a line is at least "0 0 0" and its end) before it is allocated.
  long long left = vora::lut::bytesLeft(s);
  if (left >= 0 && n * n * n > left / 6 + 1) return refuse("the lattice cannot fit in what is left of the file");
  std::vector<TscLutColor> table(size_t(n * n * n));
  for (long long k = 0; k < n * n * n; ++k) {
    if (k > 0 && !readLine(s, line)) return refuse("the lattice ends early");
    int r, g, b;
    if (sscanf(line.c_str(), "%d %d %d", &r, &g, &b) != 3) return refuse("three integers expected");
    // The k-th line is the point r = k / n^2, g = (k / n) mod n, b = k mod n (blue fastest).
    long long pr = k / (n * n), pg = (k / n) % n, pb = k % n;
    table[size_t((pb * n + pg) * n + pr)] = TscLutColor(float(r) * scale, float(g) * scale, float(b) * scale);
  }
  return new TccLut(unsigned(n), unsigned(n), unsigned(n), table);
}

// ---- 6: AVID -----------------------------------------------------------------------------------

Tstring TccLutParserAVID::extension() const { return "lut"; }

TccLut* TccLutParserAVID::parse(TfileStream& s) const {
  std::string line;
  std::vector<TscLutColor> table;
  long long largest = 0;
  while (readLine(s, line)) {
    long long r, g, b;
    if (sscanf(line.c_str(), "%lld %lld %lld", &r, &g, &b) != 3) return refuse("three integers expected");
    largest = std::max({largest, r, g, b});
    table.emplace_back(float(r), float(g), float(b));
  }
  if (table.empty()) return refuse("no triple on the first line");  // the first line must be a triple
  return table1D(table, largest);
}

// ---- TccLutFile ----------------------------------------------------------------------------------

namespace {
const TccLutParserCSP kCsp;
const TccLutParserMORAINE kMoraine;
const TccLutParserIRIDAS kIridas;
const TccLutParserARRICUBE kArri;
const TccLutParserTALLOW kTallow;
const TccLutParserAVID kAvid;
struct Entry {
  const TccLutParser* parser;
  const char* name;
};
const Entry kTrialOrder[6] = {{&kCsp, "TccLutParserCSP"},         {&kMoraine, "TccLutParserMORAINE"},
                              {&kIridas, "TccLutParserIRIDAS"},   {&kArri, "TccLutParserARRICUBE"},
                              {&kTallow, "TccLutParserTALLOW"},   {&kAvid, "TccLutParserAVID"}};
}  // namespace

TccLut* TccLutFile::read(TfileStream& stream) { return read(stream, nullptr); }

TccLut* TccLutFile::read(TfileStream& stream, const char** parser) { return read(stream, parser, nullptr); }

TccLut* TccLutFile::read(TfileStream& stream, const char** parser, Tstring* why) {
  if (parser) *parser = nullptr;
  if (why) *why = "";
  if (!stream.isOpen()) {
    const vora::Status s(FL_EOPEN, "the file cannot be read");
    if (why) *why = s.text();
    vora::keepStatus(s);
    return nullptr;
  }
  vora::lut::Refusal furthest;
  const char* furthestParser = "";
  for (const Entry& e : kTrialOrder) {
    stream.clear();
    stream.seekg(0);
    vora::lut::refusal() = {};
    if (TccLut* lut = e.parser->parse(stream)) {
      if (parser) *parser = e.name;
      return lut;
    }
    vora::lut::Refusal& r = vora::lut::refusal();
    if (r.line > furthest.line) {
      furthest = r;
      furthestParser = e.name + 12;
    }
  }
  // The parser that read furthest says best what the file was meant to be.
  const vora::Status s(furthest.status.code(), Tstring::tFormat("line %ld: %s (%s)", furthest.line,
                                                                furthest.status.text().c_str(), furthestParser).str());
  if (why) *why = s.text();
  vora::keepStatus(s);
  return nullptr;
}

kt::set<Tstring> TccLutFile::getExtensions() {
  kt::set<Tstring> out;
  for (const Entry& e : kTrialOrder) {
    Tstring x = e.parser->extension();
    if (!x.isEmpty()) out.insert(x);
  }
  return out;
}
