// The background image loader: the host queues load requests (a file, and a rectangle to scale it
// to), one worker thread reads them in order through the image file front end, and the answers
// (the file and its pixel map, owned by whoever takes it) wait in a second queue. TtileList is a
// growable list of tile rectangles kept beside it.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <vora/export.h>
#include <vora/foundation/pixelmap.h>
#include <vora/foundation/tstring.h>

struct TimageLoadRequest {
  Tstring fileName;  // empty: the stop request
  TportRect rect;    // a positive size: the picture is scaled to it
  void (*callback)(void*) = nullptr;  // called on the worker thread once the answer is queued
  void* data = nullptr;
};

struct TimageLoadAnswer {
  Tstring fileName;
  TpixelMap* pixelMap = nullptr;  // empty when the file could not be read; the taker deletes it
};

// First in, first out; take() waits until there is an entry.
template <class T>
class TblockingQueue {
 public:
  void add(const T& entry) {
    std::lock_guard<std::mutex> g(lock_);
    entries_.push_back(entry);
    ready_.notify_one();
  }
  T take() {
    std::unique_lock<std::mutex> g(lock_);
    ready_.wait(g, [this] { return !entries_.empty(); });
    T front = std::move(entries_.front());
    entries_.pop_front();
    return front;
  }
  int count() {
    std::lock_guard<std::mutex> g(lock_);
    return int(entries_.size());
  }
  // Everything queued, handed back so that the caller can release it.
  std::deque<T> clear() {
    std::lock_guard<std::mutex> g(lock_);
    return std::exchange(entries_, {});
  }

 private:
  std::mutex lock_;
  std::condition_variable ready_;
  std::deque<T> entries_;
};

class VORA_API TmpImageProcess {
 public:
  // The instance, made with its worker on first call (call it first from one thread).
  static TmpImageProcess* imageProcess();
  static bool isImageProcess();

  void request(const TimageLoadRequest& r);
  void request(const Tstring& fileName, TportRect rect);
  TimageLoadRequest request();  // the worker's side: waits for the next request
  void answer(TimageLoadAnswer& a);
  TimageLoadAnswer answer();  // waits for the next answer
  int answers();              // answers waiting, not yet taken

  // Drops every request and answer waiting (their pixel maps too); nothing without an instance.
  static void flushRequestQueue();
  // Stops the worker after the request in progress (queued ones are dropped without answers),
  // waits for it and frees the instance; the next imageProcess() starts afresh.
  static void shutdownImageProcess();

 private:
  TmpImageProcess();
  ~TmpImageProcess();
  static void sImageThread(TmpImageProcess* self);
  // Empties the request queue and queues the stop request.
  void shutdownImageThread();

  std::thread worker_;
  TblockingQueue<TimageLoadRequest> requests_;
  TblockingQueue<TimageLoadAnswer> answers_;
};

// Tile rectangles in a growable array. Calls that change it answer 0 (success) or -1.
class VORA_API TtileList {
 public:
  explicit TtileList(unsigned capacity = 8) { tiles_.reserve(capacity); }
  virtual ~TtileList() = default;

  TportRect* data() { return tiles_.data(); }
  const TportRect* data() const { return tiles_.data(); }
  TportRect& operator[](unsigned i) { return tiles_[i]; }  // unchecked
  const TportRect& operator[](unsigned i) const { return tiles_[i]; }
  unsigned count() const { return unsigned(tiles_.size()); }
  TportRect& last() { return tiles_.back(); }  // the list must not be empty

  int addLast(const TportRect& t) { return insert(&t, count(), 1); }
  int addLast(const TportRect* t, unsigned n) { return insert(t, count(), n); }
  int insert(const TportRect& t, unsigned index) { return insert(&t, index, 1); }
  int insert(const TportRect* t, unsigned index, unsigned n);
  // count copies of t (capacity at least that many).
  int createAndSet(const TportRect& t, unsigned count, unsigned capacity);
  bool find(const TportRect& t, unsigned& index) const;
  bool find(const TportRect& t) const;
  int remove(const TportRect& t);  // the first equal one
  // n tiles of other from first (clamped to what it has) in place of this list's, or after them.
  int copy(const TtileList& other, unsigned first, unsigned n);
  int copy(const TtileList& other, unsigned n) { return copy(other, 0, n); }
  int copy(const TtileList& other) { return copy(other, 0, other.count()); }
  int catenate(const TtileList& other, unsigned first, unsigned n);
  int catenate(const TtileList& other, unsigned n) { return catenate(other, 0, n); }
  int catenate(const TtileList& other) { return catenate(other, 0, other.count()); }
  void swap(TtileList& other) { tiles_.swap(other.tiles_); }

 private:
  std::vector<TportRect> tiles_;
};
