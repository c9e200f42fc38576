// vimg: the program. The commands live in app.cpp so that the fuzz target can run them in-process.
#include "commands.h"

int main(int argc, char** argv) { return vimg::run(argc, argv); }
