// Foundation: files, standard I/O, "pipe:" commands and filters.
#include "foundation/fl_stream.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include "platform/platform.h"

namespace vora::fl {

namespace pf = vora::platform;

namespace {

// Files are written over in place (pf::openRewrite) and cut at close to the bytes written: the
// writers append from the start and patch only what they wrote, so nothing old is left inside.
class FileStream final : public Stream {
 public:
  FileStream(int fd, bool writing, int64_t size) : fd_(fd), writing_(writing), size_(size) {}
  ~FileStream() override { close(); }
  long read(void* buf, size_t n) override { return pf::readSome(fd_, buf, n); }
  bool write(const void* buf, size_t n) override {
    return pf::writeAll(fd_, buf, n) && (pos_ += int64_t(n), end_ = std::max(end_, pos_), true);
  }
  bool seek(int64_t pos) override { return size_ >= 0 && pf::seekTo(fd_, pos) && (pos_ = pos, true); }
  bool writeAt(const void* d, size_t n, int64_t pos) override {
    return size_ >= 0 && pf::writeAt(fd_, d, n, pos) && (end_ = std::max(end_, pos + int64_t(n)), true);
  }
  int64_t size() const override { return writing_ ? -1 : size_; }
  int close() override {
    if (fd_ < 0) return 0;
    const bool cut = !writing_ || pf::truncateTo(fd_, end_);
    if (!cut) setOsError(errno);
    pf::closeFd(fd_);
    fd_ = -1;
    return cut ? 0 : FL_EWRITE;
  }
  unsigned kind() const override { return FL_FILE | (size_ >= 0 ? FL_SEEKABLE : 0u); }

 private:
  int fd_;
  bool writing_;
  int64_t size_;  // -1 when not a regular file (a FIFO by name cannot seek)
  int64_t pos_ = 0, end_ = 0;  // writing: where the next write goes, the end of what was written
};

class StdioStream final : public Stream {
 public:
  explicit StdioStream(bool writing) : fd_(writing ? 1 : 0) {}
  long read(void* buf, size_t n) override { return pf::readSome(fd_, buf, n); }
  bool write(const void* buf, size_t n) override { return pf::writeAll(fd_, buf, n); }
  int close() override { return 0; }  // not ours to close
  unsigned kind() const override { return FL_STDIO; }

 private:
  int fd_;
};

// "pipe:COMMAND": reading takes the command's stdout, writing feeds its stdin.
class PipeStream final : public Stream {
 public:
  PipeStream(pf::Child c, bool writing) : child_(c), writing_(writing) {}
  ~PipeStream() override { close(); }
  long read(void* buf, size_t n) override { return pf::readSome(child_.stdoutFd, buf, n); }
  bool write(const void* buf, size_t n) override { return pf::writeAll(child_.stdinFd, buf, n); }
  int close() override {
    if (child_.pid < 0) return 0;
    pf::closeFd(child_.stdinFd);
    pf::closeFd(child_.stdoutFd);
    // A writer's command must finish its work; a reader's is no longer wanted once we close.
    int status = pf::waitChild(child_.pid, writing_ ? -1 : 2000);
    child_ = {};
    return writing_ && status != 0 ? FL_ECHILD : 0;
  }
  unsigned kind() const override { return FL_PIPE; }

 private:
  pf::Child child_;
  bool writing_;
};

// A command between us and another stream, with a thread moving the bytes on the far side.
class FilterStream final : public Stream {
 public:
  FilterStream(pf::Child c, bool writing, std::unique_ptr<Stream> inner,
               std::vector<uint8_t> leftover)
      : child_(c), writing_(writing), inner_(std::move(inner)) {
    if (writing_) {
      pump_ = std::thread([this] { pumpOut(); });
    } else {
      pump_ = std::thread([this, lo = std::move(leftover)] { feedIn(lo); });
    }
  }
  ~FilterStream() override { close(); }
  long read(void* buf, size_t n) override { return pf::readSome(child_.stdoutFd, buf, n); }
  bool write(const void* buf, size_t n) override { return pf::writeAll(child_.stdinFd, buf, n); }
  int close() override {
    if (!inner_) return 0;
    int rc = 0;
    if (writing_) {
      pf::closeFd(child_.stdinFd);  // end of input: the command finishes, the pump drains it
      int status = pf::waitChild(child_.pid, -1);
      pump_.join();
      pf::closeFd(child_.stdoutFd);
      if (status != 0) rc = FL_ECHILD;
      if (pumpFailed_ && !rc) rc = FL_EWRITE;
    } else {
      pf::closeFd(child_.stdoutFd);  // the command gets SIGPIPE if it still writes
      pf::waitChild(child_.pid, 2000);
      pump_.join();  // the feeder ends on EPIPE once the command is gone
      pf::closeFd(child_.stdinFd);
    }
    int irc = inner_->close();
    inner_.reset();
    child_ = {};
    return rc ? rc : irc;
  }
  unsigned kind() const override { return FL_FILTER; }

 private:
  void feedIn(const std::vector<uint8_t>& leftover) {
    if (leftover.empty() || pf::writeAll(child_.stdinFd, leftover.data(), leftover.size())) {
      std::vector<uint8_t> buf(1 << 16);
      for (;;) {
        long r = inner_->read(buf.data(), buf.size());
        if (r <= 0 || !pf::writeAll(child_.stdinFd, buf.data(), size_t(r))) break;
      }
    }
    pf::closeFd(child_.stdinFd);
    child_.stdinFd = -1;
  }
  void pumpOut() {
    std::vector<uint8_t> buf(1 << 16);
    for (;;) {
      long r = pf::readSome(child_.stdoutFd, buf.data(), buf.size());
      if (r <= 0) break;
      if (!inner_->write(buf.data(), size_t(r))) {
        pumpFailed_ = true;
        break;
      }
    }
  }

  pf::Child child_;
  bool writing_;
  std::unique_ptr<Stream> inner_;
  std::thread pump_;
  bool pumpFailed_ = false;
};

bool startCommand(const std::string& command, bool in, bool out, pf::Child& c, int& err) {
  if (!pf::commandExists(command)) {
    err = FL_ENOCMD;
    return false;
  }
  if (!pf::spawnShell(command, in, out, c)) {
    setOsError(errno);
    err = FL_ESPAWN;
    return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<Stream> openFile(const char* path, bool writing, int& err) {
  int fd = writing ? pf::openRewrite(path, 0666) : pf::openRead(path);
  if (fd < 0) {
    setOsError(errno);
    err = FL_EOPEN;
    return nullptr;
  }
  return std::make_unique<FileStream>(fd, writing, pf::fileSize(fd));
}

std::unique_ptr<Stream> openStdio(bool writing) { return std::make_unique<StdioStream>(writing); }

std::unique_ptr<Stream> openPipe(const std::string& command, bool writing, int& err) {
  pf::Child c;
  if (!startCommand(command, writing, !writing, c, err)) return nullptr;
  return std::make_unique<PipeStream>(c, writing);
}

std::unique_ptr<Stream> wrapFilter(const std::string& command, bool writing,
                                   std::unique_ptr<Stream>& inner, std::vector<uint8_t> leftover,
                                   int& err) {
  pf::Child c;
  if (!inner || !startCommand(command, true, true, c, err)) return nullptr;
  return std::make_unique<FilterStream>(c, writing, std::move(inner), std::move(leftover));
}

}  // namespace vora::fl
