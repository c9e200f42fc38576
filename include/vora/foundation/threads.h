// Foundation: locks. TmtRecursiveCS may be taken again by the thread that holds it; TmtLock holds
// one for a scope.
#pragma once

#include <mutex>

#include <vora/export.h>

class VORA_API TmtRecursiveCS {
 public:
  void lock() { m_.lock(); }
  void unlock() { m_.unlock(); }
  bool tryLock() { return m_.try_lock(); }

 private:
  std::recursive_mutex m_;
};

template <class Lock>
class TmtLock {
 public:
  explicit TmtLock(Lock& l) : l_(l) { l_.lock(); }
  ~TmtLock() { l_.unlock(); }
  TmtLock(const TmtLock&) = delete;
  TmtLock& operator=(const TmtLock&) = delete;

 private:
  Lock& l_;
};
