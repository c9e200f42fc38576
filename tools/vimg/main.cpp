// vimg: the command-line face of voraimage. One file per sub-command.
#include <cstdio>

#include <vora/foundation/messages.h>

#include "commands.h"

namespace {
// User messages of the library go to stderr, one line each.
class StderrReporter final : public TerrorHandler {
 public:
  void reportError(const char* message) override { fprintf(stderr, "vimg: %s\n", message); }
};
}  // namespace

int vimg::exitStatus = 0;

int main(int argc, char** argv) {
  static StderrReporter reporter;
  theErrorHandler = &reporter;
  CLI::App app{"vimg: read, inspect and convert images with voraimage"};
  app.require_subcommand(1);
  vimg::registerInfo(app);
  vimg::registerConvert(app);
  vimg::registerSeq(app);
  vimg::registerLut(app);
  vimg::registerPsd(app);
  CLI11_PARSE(app, argc, argv);
  return vimg::exitStatus;
}
