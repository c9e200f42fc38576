// Platform layer: child processes for "pipe:" streams and converter filters.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

extern char** environ;

namespace vora::platform {

namespace {

std::string firstWord(const std::string& command) {
  size_t b = command.find_first_not_of(" \t\n");
  if (b == std::string::npos) return {};
  size_t e = command.find_first_of(" \t\n;|&<>", b);
  return command.substr(b, e == std::string::npos ? std::string::npos : e - b);
}

bool isExecutable(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

bool commandExists(const std::string& command) {
  std::string word = firstWord(command);
  if (word.empty()) return false;
  if (word.find('/') != std::string::npos) return isExecutable(word);
  if (word == ":") return true;  // the shell's no-op; every other program must exist on PATH
  const char* path = getenv("PATH");
  std::string p = path ? path : "/usr/local/bin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= p.size()) {
    size_t end = p.find(':', start);
    if (end == std::string::npos) end = p.size();
    // An empty PATH entry is the current directory.
    std::string candidate = end > start ? p.substr(start, end - start) + "/" + word : "./" + word;
    if (isExecutable(candidate)) return true;
    start = end + 1;
  }
  return false;
}

bool spawnShell(const std::string& command, bool pipeStdin, bool pipeStdout, Child& child) {
  int in[2] = {-1, -1}, out[2] = {-1, -1};
  if (pipeStdin && pipe2(in, O_CLOEXEC) != 0) return false;
  if (pipeStdout && pipe2(out, O_CLOEXEC) != 0) {
    int e = errno;
    if (in[0] >= 0) { close(in[0]); close(in[1]); }
    errno = e;
    return false;
  }
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  if (pipeStdin) posix_spawn_file_actions_adddup2(&fa, in[0], 0);
  else posix_spawn_file_actions_addopen(&fa, 0, "/dev/null", O_RDONLY, 0);
  if (pipeStdout) posix_spawn_file_actions_adddup2(&fa, out[1], 1);
  // The child must not inherit a blocked SIGPIPE or ignored signals of ours.
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
  pid_t pid = -1;
  int rc = posix_spawn(&pid, "/bin/sh", &fa, &attr, const_cast<char**>(argv), environ);
  posix_spawn_file_actions_destroy(&fa);
  posix_spawnattr_destroy(&attr);
  if (pipeStdin) close(in[0]);
  if (pipeStdout) close(out[1]);
  if (rc != 0) {
    if (pipeStdin) close(in[1]);
    if (pipeStdout) close(out[0]);
    errno = rc;
    return false;
  }
  child.pid = pid;
  child.stdinFd = pipeStdin ? in[1] : -1;
  child.stdoutFd = pipeStdout ? out[0] : -1;
  return true;
}

int waitChild(int pid, int graceMs) {
  if (pid <= 0) return -1;
  int status = 0;
  auto decode = [](int st) { return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st); };
  if (graceMs < 0) {
    while (waitpid(pid, &status, 0) < 0)
      if (errno != EINTR) return -1;
    return decode(status);
  }
  // Poll for the grace period, then ask it to stop, then force it: never leave a child behind.
  const int steps[] = {graceMs, 500, 2000};
  const int sigs[] = {SIGTERM, SIGKILL, 0};
  for (int round = 0; round < 3; ++round) {
    for (int waited = 0;; waited += 2) {
      pid_t r = waitpid(pid, &status, WNOHANG);
      if (r == pid) return decode(status);
      if (r < 0 && errno != EINTR) return -1;
      if (waited >= steps[round]) break;
      struct timespec ts = {0, 2 * 1000 * 1000};
      nanosleep(&ts, nullptr);
    }
    if (sigs[round]) kill(pid, sigs[round]);
  }
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return decode(status);
}

bool writeAll(int fd, const void* data, size_t n) {
  // Block SIGPIPE in this thread for the write; a write to a closed pipe then fails with EPIPE
  // and the signal it raised is taken off this thread before it is unblocked again.
  sigset_t pipeSet, old;
  sigemptyset(&pipeSet);
  sigaddset(&pipeSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSet, &old);
  const char* p = static_cast<const char*>(data);
  bool ok = true;
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    p += w;
    n -= size_t(w);
  }
  int e = errno;
  if (!ok && e == EPIPE) {
    struct timespec zero = {0, 0};
    while (sigtimedwait(&pipeSet, nullptr, &zero) > 0) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = e;
  return ok;
}

long readSome(int fd, void* buf, size_t n) {
  for (;;) {
    ssize_t r = read(fd, buf, n);
    if (r >= 0 || errno != EINTR) return long(r);
  }
}

}  // namespace vora::platform
