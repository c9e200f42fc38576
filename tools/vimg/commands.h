// vimg: the sub-commands. Each file registers one with the application.
#pragma once

#include <CLI/CLI.hpp>

namespace vimg {

// Every sub-command sets the process exit status through this (0 success, 1 failure).
extern int exitStatus;

void registerInfo(CLI::App& app);
void registerConvert(CLI::App& app);
void registerSeq(CLI::App& app);
void registerLut(CLI::App& app);
void registerPsd(CLI::App& app);

}  // namespace vimg
