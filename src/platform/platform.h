// Platform layer: the only place that knows the operating system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vora::platform {

// True when the first word of a shell command names a program that can be run: a path with '/'
// must be executable, a bare name must be found on PATH.
bool commandExists(const std::string& command);

// A child running "/bin/sh -c command". Each fd is -1 when not piped. All our pipe ends are
// close-on-exec so that no other child holds them open.
struct Child {
  int pid = -1;
  int stdinFd = -1;   // we write here (child's stdin), when requested
  int stdoutFd = -1;  // we read here (child's stdout), when requested
};
// The child's stdin is a new pipe (pipeStdin) or /dev/null; its stdout a new pipe (pipeStdout)
// or ours.
// Returns false with errno set when the child cannot be started.
bool spawnShell(const std::string& command, bool pipeStdin, bool pipeStdout, Child& child);

// Waits for the child. graceMs < 0 waits for ever; otherwise, if it has not ended after graceMs,
// it is sent SIGTERM and then SIGKILL. Returns the exit status (0 on success), 128 + signal when
// it was killed by a signal, or -1 when it could not be waited for.
int waitChild(int pid, int graceMs);

// write() that never raises SIGPIPE: returns false with errno EPIPE when the reader is gone.
bool writeAll(int fd, const void* data, size_t n);
// read() retried on EINTR; returns bytes read, 0 at end, -1 on error.
long readSome(int fd, void* buf, size_t n);

int openRead(const char* path);               // -1 with errno on failure
int openWrite(const char* path);              // create/truncate, mode 0666 & umask
int openCreate(const char* path, int mode);   // create/truncate with the given permissions
// Creates a file, or opens an existing one to be written over in place (not truncated): the
// writer ends it with truncateTo at the size it wrote. A file truncated to nothing and written
// again makes the file system start writing it back at close, which costs as much as the
// writing; an existing one written over keeps its blocks.
int openRewrite(const char* path, int mode);
bool truncateTo(int fd, int64_t size);  // regular files only; true for others (pipes, devices)
long readAt(int fd, void* buf, size_t n, int64_t pos);  // bytes read (short at the end), -1
// Maps a whole regular file read-only; null when it cannot (the caller then reads with readAt).
const uint8_t* mapFile(int fd, int64_t size);
void unmapFile(const uint8_t* data, int64_t size);
// Maps the first size bytes of a file opened read-write, shared: writes reach the file. Null when
// it cannot (or the file is shorter).
void* mapFileShared(int fd, int64_t size);
void unmapShared(void* data, int64_t size);
int openReadWrite(const char* path);  // -1 with errno on failure
// Memory for large buffers: a mapping of its own in large pages where the system offers them
// (small sizes come from the heap). Null when it cannot be had; release with the same size.
void* allocateLarge(size_t bytes);
void releaseLarge(void* p, size_t bytes);
// Virtual memory: the page size, and whole pages reserved and committed read-write (null with
// errno on failure), released whole with the size they were reserved with.
uint32_t pageSize();
void* reservePages(size_t bytes);
bool releasePages(void* p, size_t bytes);
int64_t fileSize(int fd);                     // -1 when not a regular file
bool seekTo(int fd, int64_t pos);
bool writeAt(int fd, const void* data, size_t n, int64_t pos);
bool closeFd(int fd);  // false when the system reports an error (data may be lost)
bool isRegularFile(const char* path);
// The first n bytes of a file; false when it cannot be opened or is shorter.
bool readStart(const char* path, void* buf, size_t n);
// The last change: seconds since the epoch and nanoseconds; false when it cannot tell.
bool modificationTime(const char* path, int64_t* seconds, int32_t* nanoseconds);
std::string currentDirectory();
int processId();
// Where temporary files go: $TMPDIR, else /tmp.
std::string temporaryDirectory();
// The names of shared libraries, as a listDirectory pattern.
const char* sharedLibraryPattern();
// The running program's file, or "" when the system cannot tell.
std::string executablePath();

// Shared libraries: null with the loader's error text on failure; a symbol's address or null.
void* libraryOpen(const char* path, std::string& error);
void* librarySymbol(void* library, const char* name);
void libraryClose(void* library);
// The names in a directory matching pattern ("*.*" or null: every entry), sorted so that every
// system lists in one order; false when the directory cannot be read.
bool listDirectory(const std::string& dir, const char* pattern, std::vector<std::string>& names);
// A file's status: mode with 0x4000 for a directory and 0x8000 for a regular file; -1 on failure.
struct FileStatus {
  uint32_t mode = 0;
  int64_t size = 0, modified = 0;
};
int fileStatus(const char* path, FileStatus& status);

// "%s on %s" of the user and computer names, or "Unknown" when either cannot be had.
std::string userOnHost();

}  // namespace vora::platform
