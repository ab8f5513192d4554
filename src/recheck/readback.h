// SPDX-License-Identifier: GPL-3.0-or-later
// The read-back of a written surface for its check: a blank line, the file read like an input
// surface (with the repaired-sibling rule), and the box taken per axis over the values that
// compare (an axis of no number gets the largest finite double as minimum and its negative as
// maximum, where an input surface's box would be not a number: the snap of the check then
// stays finite).
#pragma once

#include <string>

#include "base/reporter.h"
#include "surface/surfacemesh.h"

namespace wf {

// stlpath receives the name of the file read (the repaired sibling when there is one).
RawSurface readback(Reporter &rep, const std::string &file, std::string &stlpath, int &byteorder);

}  // namespace wf
