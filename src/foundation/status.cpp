// Foundation: the library's failure value and the thread's last one.
#include "foundation/status.h"

#include <vora/foundation/fl.h>

namespace vora {

namespace {
thread_local Status tlsLast;
}

std::string Status::text() const { return message_.empty() ? std::string(FLstrerror(code_)) : message_; }

const Status& lastStatus() { return tlsLast; }
void keepStatus(Status s) { tlsLast = std::move(s); }

int toFlerrno(Status s) {
  const int code = s.code();
  flerrno = code;
  tlsLast = std::move(s);
  return code;
}

}  // namespace vora
