// SPDX-License-Identifier: GPL-3.0-or-later
#include "recheck/readback.h"

#include <algorithm>
#include <cfloat>

namespace wf {

namespace {

// Per axis minimum and maximum over the columns of a 3 x n array; an empty set gives the largest
// finite double as minimum and its negative as maximum.
void columnbox(const std::vector<double> &a, size_t n, double mn[3], double mx[3]) {
  for (int k = 0; k < 3; ++k) {
    mn[k] = DBL_MAX;
    mx[k] = -DBL_MAX;
  }
  for (size_t j = 0; j < n; ++j)
    for (size_t k = 0; k < 3; ++k) {
      const double v = a[3 * j + k];
      if (v < mn[k]) mn[k] = v;
      if (v > mx[k]) mx[k] = v;
    }
}

}  // namespace

void readbackbox(RawSurface &raw) {
  raw.nvrt = std::max(raw.nvrt, int32_t{0});
  raw.ntri = std::max(raw.ntri, int32_t{0});
  raw.vrt.resize(3 * size_t(raw.nvrt));
  // Kept deliberately: the box of the read-back is taken over the values that compare, and an
  // axis without one gets the largest finite double as minimum and its negative as maximum,
  // where the reader's own box of an input surface is not a number; the snap of the check then
  // stays finite. [pinned: Readback.BoxOfAnAxisWithoutNumbers]
  double mn[3], mx[3];
  columnbox(raw.vrt, size_t(raw.nvrt), mn, mx);
  for (int k = 0; k < 3; ++k) {
    raw.box.min[k] = mn[k];
    raw.box.max[k] = mx[k];
    raw.box.size[k] = mx[k] - mn[k];
    raw.box.centre[k] = (mn[k] + mx[k]) * 0.5;
  }
}

}  // namespace wf
