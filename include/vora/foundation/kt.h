// Foundation: the container templates, as std aliases.
#pragma once

#include <functional>
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
}  // namespace kt
