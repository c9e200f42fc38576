// A byte vector whose resize leaves new bytes as they are: for buffers that are read or decoded
// into right after they grow, where zeroing them first would be a wasted pass over the data.
#pragma once

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace vora {

template <class T>
struct NoFillAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = NoFillAllocator<U>;
  };
  NoFillAllocator() = default;
  template <class U>
  NoFillAllocator(const NoFillAllocator<U>&) noexcept {}
  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;  // default-initialised: no zero fill
  }
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
};

using ByteBuffer = std::vector<unsigned char, NoFillAllocator<unsigned char>>;

}  // namespace vora
