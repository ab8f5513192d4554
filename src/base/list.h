// SPDX-License-Identifier: GPL-3.0-or-later
// A growable list with its capacity kept beside its count. A list starts with room for ten;
// when a push passes the capacity, the capacity grows by the program's one rule (growcapacity:
// 1.2 times, in single precision, rounded up): 10, 12, 15, 18, 22, ...
// Entries are addressed 0-based; the 1-based number of entry i, where it reaches a file or a
// message, is i + 1.
#pragma once

#include <cstdint>
#include <vector>

#include "base/memory.h"

namespace wf {

template <class T>
struct List {
  std::vector<T> v;  // v.size() is the capacity
  int32_t n = 0;     // count in use

  T &operator[](size_t i) { return v[i]; }
  const T &operator[](size_t i) const { return v[i]; }
  // Empty, with room for ten.
  void start() {
    v.assign(10, T());
    n = 0;
  }
  void clear() {
    v.clear();
    n = 0;
  }
  // Appends value. Returns 0, or -1 when the list cannot grow: the count is then raised all the
  // same and the old storage stays, as the growth rule of the lists has it.
  int push(const T &value) {
    ++n;
    const int32_t cap = static_cast<int32_t>(v.size());
    if (n <= cap) {
      v[static_cast<size_t>(n - 1)] = value;
      return 0;
    }
    const int32_t grown = cap == 0 ? 10 : growcapacity(cap);  // a list never started starts here
    if (grown <= 0) return -1;
    try {
      v.resize(static_cast<size_t>(grown));
    } catch (const std::exception &) {
      return -1;
    }
    v[static_cast<size_t>(n - 1)] = value;
    return 0;
  }
  // The entries in use.
  std::vector<T> entries() const { return std::vector<T>(v.begin(), v.begin() + (n > 0 ? n : 0)); }
};

}  // namespace wf
