// vimg: the sub-commands. Each file registers one with the application.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace vimg {

// Exit statuses, listed in vimg --help and the README.
enum Status : int {
  kStatusOk = 0,
  kStatusFailed = 1,  // a file could not be read, written or understood
  kStatusUsage = 2,   // the command line was wrong
};

// The exit status of the process; fail() raises it.
extern int exitStatus;

// One line "vimg: MESSAGE" on standard error; the exit status becomes `status`.
void fail(const std::string& message, int status = kStatusFailed);

// Runs a command's work on `file`: whatever the library throws (damaged data, memory) ends as one
// line naming the file and status 1, never as an abort.
void guarded(const std::string& file, const std::function<void()>& work);

// Why a file cannot be opened for reading ("" when it can): the system's reason.
std::string openProblem(const std::string& file);

// Parses the command line and runs the command; the exit status.
int run(int argc, char** argv);

void registerInfo(CLI::App& app);
void registerConvert(CLI::App& app);
void registerSeq(CLI::App& app);
void registerLut(CLI::App& app);
void registerPsd(CLI::App& app);
void registerResample(CLI::App& app);
void registerMovie(CLI::App& app);
void registerHdr(CLI::App& app);
void registerPlugins(CLI::App& app);
void registerDepth(CLI::App& app);
void registerImageFile(CLI::App& app);
void registerFrame(CLI::App& app);
void registerLoad(CLI::App& app);
// vimg psd create, under the psd command.
void registerPsdCreate(CLI::App& psd);

}  // namespace vimg
