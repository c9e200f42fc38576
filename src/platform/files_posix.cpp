// Platform layer: files, the current directory, user and host names.
#include <fcntl.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>

#include "platform/platform.h"

namespace vora::platform {

int openRead(const char* path) {
  int fd;
  do fd = open(path, O_RDONLY | O_CLOEXEC);
  while (fd < 0 && errno == EINTR);
  if (fd >= 0) {
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
      close(fd);
      errno = EISDIR;
      return -1;
    }
  }
  return fd;
}

namespace {
int openRetrying(const char* path, int flags, int mode) {
  int fd;
  do fd = open(path, flags | O_CLOEXEC, mode);
  while (fd < 0 && errno == EINTR);
  return fd;
}
}  // namespace

int openWrite(const char* path) { return openRetrying(path, O_WRONLY | O_CREAT | O_TRUNC, 0666); }
int openCreate(const char* path, int mode) { return openRetrying(path, O_WRONLY | O_CREAT | O_TRUNC, mode); }
int openRewrite(const char* path, int mode) { return openRetrying(path, O_WRONLY | O_CREAT, mode); }

bool truncateTo(int fd, int64_t size) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  if (!S_ISREG(st.st_mode)) return true;
  int r;
  do r = ftruncate(fd, off_t(size));
  while (r != 0 && errno == EINTR);
  return r == 0;
}

long readAt(int fd, void* buf, size_t n, int64_t pos) {
  size_t done = 0;
  while (done < n) {
    ssize_t r = pread(fd, static_cast<char*>(buf) + done, n - done, off_t(pos + int64_t(done)));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return -1;
    if (r == 0) break;
    done += size_t(r);
  }
  return long(done);
}

const uint8_t* mapFile(int fd, int64_t size) {
  if (size <= 0) return nullptr;
  void* p = mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE, fd, 0);
  return p == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(p);
}

void unmapFile(const uint8_t* data, int64_t size) {
  if (data) munmap(const_cast<uint8_t*>(data), size_t(size));
}

void* mapFileShared(int fd, int64_t size) {
  struct stat st;
  if (size <= 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < size) return nullptr;
  void* p = mmap(nullptr, size_t(size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return p == MAP_FAILED ? nullptr : p;
}

void unmapShared(void* data, int64_t size) {
  if (data) munmap(data, size_t(size));
}

int openReadWrite(const char* path) { return ::open(path, O_RDWR | O_CLOEXEC); }

int64_t fileSize(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
  return int64_t(st.st_size);
}

bool seekTo(int fd, int64_t pos) { return lseek(fd, off_t(pos), SEEK_SET) == off_t(pos); }

bool writeAt(int fd, const void* data, size_t n, int64_t pos) {
  const char* p = static_cast<const char*>(data);
  while (n > 0) {
    ssize_t w = pwrite(fd, p, n, off_t(pos));
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= size_t(w);
    pos += w;
  }
  return true;
}

bool closeFd(int fd) { return fd < 0 || close(fd) == 0; }

bool isRegularFile(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

bool readStart(const char* path, void* buf, size_t n) {
  int fd = path ? openRead(path) : -1;
  bool ok = fd >= 0 && readAt(fd, buf, n, 0) == long(n);
  closeFd(fd);
  return ok;
}

bool modificationTime(const char* path, int64_t* seconds, int32_t* nanoseconds) {
  struct stat st;
  if (!path || stat(path, &st) != 0) return false;
  *seconds = int64_t(st.st_mtim.tv_sec);
  *nanoseconds = int32_t(st.st_mtim.tv_nsec);
  return true;
}

std::string currentDirectory() {
  char buf[PATH_MAX];
  return getcwd(buf, sizeof buf) ? std::string(buf) : std::string(".");
}

int processId() { return int(getpid()); }

std::string temporaryDirectory() {
  const char* t = getenv("TMPDIR");
  return t && *t ? std::string(t) : std::string("/tmp");
}

const char* sharedLibraryPattern() { return "*.so"; }

std::string executablePath() {
  char buf[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  return n > 0 ? std::string(buf, size_t(n)) : std::string();
}

std::string userOnHost() {
  struct passwd pw, *res = nullptr;
  char buf[4096];
  char host[256];
  if (getpwuid_r(getuid(), &pw, buf, sizeof buf, &res) != 0 || !res || !res->pw_name ||
      !*res->pw_name)
    return "Unknown";
  if (gethostname(host, sizeof host) != 0 || !*host) return "Unknown";
  host[sizeof host - 1] = 0;
  return std::string(res->pw_name) + " on " + host;
}

}  // namespace vora::platform
