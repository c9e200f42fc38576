// Zoom filters: filter files ("radius = ...", "noclip = ...", "f(x) = ...", evaluated with
// muParser) and the built-in kernels, which are written in the same language so that both take
// one path.
#include "ilib/il_filter.h"

#include <muParser.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>
#include <vora/ilib.h>

#include "foundation/status.h"

namespace fs = std::filesystem;

namespace vora::il {

namespace {

struct BuiltIn {
  const char* name;
  const char* program;
};

// Kernels as studios know them; radius first, then f(x).
const BuiltIn kBuiltIns[] = {
    {"box", "radius = 0.5\nf(x) = 1\n"},
    {"triangle", "radius = 1\nf(x) = 1 - abs(x)\n"},
    {"gauss", "radius = 2\nf(x) = exp(-2 * x * x)\n"},
    // sinc under a 3-lobe Blackman window
    {"sinc",
     "radius = 3\n"
     "f(x) = x == 0 ? 1 : sin(_pi * x) / (_pi * x) * (0.42 + 0.5 * cos(_pi * x / 3) + 0.08 * cos(2 * _pi * x / 3))\n"},
    {"lanczos3", "radius = 3\nf(x) = x == 0 ? 1 : 3 * sin(_pi * x) * sin(_pi * x / 3) / (_pi * _pi * x * x)\n"},
    // the cubic of Mitchell and Netravali with B = C = 1/3
    {"mitchell",
     "radius = 2\n"
     "f(x) = abs(x) < 1 ? (7 * abs(x)^3 - 12 * x^2 + 16 / 3) / 6 : "
     "(-7 / 3 * abs(x)^3 + 12 * x^2 - 20 * abs(x) + 32 / 3) / 6\n"},
    {"catmull-rom",
     "radius = 2\n"
     "f(x) = abs(x) < 1 ? 1.5 * abs(x)^3 - 2.5 * x^2 + 1 : -0.5 * abs(x)^3 + 2.5 * x^2 - 4 * abs(x) + 2\n"},
};

const BuiltIn* findBuiltIn(const std::string& name) {
  for (const BuiltIn& b : kBuiltIns)
    if (name == b.name) return &b;
  return nullptr;
}

std::string trim(const std::string& s) {
  size_t a = s.find_first_not_of(" \t\r"), b = s.find_last_not_of(" \t\r");
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

// The directories searched for NAME.filter, in order.
std::vector<fs::path> searchDirectories() {
  std::vector<fs::path> dirs;
  if (const char* env = VoraGetEnv("VORA_FILTER_PATH")) {
    std::string item;
    for (const char* p = env;; ++p) {
      if (*p == ':' || *p == ';' || *p == '\0') {
        if (!item.empty()) dirs.emplace_back(item);
        item.clear();
        if (!*p) break;
      } else {
        item += *p;
      }
    }
  }
  dirs.push_back(fs::path(FLgetwork()) / "filters");
  return dirs;
}

// Fills f from a program; false with the reason.
bool compile(const std::string& text, Filter& f, std::string* why) {
  double x = 0;
  mu::Parser parser;
  std::string fx;
  double radius = NAN, noclip = 0;
  std::istringstream in(text);
  std::string line;
  for (int n = 1; std::getline(in, line); ++n) {
    line = trim(line.substr(0, line.find('#')));
    if (line.empty()) continue;
    size_t eq = line.find('=');
    // "==" belongs to an expression, not to the setting
    while (eq != std::string::npos && eq + 1 < line.size() && line[eq + 1] == '=') eq = line.find('=', eq + 2);
    if (eq == std::string::npos) {
      *why = "line " + std::to_string(n) + ": expected NAME = VALUE";
      return false;
    }
    std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
    if (key == "f(x)" || key == "f") {
      fx = value;
      continue;
    }
    if (key != "radius" && key != "noclip") {
      *why = "line " + std::to_string(n) + ": unknown setting '" + key + "'";
      return false;
    }
    try {
      parser.SetExpr(value);
      (key == "radius" ? radius : noclip) = parser.Eval();
    } catch (const mu::Parser::exception_type& e) {
      *why = "line " + std::to_string(n) + ": " + e.GetMsg();
      return false;
    }
  }
  if (!(radius >= kMinRadius && radius <= kMaxRadius)) {
    std::ostringstream m;
    m << "radius " << radius << " is outside " << kMinRadius << " .. " << kMaxRadius;
    *why = m.str();
    return false;
  }
  if (fx.empty()) {
    *why = "no f(x) given";
    return false;
  }
  f.radius = float(radius);
  f.start = -f.radius;
  f.noclip = noclip != 0;
  // The running integral: the trapezoid rule over 16 equal steps between samples.
  constexpr int kSteps = (Filter::kSamples - 1) * 16;
  const double r = f.radius, d = 2 * r / kSteps;
  try {
    parser.DefineVar("x", &x);
    parser.SetExpr(fx);
    double sum = 0, prev = 0;
    for (int m = 0; m <= kSteps; ++m) {
      x = -r + m * d;
      double v = parser.Eval();
      if (!std::isfinite(v)) {
        std::ostringstream msg;
        msg << "f(x) is not finite at x = " << x;
        *why = msg.str();
        return false;
      }
      if (m > 0) sum += (prev + v) * 0.5 * d;
      prev = v;
      if (m % 16 == 0) f.integral[m / 16] = float(sum);
    }
  } catch (const mu::Parser::exception_type& e) {
    *why = "f(x): " + e.GetMsg();
    return false;
  }
  return true;
}

thread_local std::string tlsWhy;

}  // namespace

double Filter::at(double t) const {
  double p = (t + radius) * (kSamples - 1) / (2.0 * radius);
  if (p < 0) return 0;
  if (p >= kSamples - 1) return integral[kSamples - 1];
  int i = int(p);
  double frac = p - i;
  return integral[i] + (integral[i + 1] - integral[i]) * frac;
}

std::shared_ptr<const Filter> loadFilter(const std::string& name, std::string* why) {
  auto f = std::make_shared<Filter>();
  f->name = name;
  std::string text;
  // a name is a file name, never a path: nothing outside the filter directories is read
  bool plain = !name.empty() && name.find_first_of("/\\") == std::string::npos && name != "." && name != "..";
  if (plain) {
    for (const fs::path& dir : searchDirectories()) {
      std::error_code ec;
      fs::path p = dir / (name + ".filter");
      if (!fs::is_regular_file(p, ec)) continue;
      if (fs::file_size(p, ec) > 65536) {
        *why = p.string() + ": larger than a filter file can be";
        vora::toFlerrno(IL_ENOFILTER);
        return nullptr;
      }
      std::ifstream in(p, std::ios::binary);
      std::ostringstream s;
      s << in.rdbuf();
      text = s.str();
      f->origin = p.string();
      break;
    }
  }
  if (f->origin.empty()) {
    const BuiltIn* b = plain ? findBuiltIn(name) : nullptr;
    if (!b) {
      *why = "no filter named '" + name + "'";
      vora::toFlerrno(IL_ENOFILTER);
      return nullptr;
    }
    text = b->program;
    f->origin = "built-in";
  }
  std::string reason;
  if (text.find('\0') != std::string::npos) reason = "not a text file (it holds a NUL byte)";
  if (!reason.empty() || !compile(text, *f, &reason)) {
    *why = (f->origin == "built-in" ? name : f->origin) + ": " + reason;
    vora::toFlerrno(IL_ENOFILTER);
    return nullptr;
  }
  return f;
}

std::vector<FilterEntry> filterEntries() {
  std::vector<FilterEntry> out;
  std::set<std::string> seen;
  for (const fs::path& dir : searchDirectories()) {
    std::error_code ec;
    std::set<fs::path> files;  // sorted within a directory
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      if (it->path().extension() == ".filter") files.insert(it->path());
    for (const fs::path& p : files)
      if (seen.insert(p.stem().string()).second) out.push_back({p.stem().string(), p.string()});
  }
  for (const BuiltIn& b : kBuiltIns)
    if (seen.insert(b.name).second) out.push_back({b.name, "built-in"});
  return out;
}

void setWhy(const std::string& why) { tlsWhy = why; }

}  // namespace vora::il

extern "C" const char* ILfilterwhy(void) { return vora::il::tlsWhy.c_str(); }

extern "C" int ILlistfilters(ILfiltereach each, void* data) {
  int n = 0;
  for (const vora::il::FilterEntry& e : vora::il::filterEntries()) {
    std::string why;
    auto f = vora::il::loadFilter(e.name, &why);
    if (each) each(e.name.c_str(), f ? f->radius : 0, f ? f->noclip : 0, e.origin.c_str(), data);
    ++n;
  }
  return n;
}
