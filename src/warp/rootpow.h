// SPDX-License-Identifier: GPL-3.0-or-later
// rootpow(x): std::pow(x, 0.5) to the bit, mostly without calling pow (the weight of a node in
// the average is 1 / pow(d2, 0.5), and pow costs about twice sqrt; sqrt itself differs from pow
// in the last bit on about one input in a thousand, so it cannot simply replace it).
//
// sqrt is correctly rounded, and glibc's pow is within 0.52 of a unit in the last place of the
// exact root. Where the exact root lies within 0.45 of a unit of sqrt's answer s, every other
// double is more than 0.55 of a unit away from it, so pow returns s too. The distance of the
// exact root from s is (s * s - x) / 2s, which one fused multiply-add gives closely enough.
// Roots nearer the middle between two doubles (about one in ten), roots at a power of two
// (where the unit changes size between the two sides) and zeros, subnormals, infinities, NaNs
// and negative inputs are answered by pow itself.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace wf {

inline double rootpow(double x) {
  const double s = std::sqrt(x);
  uint64_t bits;
  std::memcpy(&bits, &s, sizeof bits);
  if (s > 0x1p-500 && s < 0x1p500 && (bits & 0xfffffffffffffULL) != 0) {
    const uint64_t unitbits = (bits & 0x7ff0000000000000ULL) - (52ULL << 52);  // 2^(exponent - 52)
    double unit;
    std::memcpy(&unit, &unitbits, sizeof unit);
    if (std::fabs(std::fma(s, s, -x)) < 0.9 * s * unit) return s;
  }
  return std::pow(x, 0.5);
}

}  // namespace wf
