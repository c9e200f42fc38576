// Foundation: running work on every core (a thread pool is not needed yet;
// these are the two shapes the batch paths use). Exceptions thrown by the work reach the
// caller (the first one).
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vora {

inline unsigned threadCount(int threads) {
  return threads > 0 ? unsigned(threads) : std::max(1u, std::thread::hardware_concurrency());
}

namespace detail {
template <typename Body>
void runThreads(unsigned t, Body&& body) {
  std::vector<std::thread> pool;
  std::exception_ptr error;
  std::mutex lock;
  for (unsigned i = 0; i < t; ++i)
    pool.emplace_back([&, i] {
      try {
        body(i);
      } catch (...) {
        std::lock_guard<std::mutex> g(lock);
        if (!error) error = std::current_exception();
      }
    });
  for (std::thread& th : pool) th.join();
  if (error) std::rethrow_exception(error);
}
}  // namespace detail

// work(begin, end) over [0, n) in equal contiguous chunks; on the calling thread alone when one
// thread is asked for or n is below minItems.
template <typename F>
void parallelFor(size_t n, int threads, size_t minItems, F&& work) {
  unsigned t = threadCount(threads);
  if (t == 1 || n < minItems) return work(size_t(0), n);
  size_t chunk = (n + t - 1) / t;
  detail::runThreads(t, [&](unsigned i) {
    size_t begin = std::min(n, i * chunk), end = std::min(n, begin + chunk);
    if (begin < end) work(begin, end);
  });
}

// work(i) for every i in [0, n), items handed out one at a time (for items of unequal cost).
template <typename F>
void parallelEach(size_t n, int threads, F&& work) {
  unsigned t = std::min<size_t>(threadCount(threads), n);
  if (t <= 1) {
    for (size_t i = 0; i < n; ++i) work(i);
    return;
  }
  std::atomic<size_t> next{0};
  detail::runThreads(t, [&](unsigned) {
    for (size_t i; (i = next.fetch_add(1)) < n;) work(i);
  });
}

}  // namespace vora
