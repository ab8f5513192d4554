// SPDX-License-Identifier: GPL-3.0-or-later
// Checked allocation and the growth rule of every growable list.
//
// allocate() sizes a vector to n value-initialised entries; when the memory cannot be had the
// run ends with coded message 32 naming the label ("routine, array, n"). growcapacity() is the
// one growth rule of the program's lists: the capacity times 1.2, the product rounded to single
// precision and then up to an integer.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>

#include "base/fatal.h"

namespace wf {

template <class V>
void allocate(V &v, size_t n, const char *label) {
  try {
    V fresh(n);
    v.swap(fresh);
  } catch (const std::bad_alloc &) {
    checkalloc(1, label);
  } catch (const std::length_error &) {
    checkalloc(1, label);
  }
}

// Frees a vector's storage.
template <class V>
void release(V &v) {
  V().swap(v);
}

// The capacity that follows cap: ceil of the single-precision product 1.2 * cap. Returns -1
// when the result is not a positive 32-bit integer.
inline int32_t growcapacity(int32_t cap) {
  const float product = static_cast<float>(cap) * 1.2f;
  const double up = std::ceil(static_cast<double>(product));
  if (!(up > 0) || up > static_cast<double>(std::numeric_limits<int32_t>::max())) return -1;
  return static_cast<int32_t>(up);
}

}  // namespace wf
