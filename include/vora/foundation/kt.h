// Foundation: the container templates, as std aliases.
#pragma once

#include <functional>
#include <memory>
#include <new>
#include <set>
#include <utility>
#include <vector>

namespace kt {
template <typename T>
using vector = std::vector<T>;
template <typename A, typename B>
using pair = std::pair<A, B>;
template <typename T, typename C = std::less<T>>
using set = std::set<T, C>;
template <typename T>
using less = std::less<T>;

// An allocator whose new elements are default-initialised: a byte vector's resize leaves the new
// bytes as they are, for buffers that are read or decoded into right after they grow. Memory
// comes from Base (an allocator template of T), std::allocator unless given.
template <typename T, typename Base = std::allocator<T>>
struct NoFillAllocator : Base {
  using value_type = T;
  template <typename U>
  struct rebind {
    using other = NoFillAllocator<U, typename std::allocator_traits<Base>::template rebind_alloc<U>>;
  };
  NoFillAllocator() = default;
  template <typename U, typename B>
  NoFillAllocator(const NoFillAllocator<U, B>&) noexcept {}
  template <typename U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... A>
  void construct(U* p, A&&... a) {
    ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};
using ByteBuffer = std::vector<unsigned char, NoFillAllocator<unsigned char>>;
}  // namespace kt
