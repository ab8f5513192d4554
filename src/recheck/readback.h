// SPDX-License-Identifier: GPL-3.0-or-later
// The read-back of a written surface for its check: the surface is read like an input surface
// (with the repaired-sibling rule, surface/readstl.h), and then its box is taken per axis over
// the values that compare (an axis of no number gets the largest finite double as minimum and
// its negative as maximum, where an input surface's box would be not a number: the snap of the
// check then stays finite). Nothing here prints.
#pragma once

#include "surface/surfacemesh.h"

namespace wf {

// Negative counts become 0, the soup is cut or padded with zeros to 3 nvrt values, and the box
// is taken as above.
void readbackbox(RawSurface &raw);

}  // namespace wf
