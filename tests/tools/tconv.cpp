// Test converter program for the input and output conversion tests.
//   tconv ppm2iff          reads a binary PPM (P6) on stdin, writes a native image of its size
//   tconv fail             reads nothing, writes nothing, exits 3
//   tconv upper            copies stdin to stdout in upper case (an output converter)
//   rastx -s FILE stdout   (called by that name) converts FILE; -sf EXT and -s read stdin
// Every call appends its arguments as one line to $TCONV_LOG when that is set.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/ilib.h>

namespace {

void logArgs(int argc, char** argv) {
  const char* log = getenv("TCONV_LOG");
  if (!log) return;
  FILE* f = fopen(log, "a");
  if (!f) return;
  for (int i = 0; i < argc; ++i) fprintf(f, i ? " %s" : "%s", i ? argv[i] : "argv0");
  fputc('\n', f);
  fclose(f);
}

int ppmToIff(FILE* in) {
  char magic[3] = {};
  int w = 0, h = 0, maxv = 0;
  if (fscanf(in, "%2s %d %d %d", magic, &w, &h, &maxv) != 4 || strcmp(magic, "P6") != 0) {
    fprintf(stderr, "tconv: not a P6 PPM\n");
    return 2;
  }
  while (fgetc(in) != EOF) {  // take the whole input, as a real converter would
  }
  ILconfig(IL_CFG_NOOUTCVT, 1);  // our own output goes to stdout unconverted
  ILimage* img = ILopen("-", "w");
  if (!img || ILsetsize(img, w, h) || ILsettype(img, IL_COLOR) || ILputheader(img)) return 4;
  return ILclose(img) ? 5 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  logArgs(argc, argv);
  const char* base = strrchr(argv[0], '/');
  base = base ? base + 1 : argv[0];
  if (strcmp(base, "rastx") == 0) {
    // "-s FILE stdout" reads FILE; "-s" and "-sf EXT" read stdin.
    if (argc >= 4 && strcmp(argv[1], "-s") == 0) {
      FILE* f = fopen(argv[2], "rb");
      if (!f) return 6;
      int r = ppmToIff(f);
      fclose(f);
      return r;
    }
    return ppmToIff(stdin);
  }
  if (argc < 2) return 1;
  std::string mode = argv[1];
  if (mode == "ppm2iff") return ppmToIff(stdin);
  if (mode == "fail") return 3;
  if (mode == "upper") {
    int c;
    while ((c = getchar()) != EOF) putchar(toupper(c));
    return 0;
  }
  return 1;
}
