// Foundation: the one value the library's components use to say what went wrong. A code from
// the foundation's and the image library's lists (FL_E*, IL_E*) and, where there is more to say
// than the code's catalogue text, a message (what failed, where, why). Components build it where
// the fault is found and carry it up; each public call converts it at its edge into what that
// call documents: flerrno, a message through the handler, a thrown value, null, false or -1.
#pragma once

#include <string>

#include <vora/export.h>

namespace vora {

class Status {
 public:
  Status() = default;  // success
  explicit Status(int code, std::string message = {}) : code_(code), message_(std::move(message)) {}

  bool ok() const { return code_ == 0; }
  int code() const { return code_; }
  // The message, or the code's catalogue text when there is none.
  VORA_API std::string text() const;

 private:
  int code_ = 0;
  std::string message_;
};

// The thread's last failure, kept by the edges below for calls that answer only null or -1 and
// for callers that want the message behind a code.
VORA_API const Status& lastStatus();
VORA_API void keepStatus(Status s);

// The edge of the calls that report through flerrno: keeps the status, sets flerrno to its code
// and returns the code.
VORA_API int toFlerrno(Status s);
inline int toFlerrno(int code) { return toFlerrno(Status(code)); }

}  // namespace vora
