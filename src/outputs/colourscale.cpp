// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/colourscale.h"

#include <cmath>
#include <limits>

namespace wf {

void colourscale(int index, int &red, int &green, int &blue) {
  if (index < 255) {  // blue to just before cyan
    red = 0, green = index, blue = 255;
  } else if (index < 510) {  // cyan to just before green
    red = 0, green = 255, blue = 510 - index;
  } else if (index < 765) {  // green to just before yellow
    red = index - 510, green = 255, blue = 0;
  } else {  // yellow to red
    red = 255, green = 1020 - index, blue = 0;
  }
}

int32_t colourindex(float m, float lo, float hi) {
  // Kept deliberately: no guard for hi == lo: a surface of one magnitude (no displacement, say)
  // gets 0 / 0 and so -2147483648 in every p1, p2, p3, and the package is written all the same.
  // [pinned: Package3mf.FolderNamesOneMagnitudeAndFailedMembers]
  const float num = (m - lo) * 1020.0f;
  float q = num / (hi - lo);
  q = std::floor(q);
  if (!(q >= -2147483648.0f && q < 2147483648.0f)) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(q);
}

}  // namespace wf
