// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement colour scale of the 3MF package: 1021 entries from blue through cyan, green
// and yellow to red, and the rule that maps a displacement magnitude to its entry.
#pragma once

#include <cstdint>

namespace wf {

constexpr int ncolours = 1021;

// Red, green and blue (0..255) of entry index (0..1020) of the scale.
void colourscale(int index, int &red, int &green, int &blue);

// Entry of magnitude m on a surface whose magnitudes run from lo to hi: the largest integer
// not above (m - lo) * 1020 / (hi - lo), in single precision, product first. Quotients that
// are not numbers or lie beyond the 32-bit range give the smallest 32-bit integer, as the
// machine conversion does (so a surface of one magnitude gets -2147483648 everywhere).
int32_t colourindex(float m, float lo, float hi);

}  // namespace wf
