// Foundation: the byte streams beneath the FL chunked-file calls.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vora/foundation/fl.h>

namespace vora::fl {

// One source or sink of bytes. Reads may be short; 0 means the end, -1 an error (errno).
class Stream {
 public:
  virtual ~Stream() = default;
  virtual long read(void* buf, size_t n) = 0;
  virtual bool write(const void* buf, size_t n) = 0;
  virtual bool seek(int64_t) { return false; }
  virtual bool writeAt(const void*, size_t, int64_t) { return false; }
  virtual int64_t size() const { return -1; }  // known length of a seekable source
  virtual int close() = 0;                     // 0 or an FL error code
  virtual unsigned kind() const = 0;           // FL_FILE, FL_PIPE, ... | FL_SEEKABLE
};

// Each returns null with the FL error code in err (and errno kept for FLoserror).
std::unique_ptr<Stream> openFile(const char* path, bool writing, int& err);
std::unique_ptr<Stream> openStdio(bool writing);
std::unique_ptr<Stream> openPipe(const std::string& command, bool writing, int& err);
// leftover: bytes already taken from inner that the command must see first (reading).
// inner is taken only on success.
std::unique_ptr<Stream> wrapFilter(const std::string& command, bool writing,
                                   std::unique_ptr<Stream>& inner, std::vector<uint8_t> leftover,
                                   int& err);

void setOsError(int e);

}  // namespace vora::fl
