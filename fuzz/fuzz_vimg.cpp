// Fuzz target: vimg's commands run in-process on arbitrary files of each format vimg reads (the
// first byte picks the format and the command), as a user would run them: nothing may abort, and
// every run ends in success or in the status of a file that could not be used (1).
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "../tools/vimg/commands.h"
#include "fuzz_file.h"

namespace {

struct Command {
  const char* extension;
  std::vector<std::string> args;  // "@" stands for the input file, "#" for an output file
};

const Command kCommands[] = {
    {"iff", {"info", "--tiles", "--chunks", "@"}},
    {"iff", {"convert", "@", "#.sgi"}},
    {"sgi", {"info", "--json", "@"}},
    {"sgi", {"convert", "@", "#.iff"}},
    {"psd", {"psd", "info", "@"}},
    {"psd", {"psd", "extract", "@", "--composite", "#.iff"}},
    {"cube", {"lut", "info", "@"}},
    {"look", {"lut", "eval", "@", "0.25", "0.5", "1"}},
    {"csp", {"lut", "info", "--json", "@"}},
    {"psd", {"psd", "info", "--json", "@"}},
    {"psd", {"psd", "extract", "@", "--layer", "masked", "#.png"}},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool quiet = freopen("/dev/null", "w", stdout) != nullptr;  // reports, not failures
  (void)quiet;
  if (size < 1) return 0;
  const Command& c = kCommands[data[0] % (sizeof kCommands / sizeof kCommands[0])];
  const std::string in = fuzz::tempPath() + "." + c.extension, out = fuzz::tempPath() + ".out";
  FILE* f = fopen(in.c_str(), "wb");
  if (!f) return 0;
  fwrite(data + 1, 1, size - 1, f);
  fclose(f);
  std::vector<std::string> args = {"vimg", "--max-memory", "64"};
  for (std::string a : c.args) args.push_back(a == "@" ? in : a[0] == '#' ? out + a.substr(1) : a);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  const int status = vimg::run(int(argv.size()), argv.data());
  if (status != 0 && status != 1) __builtin_trap();
  return 0;
}
