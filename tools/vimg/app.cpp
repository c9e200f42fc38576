// vimg: the command-line face of voraimage: the application, its failure lines and statuses.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include <vora/foundation/fl.h>
#include <vora/foundation/messages.h>

#include "commands.h"

namespace {
// What the library reported since the last failure line (SGI messages end in a newline).
std::string reported;
}  // namespace

namespace vimg {

int exitStatus = kStatusOk;

// The library's own report of the failure joins the one line, so a failure is one message.
void fail(const std::string& message, int status) {
  std::string line = "vimg: " + message;
  if (!reported.empty()) line += " (" + reported + ")";
  fprintf(stderr, "%s\n", line.c_str());
  reported.clear();
  if (exitStatus == kStatusOk || status == kStatusUsage) exitStatus = status;
}

void guarded(const std::string& file, const std::function<void()>& work) {
  try {
    work();
  } catch (const std::bad_alloc&) {
    fail(file + ": out of memory (the limit is set by --max-memory or VORA_MAX_ALLOC_MB)");
  } catch (const std::exception& e) {
    fail(file + ": " + e.what());
  } catch (...) {
    fail(file + ": cannot be read");
  }
}

std::string openProblem(const std::string& file) {
  FILE* f = fopen(file.c_str(), "rb");
  if (!f) return std::string("cannot be opened: ") + strerror(errno);
  fclose(f);
  return "";
}

}  // namespace vimg

namespace {
// Messages of the library wait for the failure line they explain; what no failure claims goes
// to standard error when the command ends.
class Reporter final : public TerrorHandler {
 public:
  void reportError(const char* message) override {
    std::string m = message;
    while (!m.empty() && m.back() == '\n') m.pop_back();
    reported += (reported.empty() ? "" : "; ") + m;
  }
};
}  // namespace

int vimg::run(int argc, char** argv) {
  static Reporter reporter;
  theErrorHandler = &reporter;
  exitStatus = kStatusOk;
  reported.clear();
  CLI::App app{"vimg: read, inspect and convert images with voraimage"};
  app.footer(
      "Exit status: 0 success, 1 a file could not be read, written or understood (one line on "
      "standard error names it), 2 wrong usage.");
  app.require_subcommand(1);
  app.add_option_function<uint64_t>(
         "--max-memory", [](uint64_t mb) { FLsetalloclimit(mb << 20); },
         "largest image or buffer any reader may allocate, in MiB (default: VORA_MAX_ALLOC_MB or 4096)")
      ->check(CLI::Range(uint64_t(1), uint64_t(1) << 40));
  vimg::registerInfo(app);
  vimg::registerConvert(app);
  vimg::registerSeq(app);
  vimg::registerLut(app);
  vimg::registerPsd(app);
  vimg::registerResample(app);
  vimg::registerMovie(app);
  vimg::registerHdr(app);
  vimg::registerPlugins(app);
  vimg::registerDepth(app);
  vimg::registerImageFile(app);
  vimg::registerFrame(app);
  vimg::registerLoad(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? vimg::kStatusOk : vimg::kStatusUsage;
  }
  if (!reported.empty()) fprintf(stderr, "vimg: %s\n", reported.c_str());
  return vimg::exitStatus;
}
